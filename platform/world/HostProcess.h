// What a program may do to itself before it hosts the control. The control never does any of it: limits belong to the
// process, and the process belongs to its program.
//
// Thread:    any, before the control is started.
// Ownership: none.
// Errors:    none; what the system refuses stays as it was.
#pragma once

#include <cstdint>

namespace TesselServer {

// Raises the soft limit of open descriptors (RLIMIT_NOFILE, setrlimit(2)) of this process to its hard limit and returns
// the soft limit that then holds. A server of many connections needs one descriptor a connection, and the usual soft
// limit is 1024. Programs that call select(2) must not do this.
//
//   const std::int64_t most = TesselServer::RaiseDescriptorLimit();  // 524288, for instance
std::int64_t RaiseDescriptorLimit();

}  // namespace TesselServer
