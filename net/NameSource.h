// What is asked for the names of clients.
//
// Thread:    the host's thread only.
// Ownership: outlives those that it is given to, and the tasks that wait for it.
// Errors:    none; a client without a name has the one that HostLookUp gives it.
#pragma once

#include <string>
#include <string_view>

#include "platform/tasks/Task.h"

namespace TesselServer {

class NameSource {
 public:
  virtual ~NameSource() = default;

  // The name of the host at the dotted `address`; the loop goes on meanwhile.
  virtual Task<std::string> NameOf(std::string address) = 0;

  // The same in the call, which may take up to a second where the name is not remembered.
  virtual std::string NameNow(std::string_view address) = 0;
};

}  // namespace TesselServer
