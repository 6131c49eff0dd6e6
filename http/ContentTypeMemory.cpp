#include "http/ContentTypeMemory.h"

#include <algorithm>

namespace TesselServer {

void ContentTypeMemory::ComesFrom(e_ContentTypeSource source, const Lines& lines, std::uint64_t registryRevision) {
  if (source_ == source && lines_ == lines && registryRevision_ == registryRevision) return;
  source_ = source;
  lines_ = lines;
  registryRevision_ = registryRevision;
  count_ = next_ = 0;
}

std::optional<std::string_view> ContentTypeMemory::Find(std::string_view extension) const {
  for (std::size_t i = 0; i < count_; ++i) {
    if (entries_[i].extension == extension) return entries_[i].type;
  }
  return std::nullopt;
}

void ContentTypeMemory::Keep(std::string_view extension, std::string_view type) {
  if (extension.size() > kMaxExtensionBytes || type.size() > kMaxTypeBytes) return;
  entries_[next_] = {std::string(extension), std::string(type)};
  next_ = (next_ + 1) % kMaxTypes;
  count_ = std::min(count_ + 1, kMaxTypes);
}

}  // namespace TesselServer
