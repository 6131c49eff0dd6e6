// A host of civetweb that serves files and folders as the comparison needs it, with its own pool of threads.
//
//   comparison_civetweb --root FOLDER --port N [--log FILE]
//
// Serves until SIGTERM. The log is civetweb's own.
#include <civetweb.h>
#include <signal.h>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/comparison/CommandLine.h"
#include "benchmarks/comparison/Sockets.h"

namespace Comparison {
namespace {

void Run(const CommandLine& line) {
  RaiseDescriptorLimit();
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const std::string root = line.Text("root", ".");
  const std::string port = "127.0.0.1:" + line.Text("port", "0");
  const std::string log = line.Text("log");
  std::vector<const char*> settings = {
      "document_root", root.c_str(), "listening_ports", port.c_str(), "enable_directory_listing", "yes"};
  if (!log.empty()) settings.insert(settings.end(), {"access_log_file", log.c_str()});
  settings.push_back(nullptr);
  mg_init_library(0);
  mg_context* context = mg_start(nullptr, nullptr, settings.data());
  if (context == nullptr) throw std::runtime_error("cannot start");
  int which = 0;
  sigwait(&signals, &which);
  mg_stop(context);
  mg_exit_library();
}

}  // namespace
}  // namespace Comparison

int main(int argc, char** argv) {
  try {
    Comparison::Run(Comparison::CommandLine(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "comparison_civetweb: " << error.what() << '\n';
    return 1;
  }
}
