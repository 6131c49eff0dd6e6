// A file, folder or other object of the file system whose access control list is read and written.
//
// Thread:    any, one at a time for each object.
// Ownership: holds the object by a descriptor of its own, which gives no access to its content.
// Errors:    the system's error numbers, as std::errc; std::errc() is success.
//
// What is read and what is written belong to one and the same object, also when its name is given to another one in
// between. A change of the list by another process in between is lost: the system offers no way to detect it.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "platform/access/AccessList.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

//   AccessObject object("/srv/www/docs");
//   AccessList list = AccessList::FromMode(0);
//   if (object.Read(list) != std::errc()) return;
//   list.Put(trustee, AccessList::kRead);
//   const std::errc error = object.Write(list);
class AccessObject {
 public:
  // Finds the object by the rules of OpenPath: "\" and "/" both separate, the spelling given is tried first, then other
  // cases; links are followed. Whether it was found is returned by Read and Write. Nothing about it is opened for
  // reading, so neither a file without permissions nor a FIFO is an obstacle. Where /proc is not mounted, or no
  // descriptor is left, nothing can be found.
  explicit AccessObject(std::string_view path);

  // Reads the access list, or makes one of the permission bits where the object has none of its own. Fails with
  // what finding the object failed with (invalid_argument for a path with a NUL), operation_not_supported where the
  // file system keeps no such lists, and bad_message for a value that is no list; `list` is then unchanged.
  [[nodiscard]] std::errc Read(AccessList& list) const;

  // Writes the access list in place of the present one. A list without named entries and mask becomes the
  // permission bits alone. The list that a folder hands down to new entries is left alone, and so are the owner, the
  // group and the special bits, but for the set-group bit that the kernel clears when the caller is not in the group.
  // Fails as Read does, with operation_not_permitted for all but the owner and root, and with argument_list_too_long
  // or no_space_on_device for more entries than the kernel or the file system keeps; nothing is changed then.
  [[nodiscard]] std::errc Write(const AccessList& list) const;

 private:
  std::string SystemName() const;

  UniqueDescriptor descriptor_;  // a negative errno(3) value when there is none
};

}  // namespace TesselServer
