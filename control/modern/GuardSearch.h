// Which password file guards what a request asks for.
//
// Thread:    the host's thread.
// Ownership: values. A target that a task is about outlives it.
// Errors:    the socket errors 10024 and 10055 where the process has run out of descriptors or memory.
#pragma once

#include <memory>
#include <string>

#include "http/Enumerations.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class FoldersWithout;
class Turns;

// What the settings say of password files.
struct GuardSettings {
  e_AuthSource source = e_AuthSource::GolbalFile;
  std::string siteFile;               // for GolbalFile: the path of the file, "" for none
  std::string folderFile;             // for DirectoryFile: its name in a folder
  FoldersWithout* without = nullptr;  // which folders have none of that name, as far as it is known
};

// What is asked for.
struct GuardedPlace {
  const FoundEntry& target;                // what was found there, if anything
  std::string path;                        // of the request, decoded, without dot segments
  std::shared_ptr<const RootFolder> root;  // that the target was found in
  std::shared_ptr<const RootFolder> site;  // the document root
};

struct PasswordGuard {
  enum class State {
    kNone,    // the place is open to every client
    kFile,    // `file` is open
    kClosed,  // no client may have it: the file is there and cannot be read, or that cannot be determined
  };
  State state = State::kNone;
  OpenFile file;
  std::string name;  // what a report calls it
};

// Finds it. For GolbalFile it is the one file for everything. For DirectoryFile it is the one in the folder in which
// the target really lies, whatever links led to it, or in the nearest folder above, up to the root; where there is no
// target that is open, it begins with the last folder that the path leads to. Every other source admits no client.
Task<PasswordGuard> FindGuard(const GuardedPlace& place, const GuardSettings& settings, Turns* turns);

}  // namespace TesselServer
