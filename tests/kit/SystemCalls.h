// Which system calls a piece of a test makes.
#pragma once

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <vector>

namespace TesselServer::Kit {

// The system calls of `work`, in a child of its own that is traced, but for those that get memory; fstat(2) is
// SYS_newfstatat. Nothing where no process may be traced.
inline std::optional<std::vector<long>> SystemCallsOf(const std::function<void()>& work) {
  constexpr long kMark = SYS_getppid;  // called before and after the work
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    syscall(kMark);
    work();
    syscall(kMark);
    _exit(0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return std::nullopt;
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  std::vector<long> calls;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status)) {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) calls.push_back(static_cast<long>(info.entry.nr));
  }
  const auto first = std::find(calls.begin(), calls.end(), kMark);
  const auto last = std::find(calls.rbegin(), calls.rend(), kMark).base();
  if (first == calls.end() || last - first < 2) return std::nullopt;
  std::vector<long> made;
  std::copy_if(first + 1, last - 1, std::back_inserter(made), [](long call) {
    const long forMemory[] = {SYS_brk, SYS_mmap, SYS_munmap, SYS_mprotect, SYS_madvise};
    return std::find(std::begin(forMemory), std::end(forMemory), call) == std::end(forMemory);
  });
  std::replace(made.begin(), made.end(), static_cast<long>(SYS_fstat), static_cast<long>(SYS_newfstatat));
  return made;
}

}  // namespace TesselServer::Kit
