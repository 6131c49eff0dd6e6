// Who may do what with a file or folder: reads and changes its access control list (acl(5)) by names of users and
// groups, and names access masks in the words of file sharing.
//
// Thread:    the host's thread only; name look-ups may ask a network (nsswitch.conf(5)).
// Ownership: values; views given are read during the call.
// Errors:    a call that fails returns False and keeps the error's number and text. Nothing is raised.
//
// A list is read, changed and written back. Another process's change to the same list in between is lost: the system
// offers no way to exclude or to detect it.
//
// Masks and rights
// ----------------
// A list on this system knows three rights, read, write and execute (for a folder: list, add and remove, enter). A mask
// becomes rights in this way:
//
//   0x10000000  rwx    generic all
//   0x1F01FF    rwx    all file access
//   0x1301BF    rwx    change
//   0x1201BF    rw-    add and read
//   0x1201B6    -w-    add
//   0x1200A9    r-x    read
//   any other   its bits: 0x1 and 0x80000000 (generic read) read; 0x2, 0x4 and 0x40000000 (generic write) write;
//               0x20 and 0x20000000 (generic execute) execute; 0x10000000 all three; the others have no meaning here
//
// The two "add" masks make no file runnable; a folder needs the right to enter besides, which a further grant of
// 0x1200A9 or 0x20 adds. Deleting is a right of the folder, changing the list one of the owner alone: masks that
// name them cannot give them. Read back, rights become the mask that gives them:
//
//   ---  0x1F01FF in deny mode    r--  0x120089    -w-  0x1201B6    --x  0x1200A0
//   rwx  0x1301BF                 r-x  0x1200A9    rw-  0x1201BF    -wx  0x1301B6
//
// Trustees
// --------
// Digits alone are the number of a user, "@" and digits the number of a group, whether or not it has a name. "@" and a
// name is the group of that name. Any other text is the user of that name or, only where there is none, the group.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

// One entry of a list.
struct AccessEntry {
  std::uint32_t permissions = 0;  // a mask
  std::int32_t mode = 0;          // cls_NTSecurity::kGrant or kDeny
  std::int32_t inheritance = 0;   // always 0, none
  std::string trusteeName;        // as GrantAccess takes it
  bool operator==(const AccessEntry&) const = default;
};

//   cls_NTSecurity security;
//   if (!security.GrantAccess("/srv/www/docs", cls_NTSecurity::kFileObject, "daemon", 0x1200A9,
//   cls_NTSecurity::kGrant))
//     Show(security.LastErrorText());  // "Operation not permitted", for one
class cls_NTSecurity {
 public:
  // Access modes.
  static constexpr std::int32_t kGrant = 1;   // adds rights to those of the trustee's entry
  static constexpr std::int32_t kSet = 2;     // puts rights in place of those of the trustee's entry
  static constexpr std::int32_t kDeny = 3;    // gives an entry without rights
  static constexpr std::int32_t kRevoke = 4;  // takes the entry away

  // Object types. Files and folders are the only one there is here.
  static constexpr std::int32_t kFileObject = 1;

  // The word for a mask: "Full Control" (0x10000000), "All" (0x1F01FF), "Add " (0x1201B6), "Add & Read" (0x1201BF),
  // "Change" (0x1301BF), "Read" (0x1200A9). In deny mode the first two are "None". "" for any other mask.
  static std::string_view PermissionName(std::int32_t AccessMode, std::uint32_t AccessMask);

  // Changes the entry of one user or group in the list of the object. In `ObjectName` "\" and "/" both separate, the
  // spelling given is tried before other cases, and links are followed. False at once for an empty name.
  //
  // The mask of the list becomes the union of what the owning group and all named entries hold, so rights that a
  // narrower mask masked out become effective. The entries of the owner, the owning group and others stay as they are;
  // the list that a folder hands down to new files is left alone. An object without a list gets one made of its
  // permission bits; with its last named entry a list becomes permission bits again.
  //
  // A user's own entry replaces what the object gives to groups and to others: an entry with fewer rights
  // than those takes rights away, and one for the owner changes nothing for the owner.
  //
  // True as well when an entry that is not there is revoked: nothing is written then. Fails, and changes nothing, with
  //   2   nothing has that name                       1   not the owner, nor root
  //   22  another object type or mode; a trustee who does not exist; a grant of a mask that gives no right;
  //       a NUL in a name
  //   95  the file system keeps no lists              74  what it keeps is no list
  //   7, 28  more entries than fit
  // and with any other error of the system.
  bool GrantAccess(std::string_view ObjectName, std::int32_t ObjectType, std::string_view TrusteeName,
                   std::uint32_t AccessPermissions, std::int32_t AccessMode);

  // Reads the entries of named users, then of named groups, each by number; there are none in a list that is
  // permission bits alone. Permissions are those of the entry itself, also where the mask of the list masks some out.
  // Trustees come with a text that GrantAccess takes for the same one: the name; "@" and the name of a group when the
  // name alone names another trustee; the number when there is no name. Fails as GrantAccess does, and leaves `Entries`
  // empty.
  bool GetAccessEntries(std::string_view ObjectName, std::int32_t ObjectType, std::vector<AccessEntry>& Entries);

  // The number of the last error, an errno(3) value; 0 when no call has failed yet. A call that succeeds, or is refused
  // for an empty name, leaves it.
  std::int32_t LastErrorCode() const { return lastErrorCode_; }

  // The system's text for it, at most 255 bytes; "" when no call has failed yet.
  const std::string& LastErrorText() const { return lastErrorText_; }

 private:
  static std::string PointerToString(const char* address);
  void RecordSecurityError(std::int32_t code);

  std::int32_t lastErrorCode_ = 0;
  std::string lastErrorText_;
};

}  // namespace TesselServer
