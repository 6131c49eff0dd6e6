// Whether a link in a folder is listed: only where a request for it would be served what it leads to.
//
// Thread:    the loop's thread.
// Ownership: shares the root and the secret files as they were when the listing began; the turns outlive it.
// Errors:    as RootFolder::FindInTurns.
#pragma once

#include <memory>
#include <string>

#include "http/SecretFiles.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

struct LinkRule {
  std::shared_ptr<const RootFolder> root;
  std::shared_ptr<const SecretFiles> secrets;
  std::string folder;  // below the root
  Turns* turns;
};

// Whether the link `name`, which leads to `target`, is listed. `rule` outlives the task.
Task<bool> LinkIsServed(const LinkRule& rule, std::string name, FileIdentity target);

}  // namespace TesselServer
