// tessel: serves a folder with the control, and shows what the control can do.
//
// Exit status: 0 stopped by SIGINT or SIGTERM, or done; 1 a setting that cannot be used or a start that failed; 2 a
// command line that cannot be understood.

#include <csignal>
#include <exception>
#include <iostream>

#include <TesselServer/Printable.h>

#include "host/Options.h"
#include "host/Program.h"

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;

int Fail(const std::exception& error, const char* hint, int status) {
  std::cerr << "tessel: " << TesselServer::Printable(error.what()) << hint << '\n';
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader of the log that goes away, as `head` does, does not end the server
  try {
    TesselServer::RunProgram(TesselServer::ParseOptions(argc, argv));
    return 0;
  } catch (const TesselServer::UsageError& error) {
    return Fail(error, " (see tessel --help)", kUsage);
  } catch (const std::exception& error) {
    return Fail(error, "", kFailed);
  }
}
