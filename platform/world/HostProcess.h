// What a program that hosts the control may do with its own process. The control never does any of it: limits, outputs
// and threads belong to the process, and the process belongs to its program.
//
// Thread:    any.
// Ownership: none.
// Errors:    as each function says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace TesselServer {

// Before the control is started: raises the soft limit of open descriptors (RLIMIT_NOFILE, setrlimit(2)) of this
// process to its hard limit and returns the soft limit that then holds. A server of many connections needs one
// descriptor a connection, and the usual soft limit is 1024. Programs that call select(2) must not do this.
//
//   const std::int64_t most = TesselServer::RaiseDescriptorLimit();  // 524288, for instance
std::int64_t RaiseDescriptorLimit();

enum class StandardStream { Output, Error };

// Writes `bytes` to this process's standard output or standard error (write(2)), waiting for as long as its reader
// takes, also where that output is non-blocking. Returns how many bytes were written: all, or fewer when
// the output is closed, full or broken. A reader that has gone raises SIGPIPE in this thread, as write(2) does, unless
// that is ignored or blocked.
std::size_t WriteWhole(StandardStream stream, std::string_view bytes);

// Runs `work` on a thread of its own, to which no signal is delivered and which nothing waits for: the process may end
// while it is at work, so `work` owns what it uses. Raises std::system_error when no thread can be had.
void RunDetached(std::function<void()> work);

// For a process that ends now: the last loop to be destroyed does not wait for what the library's threads are at work
// on (a look-up of a name, a disk), which is two seconds at most otherwise.
void WaitForNoThread();

}  // namespace TesselServer
