// Runs a piece of a test in a child process of its own, so that it may give up its user, its limits or its system
// calls.
#pragma once

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace TesselServer::Kit {

// The exit status of a child that ran `body` and returned its value (0 to 255), or 1000 and the signal that ended it.
inline int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

constexpr int kCannotDropUser = 200;

// As InChild, as the user 65534 when this process is root, to whom every file is readable. kCannotDropUser when that
// user cannot be had.
inline int InUnprivilegedChild(const std::function<int()>& body) {
  return InChild([&body] {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)) {
      return kCannotDropUser;
    }
    return body();
  });
}

}  // namespace TesselServer::Kit
