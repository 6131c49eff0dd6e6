#include "files/cls_NTSecurity.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <system_error>

#include "platform/access/AccessList.h"
#include "platform/access/AccessObject.h"
#include "platform/access/Accounts.h"
#include "platform/world/SystemErrorText.h"

namespace TesselServer {
namespace {

constexpr unsigned kRead = AccessList::kRead;
constexpr unsigned kWrite = AccessList::kWrite;
constexpr unsigned kExecute = AccessList::kExecute;
constexpr unsigned kAllRights = AccessList::kAllRights;

constexpr std::uint32_t kFileAll = 0x1F01FF;
constexpr std::string_view kDenied = "None";

// The masks that have a word.
struct Level {
  std::uint32_t mask;
  std::string_view word;
  std::string_view denyWord;
  unsigned rights;
};
constexpr std::array kLevels = {
    Level{0x10000000, "Full Control", kDenied, kAllRights},
    Level{kFileAll, "All", kDenied, kAllRights},
    Level{0x1201B6, "Add ", "Add ", kWrite},  // kept: the blank
    Level{0x1201BF, "Add & Read", "Add & Read", kRead | kWrite},
    Level{0x1301BF, "Change", "Change", kAllRights},
    Level{0x1200A9, "Read", "Read", kRead | kExecute},
};

// What single bits of any other mask mean.
struct Bits {
  std::uint32_t mask;
  unsigned rights;
};
constexpr std::array kBits = {
    Bits{0x80000001, kRead},
    Bits{0x40000006, kWrite},
    Bits{0x20000020, kExecute},
    Bits{0x10000000, kAllRights},
};

// The mask for each set of rights, by its number.
constexpr std::array<std::uint32_t, 8> kMasks = {kFileAll, 0x1200A0, 0x1201B6, 0x1301B6,
                                                 0x120089, 0x1200A9, 0x1201BF, 0x1301BF};

constexpr char kGroupMark = '@';

const Level* FindLevel(std::uint32_t mask) {
  const auto found =
      std::find_if(kLevels.begin(), kLevels.end(), [&](const Level& level) { return level.mask == mask; });
  return found == kLevels.end() ? nullptr : &*found;
}

unsigned RightsOf(std::uint32_t mask) {
  if (const Level* level = FindLevel(mask)) return level->rights;
  unsigned rights = 0;
  for (const Bits& bits : kBits) {
    if ((mask & bits.mask) != 0) rights |= bits.rights;
  }
  return rights;
}

std::optional<std::uint32_t> NumberOf(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == Trustee::kNobodyAtAll) return std::nullopt;
  return number;
}

// True as well for "", which is no existing number.
bool IsNumber(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// The trustee that `text` names. Where the users cannot be queried the groups are not searched: a group of the same
// name must not be taken for the user.
std::errc FindTrustee(Accounts& accounts, std::string_view text, Trustee& trustee) {
  const bool isMarked = text.starts_with(kGroupMark);
  if (isMarked) text.remove_prefix(1);
  if (text.find('\0') != std::string_view::npos) return std::errc::invalid_argument;
  trustee.kind = isMarked ? Trustee::Kind::kGroup : Trustee::Kind::kUser;
  std::optional<std::uint32_t> id;
  if (IsNumber(text)) {
    id = NumberOf(text);
  } else {
    const std::string name(text);
    std::errc error = accounts.Find(trustee.kind, name, id);
    if (error == std::errc() && !id && !isMarked) {
      trustee.kind = Trustee::Kind::kGroup;
      error = accounts.Find(trustee.kind, name, id);
    }
    if (error != std::errc()) return error;
  }
  if (!id) return std::errc::invalid_argument;
  trustee.id = *id;
  return {};
}

bool Means(Accounts& accounts, std::string_view text, const Trustee& trustee) {
  Trustee meant;
  return FindTrustee(accounts, text, meant) == std::errc() && meant == trustee;
}

// A text that FindTrustee takes for this trustee, whose name is `name` or "".
std::string TrusteeText(Accounts& accounts, const Trustee& trustee, std::string name) {
  if (Means(accounts, name, trustee)) return name;
  std::string marked = kGroupMark + name;
  if (Means(accounts, marked, trustee)) return marked;
  std::string number = std::to_string(trustee.id);
  return trustee.kind == Trustee::Kind::kGroup ? kGroupMark + number : number;
}

// Makes one change in a list. `isChanged` tells whether there is anything to write.
std::errc Change(AccessList& list, const Trustee& trustee, std::uint32_t mask, std::int32_t mode, bool& isChanged) {
  const unsigned rights = RightsOf(mask);
  isChanged = true;
  switch (mode) {
    case cls_NTSecurity::kGrant:
      if (rights == 0) return std::errc::invalid_argument;
      list.Put(trustee, list.RightsOf(trustee).value_or(0) | rights);
      return {};
    case cls_NTSecurity::kSet:
      list.Put(trustee, rights);
      return {};
    case cls_NTSecurity::kDeny:
      list.Put(trustee, 0);
      return {};
    case cls_NTSecurity::kRevoke:
      isChanged = list.Remove(trustee);
      return {};
    default:
      return std::errc::invalid_argument;
  }
}

std::errc ReadList(const AccessObject& object, std::int32_t type, AccessList& list) {
  return type == cls_NTSecurity::kFileObject ? object.Read(list) : std::errc::invalid_argument;
}

std::errc ChangeAccess(std::string_view name, std::int32_t type, std::string_view trusteeName, std::uint32_t mask,
                       std::int32_t mode) {
  const AccessObject object(name);
  AccessList list = AccessList::FromMode(0);
  Accounts accounts;
  Trustee trustee;
  bool isChanged = false;
  std::errc error = ReadList(object, type, list);
  if (error == std::errc()) error = FindTrustee(accounts, trusteeName, trustee);
  if (error == std::errc()) error = Change(list, trustee, mask, mode, isChanged);
  if (error == std::errc() && isChanged) error = object.Write(list);
  return error;
}

}  // namespace

std::string_view cls_NTSecurity::PermissionName(std::int32_t AccessMode, std::uint32_t AccessMask) {
  const Level* level = FindLevel(AccessMask);
  if (level == nullptr) return {};
  return AccessMode == kDeny ? level->denyWord : level->word;
}

bool cls_NTSecurity::GrantAccess(std::string_view ObjectName, std::int32_t ObjectType, std::string_view TrusteeName,
                                 std::uint32_t AccessPermissions, std::int32_t AccessMode) {
  if (ObjectName.empty()) return false;
  const std::errc error = ChangeAccess(ObjectName, ObjectType, TrusteeName, AccessPermissions, AccessMode);
  if (error == std::errc()) return true;
  RecordSecurityError(static_cast<std::int32_t>(error));
  return false;
}

bool cls_NTSecurity::GetAccessEntries(std::string_view ObjectName, std::int32_t ObjectType,
                                      std::vector<AccessEntry>& Entries) {
  Entries.clear();
  AccessList list = AccessList::FromMode(0);
  if (const std::errc error = ReadList(AccessObject(ObjectName), ObjectType, list); error != std::errc()) {
    RecordSecurityError(static_cast<std::int32_t>(error));
    return false;
  }
  Accounts accounts;
  Entries.reserve(list.NamedEntries().size());
  for (const AccessList::NamedEntry& named : list.NamedEntries()) {
    AccessEntry& entry = Entries.emplace_back();
    entry.permissions = kMasks[named.rights];
    entry.mode = named.rights == 0 ? kDeny : kGrant;
    entry.trusteeName = TrusteeText(accounts, named.trustee, PointerToString(accounts.Name(named.trustee)));
  }
  return true;
}

// The text at an address up to its NUL; "" when there is no address.
std::string cls_NTSecurity::PointerToString(const char* address) { return address == nullptr ? "" : address; }

void cls_NTSecurity::RecordSecurityError(std::int32_t code) {
  lastErrorCode_ = code;
  lastErrorText_ = SystemErrorText(code);
}

}  // namespace TesselServer
