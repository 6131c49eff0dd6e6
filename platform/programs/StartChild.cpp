#include "platform/programs/StartChild.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/world/AllSignalsBlocked.h"

namespace TesselServer {

// The thread sanitizer takes every clone(2) that it sees for a fork: this thread would be the child of one from then
// on, and what it does would be watched no longer. It does not see the call by the C library's other name for it.
#if defined(__SANITIZE_THREAD__)
int CloneUnseen(int (*start)(void*), void* stack, int flags, void* given, ...) __asm__("__clone");
#else
static constexpr auto& CloneUnseen = clone;
#endif

namespace {

// The child makes a dozen system calls; what takes room is the dynamic linker's saving of registers.
constexpr std::size_t kStackBytes = 64 * 1024;

struct ChildStack {
  alignas(16) std::byte bytes[kStackBytes];
};

// What the child works with, made before it is started.
struct ChildPlan {
  const char* file;
  char* const* arguments;
  char* const* environment;
  int nothing;
  int output;
  sigset_t noSignals;
  int error = 0;  // out: what failed; stays 0 when the program has taken over
};

// ---- In the child. It shares the memory of a suspended thread: system calls only, no memory taken, and not a trace in
// the shadow memory of the sanitizers, since none of these functions returns to where it would be wiped off.
#define TESSEL_IN_THE_CHILD __attribute__((no_sanitize("address", "thread")))

// `descriptor`, or its copy when it is one of the standard three, which are about to be replaced.
TESSEL_IN_THE_CHILD int OutOfTheWay(int descriptor) {
  return descriptor > STDERR_FILENO ? descriptor : fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

// Puts a copy of `descriptor` in the place of another one. A system call and no function of the C library: to the
// thread sanitizer these descriptors would be this process's own.
TESSEL_IN_THE_CHILD bool Put(int descriptor, int place) { return syscall(SYS_dup3, descriptor, place, 0) >= 0; }

TESSEL_IN_THE_CHILD bool SetStandardDescriptors(int nothing, int output) {
  nothing = OutOfTheWay(nothing);
  output = OutOfTheWay(output);
  return nothing >= 0 && output >= 0 && Put(nothing, STDIN_FILENO) && Put(output, STDOUT_FILENO) &&
         Put(nothing, STDERR_FILENO);
}

// The number that `digits` spell; -1 for anything else.
TESSEL_IN_THE_CHILD int NumberIn(const char* digits) {
  int number = 0;
  for (; *digits != '\0'; ++digits) {
    if (*digits < '0' || *digits > '9') return -1;
    number = number * 10 + (*digits - '0');
  }
  return number;
}

// For a kernel without close_range(2): closes what /proc lists.
TESSEL_IN_THE_CHILD bool CloseWhatIsListed() {
  const int folder = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return false;
  alignas(dirent64) char entries[2048];
  long size = 0;
  while ((size = syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0) {
    for (long at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
      const int descriptor = NumberIn(entry->d_name);
      if (descriptor > STDERR_FILENO && descriptor != folder) close(descriptor);
      at += entry->d_reclen;
    }
  }
  return size == 0;
}

TESSEL_IN_THE_CHILD bool CloseAllOthers() {
  return syscall(SYS_close_range, STDERR_FILENO + 1U, ~0U, 0U) == 0 || CloseWhatIsListed();
}

// Refusals are of signals that cannot be caught or belong to the C library: those are at their default.
TESSEL_IN_THE_CHILD void SetSignals(const sigset_t& blocked) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
  sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

TESSEL_IN_THE_CHILD int BecomeTheProgram(void* given) {
  auto* plan = static_cast<ChildPlan*>(given);
  if (SetStandardDescriptors(plan->nothing, plan->output) && CloseAllOthers()) {
    SetSignals(plan->noSignals);
    execve(plan->file, plan->arguments, plan->environment);
  }
  plan->error = errno;
  _exit(127);
}

#undef TESSEL_IN_THE_CHILD

// ---- In this process.

// The words as execve(2) takes them; it does not write to them.
std::vector<char*> Pointers(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

void WaitForTheEndOf(pid_t child) {
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

StartedChild StartChild(const ProgramStart& start, const std::vector<std::string>& environment, int nothing,
                        int output) {
  if (start.file.find('\0') != std::string::npos) return {-1, ENOENT};
  std::vector<char*> arguments = Pointers(start.arguments);
  arguments.insert(arguments.begin(), const_cast<char*>(start.file.c_str()));
  const std::vector<char*> lines = Pointers(environment);
  const auto stack = std::make_unique_for_overwrite<ChildStack>();

  ChildPlan plan{start.file.c_str(), arguments.data(), lines.data(), nothing, output, {}};
  sigemptyset(&plan.noSignals);
  const AllSignalsBlocked quiet;
  const pid_t child =
      CloneUnseen(BecomeTheProgram, stack->bytes + kStackBytes, CLONE_VM | CLONE_VFORK | SIGCHLD, &plan);
  if (child < 0) return {-1, errno};
  if (plan.error == 0) return {child, 0};
  WaitForTheEndOf(child);
  return {-1, plan.error};
}

}  // namespace TesselServer
