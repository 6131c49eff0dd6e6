// The users and groups of this machine: their numbers and their names.
//
// Thread:    any, one at a time for each object.
// Ownership: keeps the memory of one record; a returned name lives until the next call.
// Errors:    the system's error numbers, as std::errc; std::errc() is success.
//
// Each call asks the system's databases anew (nsswitch.conf(5)). Where one of them is asked over a network, the call
// takes as long as that one does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/access/AccessList.h"

namespace TesselServer {

class Accounts {
 public:
  // A record that needs more memory is not read (result_out_of_range). A group's holds the names of all its members.
  static constexpr std::size_t kMaxRecordBytes = 1024 * 1024;

  // Looks for the user or group called `name`, which must hold no NUL. Success with no number in `id` when there is
  // none; any error, and no number, when the databases cannot be queried, so that an existing user or group is never
  // taken for missing.
  [[nodiscard]] std::errc Find(Trustee::Kind kind, const std::string& name, std::optional<std::uint32_t>& id);

  // The name of a user or group. Null when it has none or the databases cannot be asked.
  const char* Name(const Trustee& trustee);

 private:
  std::vector<char> record_;
};

}  // namespace TesselServer
