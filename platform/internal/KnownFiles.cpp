#include "platform/internal/KnownFiles.h"

#include <chrono>
#include <utility>

#include "platform/internal/KnownPath.h"

namespace TesselServer {
namespace {

std::int64_t NowMilliseconds() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

std::shared_ptr<const KnownFile> KnownFiles::Find(std::string_view name) {
  const auto* known = files_.Find(name);
  if (known == nullptr) return nullptr;
  const bool holds =
      NowMilliseconds() - (*known)->openedAt < kOpenAgainMilliseconds && StampOfPath((*known)->path) == (*known)->stamp;
  if (holds) return *known;
  files_.Drop(name);
  return nullptr;
}

std::shared_ptr<const KnownFile> KnownFiles::Remember(std::string_view name, const OpenFile& file) {
  if (rootPath_.empty() || file.Kind() != EntryKind::kFile || file.Size() > kMaxFileBytes) return nullptr;
  const auto before = StampOfDescriptor(file.Descriptor());
  if (!before || !IsSettled(*before, FileClockNow()) || !KeepsContentChangeTimes(file.Descriptor())) return nullptr;
  std::string contents;
  if (!file.ReadAll(contents, kMaxFileBytes) || StampOfDescriptor(file.Descriptor()) != before) return nullptr;
  if (static_cast<std::int64_t>(contents.size()) != before->size) return nullptr;
  KnownFile known{JoinPath(rootPath_, name), file.CanonicalPath(), *before, nullptr, NowMilliseconds()};
  const std::size_t bytes =
      sizeof known + known.path.size() + known.canonicalPath.size() + name.size() + contents.size();
  known.contents = std::make_shared<const std::string>(std::move(contents));
  auto shared = std::make_shared<const KnownFile>(std::move(known));
  files_.Put(name, shared, bytes);
  return shared;
}

}  // namespace TesselServer
