// A client program as a child process of the test, started without a shell.
//
// The server under test lives in the test's own process, so whoever waits for a client runs the loop meanwhile.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

// The whole content of a file, "" when there is none.
inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class ClientProcess {
 public:
  // Starts the program arguments[0], looked up in PATH, with its output going to files and nothing to read.
  explicit ClientProcess(std::vector<std::string> arguments) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile_.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorsFile_.c_str(), O_WRONLY | O_CREAT, 0600);
    const int error = posix_spawnp(&child_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error(arguments[0] + ": " + std::strerror(error));
  }
  ClientProcess(const ClientProcess&) = delete;
  ClientProcess& operator=(const ClientProcess&) = delete;
  ~ClientProcess() { Kill(); }

  // Whether it has ended by now.
  bool HasEnded() {
    if (child_ > 0 && waitpid(child_, &status_, WNOHANG) == child_) child_ = 0;
    return child_ == 0;
  }

  // Ends it if it still runs.
  void Kill() {
    if (HasEnded()) return;
    kill(child_, SIGKILL);
    waitpid(child_, &status_, 0);
    child_ = 0;
  }

  // Once it has ended: its exit status, or 1000 and the signal that ended it.
  int ExitStatus() const { return WIFEXITED(status_) ? WEXITSTATUS(status_) : 1000 + WTERMSIG(status_); }
  std::string Output() const { return ReadFile(outputFile_); }
  std::string Errors() const { return ReadFile(errorsFile_); }

 private:
  TemporaryTree tree_;
  std::string outputFile_ = (tree_.Path() / "output").string();
  std::string errorsFile_ = (tree_.Path() / "errors").string();
  pid_t child_ = 0;
  int status_ = 0;
};

using Clients = std::vector<std::unique_ptr<ClientProcess>>;

inline bool HaveEnded(const Clients& clients) {
  return std::all_of(clients.begin(), clients.end(), [](const auto& client) { return client->HasEnded(); });
}

// Calls `turn`, which runs the loop for a moment, until every client has ended or the time is up. Those that still run
// are then ended. True when none had to be.
inline bool RunClients(const Clients& clients, std::chrono::seconds limit, const std::function<void()>& turn) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!HaveEnded(clients)) {
    if (std::chrono::steady_clock::now() > end) {
      for (const auto& client : clients) client->Kill();
      return false;
    }
    turn();
  }
  return true;
}

inline bool RunClients(EventLoop& loop, const Clients& clients, std::chrono::seconds limit) {
  return RunClients(clients, limit, [&loop] { loop.RunOnce(5); });
}

struct ClientResult {
  int status = -1;  // as ExitStatus; -1 when it took too long
  std::string output;
  std::string errors;
};

// Runs one client to its end while the loop serves it.
inline ClientResult RunClient(EventLoop& loop, std::vector<std::string> arguments,
                              std::chrono::seconds limit = std::chrono::seconds(20)) {
  Clients clients;
  clients.push_back(std::make_unique<ClientProcess>(std::move(arguments)));
  const bool ended = RunClients(loop, clients, limit);
  return {ended ? clients[0]->ExitStatus() : -1, clients[0]->Output(), clients[0]->Errors()};
}

}  // namespace TesselServer::Kit
