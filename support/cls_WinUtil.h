// Questions about files and the system that the control and the request machinery ask.
//
// Thread:    the host's thread only.
// Ownership: keeps nothing between calls.
// Errors:    none; what cannot be found out is false.
#pragma once

#include <string>
#include <string_view>

#include "support/Dates.h"

namespace TesselServer {

class cls_WinUtil {
 public:
  // True when a regular file exists at `path`, absolute or below the working folder, whether this process may read it
  // or not. A folder is none, nor is a path that ends in a separator or is blank. There are no wildcards. A file whose
  // hidden or system attribute is set is not seen (RootFolder::Find has the rules).
  bool FileExists(std::string_view path) const;

  // True when a folder exists at `path`, hidden or not.
  // kept: or a regular file. A caller that needs a folder checks the kind of the opened entry.
  bool DirectoryExists(std::string_view path) const;

  // The time from `from` to `to`, in whole seconds, as "dd:hh:mm:ss", each with at least two digits.
  // kept: the parts are split off as fractions of a day and only the seconds are rounded, so that a full minute may
  // show as ":60" in the minute before it.
  //
  //   UpTimeText(start, start + 1.5);  // "01:12:00:00"
  std::string UpTimeText(Date from, Date to) const;

  // The number of the platform's family: always "2", the family with file permissions.
  std::string PlatformIdText() const;
};

}  // namespace TesselServer
