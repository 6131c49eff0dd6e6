// Programs for children of a test to run, a gate that holds them up, and what is to be seen of them from outside.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/programs/ProgramRunner.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

// Writes a program for /bin/sh, which finds its own folder in $here. Returns its path.
inline std::string WriteProgram(const TemporaryTree& tree, std::string_view name, std::string_view script) {
  const std::string path = tree.Write(name, "#!/bin/sh\nhere=" + tree.Text() + "\n" + std::string(script) + "\n");
  std::filesystem::permissions(path, std::filesystem::perms(0755));
  return path;
}

// A run whose result is the value of the task.
inline Task<ProgramResult> Run(ProgramRunner& runner, ProgramStart start) {
  ProgramResult result;
  auto running = runner.Run(std::move(start), result);
  if (running) co_await running;
  co_return result;
}

// A named pipe "gate" in a tree: a program that reads a line of it waits until the test opens it, or dies.
class Gate {
 public:
  explicit Gate(const TemporaryTree& tree) {
    const std::string path = tree.Text() + "/gate";
    if (mkfifo(path.c_str(), 0600) == 0) descriptor_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor_ < 0) throw std::runtime_error("no gate");
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() { close(descriptor_); }

  // Lets so many of those who wait, or will, pass.
  void Open(std::size_t count = 1) const {
    const std::string lines(count, '\n');
    if (write(descriptor_, lines.data(), count) != static_cast<ssize_t>(count))
      throw std::runtime_error("gate is shut");
  }
  // Takes back what has let nobody pass.
  void Clear() const {
    char lines[1024];
    for (pollfd gate{descriptor_, POLLIN, 0}; poll(&gate, 1, 0) > 0;) {
      if (read(descriptor_, lines, sizeof lines) <= 0) throw std::runtime_error("no gate");
    }
  }

 private:
  int descriptor_ = -1;
};

// Whether this process has no child, dead or alive. Collects none.
inline bool HasNoChild() {
  siginfo_t state{};
  return waitid(P_ALL, 0, &state, WEXITED | WNOHANG | WNOWAIT) < 0 && errno == ECHILD;
}

// Tries every few milliseconds; False when `condition` has not come true in ten seconds.
inline bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace TesselServer::Kit
