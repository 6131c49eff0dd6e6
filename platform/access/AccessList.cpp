#include "platform/access/AccessList.h"

#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace TesselServer {
namespace {

// The value is a 32-bit version and then, for each entry, a tag and rights of 16 bits each and a number of 32 bits; all
// of them begin with their lowest byte on every machine.
constexpr std::size_t kAclHeaderBytes = sizeof(posix_acl_xattr_header);
constexpr std::size_t kAclEntryBytes = sizeof(posix_acl_xattr_entry);

// The order in which the kernel wants the entries, which is that of their tags as numbers.
constexpr unsigned kOwner = ACL_USER_OBJ;
constexpr unsigned kUser = ACL_USER;
constexpr unsigned kOwningGroup = ACL_GROUP_OBJ;
constexpr unsigned kGroup = ACL_GROUP;
constexpr unsigned kMask = ACL_MASK;
constexpr unsigned kOthers = ACL_OTHER;

constexpr Trustee kFirstGroup{Trustee::Kind::kGroup, 0};

bool IsNamed(unsigned tag) { return tag == kUser || tag == kGroup; }

bool HasAll(unsigned tags, unsigned wanted) { return (tags & wanted) == wanted; }

bool IsBefore(const AccessList::NamedEntry& entry, const Trustee& trustee) {
  return std::tie(entry.trustee.kind, entry.trustee.id) < std::tie(trustee.kind, trustee.id);
}

// Where the trustee's entry is, or where it would be inserted.
template <typename Entries>
auto PlaceOf(Entries& entries, const Trustee& trustee) {
  return std::lower_bound(entries.begin(), entries.end(), trustee, IsBefore);
}

template <typename Entries>
auto Find(Entries& entries, const Trustee& trustee) {
  const auto place = PlaceOf(entries, trustee);
  return place != entries.end() && place->trustee == trustee ? place : entries.end();
}

std::uint32_t NumberAt(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t i = size; i > 0; --i) number = (number << 8) | static_cast<std::uint8_t>(bytes[at + i - 1]);
  return number;
}

void AppendNumber(std::string& bytes, std::uint32_t number, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
}

void AppendEntry(std::string& bytes, unsigned tag, unsigned rights, std::uint32_t id = Trustee::kNobodyAtAll) {
  AppendNumber(bytes, tag, 2);
  AppendNumber(bytes, rights, 2);
  AppendNumber(bytes, id, 4);
}

}  // namespace

AccessList AccessList::FromMode(unsigned mode) {
  AccessList list;
  list.owner_ = (mode >> 6) & kAllRights;
  list.owningGroup_ = (mode >> 3) & kAllRights;
  list.others_ = mode & kAllRights;
  return list;
}

std::optional<AccessList> AccessList::FromBytes(std::string_view bytes) {
  if (bytes.size() < kAclHeaderBytes || bytes.size() > kMaxBytes) return std::nullopt;
  if (NumberAt(bytes, 0, kAclHeaderBytes) != POSIX_ACL_XATTR_VERSION) return std::nullopt;
  bytes.remove_prefix(kAclHeaderBytes);
  if (bytes.size() % kAclEntryBytes != 0) return std::nullopt;
  AccessList list;
  unsigned last = 0;
  unsigned seen = 0;
  for (std::size_t at = 0; at < bytes.size(); at += kAclEntryBytes) {
    const unsigned tag = NumberAt(bytes, at, 2);
    if (tag < last || (tag == last && !IsNamed(tag))) return std::nullopt;
    if (!list.Take(tag, NumberAt(bytes, at + 2, 2), NumberAt(bytes, at + 4, 4))) return std::nullopt;
    last = tag;
    seen |= tag;
  }
  if (!HasAll(seen, kOwner | kOwningGroup | kOthers) || (!list.named_.empty() && !HasAll(seen, kMask))) {
    return std::nullopt;
  }
  if (!list.SortNamed()) return std::nullopt;
  return list;
}

std::string AccessList::Bytes() const {
  std::string bytes;
  bytes.reserve(kAclHeaderBytes + Size() * kAclEntryBytes);
  AppendNumber(bytes, POSIX_ACL_XATTR_VERSION, kAclHeaderBytes);
  AppendEntry(bytes, kOwner, owner_);
  const auto groups = PlaceOf(named_, kFirstGroup);
  for (auto entry = named_.begin(); entry != groups; ++entry) {
    AppendEntry(bytes, kUser, entry->rights, entry->trustee.id);
  }
  AppendEntry(bytes, kOwningGroup, owningGroup_);
  for (auto entry = groups; entry != named_.end(); ++entry) {
    AppendEntry(bytes, kGroup, entry->rights, entry->trustee.id);
  }
  if (mask_) AppendEntry(bytes, kMask, *mask_);
  AppendEntry(bytes, kOthers, others_);
  return bytes;
}

unsigned AccessList::Mode() const { return owner_ << 6 | mask_.value_or(owningGroup_) << 3 | others_; }

std::optional<unsigned> AccessList::RightsOf(const Trustee& trustee) const {
  const auto found = Find(named_, trustee);
  return found == named_.end() ? std::nullopt : std::optional(found->rights);
}

void AccessList::Put(const Trustee& trustee, unsigned rights) {
  const auto place = PlaceOf(named_, trustee);
  if (place != named_.end() && place->trustee == trustee) {
    place->rights = rights & kAllRights;
  } else {
    named_.insert(place, {trustee, rights & kAllRights});
  }
  MakeMask();
}

bool AccessList::Remove(const Trustee& trustee) {
  const auto found = Find(named_, trustee);
  if (found == named_.end()) return false;
  named_.erase(found);
  MakeMask();
  return true;
}

// Stores one entry as it was read; the caller sees to its place among the others.
bool AccessList::Take(unsigned tag, unsigned rights, std::uint32_t id) {
  if (rights > kAllRights) return false;
  switch (tag) {
    case kOwner:
      owner_ = rights;
      return true;
    case kOwningGroup:
      owningGroup_ = rights;
      return true;
    case kMask:
      mask_ = rights;
      return true;
    case kOthers:
      others_ = rights;
      return true;
    case kUser:
    case kGroup:
      named_.push_back({{tag == kUser ? Trustee::Kind::kUser : Trustee::Kind::kGroup, id}, rights});
      return id != Trustee::kNobodyAtAll;
    default:
      return false;
  }
}

// Brings the named entries into order, which the kernel does not ask for among those of one kind. False for a trustee
// that comes twice.
bool AccessList::SortNamed() {
  std::sort(named_.begin(), named_.end(), [](const auto& a, const auto& b) { return IsBefore(a, b.trustee); });
  const auto isTwice = [](const auto& a, const auto& b) { return a.trustee == b.trustee; };
  return std::adjacent_find(named_.begin(), named_.end(), isTwice) == named_.end();
}

void AccessList::MakeMask() {
  mask_.reset();
  if (named_.empty()) return;
  mask_ = owningGroup_;
  for (const NamedEntry& entry : named_) *mask_ |= entry.rights;
}

}  // namespace TesselServer
