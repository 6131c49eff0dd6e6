// Which files hold passwords. They are never sent, included in a page or run.
//
// Thread:    any; a value.
// Errors:    none. A file for which this cannot be determined counts as one of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "http/Enumerations.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Turns;

class SecretFiles {
 public:
  // `folderFile` is the name of the password file of a folder, `sourceFile` the path of the control's own, "" for none.
  SecretFiles(std::string folderFile, e_AuthSource source, std::string sourceFile)
      : folderFile_(std::move(folderFile)), source_(source), sourceFile_(std::move(sourceFile)) {}

  // Whether these are what the constructor would make of the same values.
  bool AreOf(std::string_view folderFile, e_AuthSource source, std::string_view sourceFile) const {
    return source_ == source && folderFile_ == folderFile && sourceFile_ == sourceFile;
  }

  // Whether `entry` is a folder's password file, by its own name or that of a link to it, in any case, or the control's
  // by any name. At once: nothing where the names in a folder would have to be read for it. And in turns; the object
  // and `entry` stay good until the task is done.
  std::optional<bool> ContainsAtOnce(const FoundEntry& entry) const;
  Task<bool> ContainsInTurns(const FoundEntry& entry, Turns* turns) const;

 private:
  std::optional<bool> ContainsByName(const FoundEntry& entry) const;

  std::string folderFile_;
  e_AuthSource source_;
  std::string sourceFile_;
};

}  // namespace TesselServer
