// The access control list of a file or folder as the kernel keeps it (acl(5)): what its owner, its owning group, all
// others, and any number of further users and groups may do.
//
// Thread:    any; a value.
// Ownership: owns its entries.
// Errors:    documented at each member.
//
// A named user's entry replaces what the file gives to groups and to others: it can take rights away as well
// as give them. The owner's own rights never come from a named entry. The mask bounds the owning group and every named
// entry; it exists exactly when there is a named entry, as long as a list is changed through this class only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

// A user or a group by its number.
struct Trustee {
  enum class Kind { kUser, kGroup };
  static constexpr std::uint32_t kNobodyAtAll = 0xFFFFFFFF;  // the number of no user and no group

  Kind kind = Kind::kUser;
  std::uint32_t id = kNobodyAtAll;
  bool operator==(const Trustee&) const = default;
};

//   AccessList list = AccessList::FromMode(0640);
//   list.Put({Trustee::Kind::kUser, 1}, AccessList::kRead | AccessList::kWrite);
//   list.Mode();  // 0660: the bits of the group now show the mask
class AccessList {
 public:
  // Rights, as bits of one number from 0 to 7.
  static constexpr unsigned kRead = 4;     // a file's bytes, a folder's names
  static constexpr unsigned kWrite = 2;    // change a file's bytes, add and remove names in a folder
  static constexpr unsigned kExecute = 1;  // run a file, enter a folder
  static constexpr unsigned kAllRights = 7;

  static constexpr std::size_t kMaxBytes = 65536;                  // the kernel's bound for an extended attribute
  static constexpr std::size_t kMaxEntries = (kMaxBytes - 4) / 8;  // as many as fit into it

  struct NamedEntry {
    Trustee trustee;
    unsigned rights = 0;  // as written, not bounded by the mask
    bool operator==(const NamedEntry&) const = default;
  };

  // The list of a file that has none of its own: its permission bits, the lowest nine of `mode`.
  static AccessList FromMode(unsigned mode);

  // Reads the value of the extended attribute "system.posix_acl_access". Nothing for a value that is longer than
  // kMaxBytes, of another version, cut short, out of order, or that has an unknown tag, unknown rights, a trustee twice
  // or without a number, not exactly one entry for the owner, the owning group and others, or named entries and no
  // mask.
  static std::optional<AccessList> FromBytes(std::string_view bytes);

  // The value that the kernel takes. Longer than kMaxBytes, and refused by the kernel, beyond kMaxEntries.
  std::string Bytes() const;

  // The permission bits that a file with this list shows, 0 to 0777: where there is a mask it replaces the owning
  // group's rights.
  unsigned Mode() const;

  // The entries of users and groups other than the owners: users first, each kind by number.
  const std::vector<NamedEntry>& NamedEntries() const { return named_; }

  // The number of entries of all kinds.
  std::size_t Size() const { return named_.size() + (mask_ ? 4 : 3); }

  // The rights that the trustee's own entry holds, or nothing when it has none.
  std::optional<unsigned> RightsOf(const Trustee& trustee) const;

  // Gives the trustee an entry with these rights, in place of one that it has.
  void Put(const Trustee& trustee, unsigned rights);

  // Takes the trustee's entry away. False, and nothing is changed, when it has none.
  bool Remove(const Trustee& trustee);

  bool operator==(const AccessList&) const = default;

 private:
  AccessList() = default;

  bool Take(unsigned tag, unsigned rights, std::uint32_t id);
  bool SortNamed();
  void MakeMask();

  unsigned owner_ = 0;
  unsigned owningGroup_ = 0;
  unsigned others_ = 0;
  std::optional<unsigned> mask_;
  std::vector<NamedEntry> named_;  // in order, no trustee twice
};

}  // namespace TesselServer
