#include "control/modern/PasswordMemory.h"

#include <algorithm>
#include <string>

#include "support/Wipe.h"

namespace TesselServer {

PasswordMemory::Look PasswordMemory::LookUp(const OpenFile& file, std::string_view user,
                                            std::string_view password) const {
  std::string pair;
  const WipeAtEnd pairGoes(pair);
  pair.reserve(user.size() + 1 + password.size());
  pair.append(user).append(":").append(password);
  const KeyedDigest::Value client = digest_.Of(pair);
  const bool isKnown = std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.client == client && entry.file.IsStill(file, world_);
  });
  return {client, SeenFile(file, world_), isKnown};
}

void PasswordMemory::Learn(const Look& look) {
  if (!look.file.IsOfUse(world_)) return;
  auto place = std::find_if(entries_.begin(), entries_.end(),
                            [this](const Entry& entry) { return !entry.file.IsOfUse(world_); });
  if (place == entries_.end() && entries_.size() < kMaxEntries) {
    entries_.push_back({look.client, look.file});
    return;
  }
  if (place == entries_.end()) place = entries_.begin() + static_cast<std::ptrdiff_t>(next_++ % kMaxEntries);
  *place = {look.client, look.file};
}

}  // namespace TesselServer
