// A host of libmicrohttpd that serves files as the comparison needs it: one thread of its own with epoll, the fastest
// of its modes with one thread.
//
//   comparison_microhttpd --root FOLDER --port N [--log FILE]
//
// Serves until SIGTERM. The log is written as the C library buffers it, a line like those of the others for each
// answer.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "benchmarks/comparison/CommandLine.h"
#include "benchmarks/comparison/Sockets.h"

namespace Comparison {
namespace {

constexpr unsigned kConnections = 10000;
constexpr unsigned kBacklog = 1024;

struct Site {
  std::string root;
  std::FILE* log = nullptr;  // none without --log
};

std::string ClientAddress(MHD_Connection* connection) {
  const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  std::array<char, INET_ADDRSTRLEN> text{};
  const auto* address = reinterpret_cast<const sockaddr_in*>(info->client_addr);
  inet_ntop(AF_INET, &address->sin_addr, text.data(), text.size());
  return text.data();
}

// The time as logs have it; made once a second.
const char* LogTime() {
  static std::array<char, 40> text{};
  static time_t made = 0;
  const time_t now = time(nullptr);
  if (now != made) {
    tm parts{};
    localtime_r(&now, &parts);
    strftime(text.data(), text.size(), "%d/%b/%Y:%H:%M:%S %z", &parts);
    made = now;
  }
  return text.data();
}

void WriteLog(const Site& site, MHD_Connection* connection, const char* url, const char* method, unsigned status,
              std::uint64_t bytes) {
  if (site.log == nullptr) return;
  std::fprintf(site.log, "%s - - [%s] \"%s %s HTTP/1.0\" %u %llu\n", ClientAddress(connection).c_str(), LogTime(),
               method, url, status, static_cast<unsigned long long>(bytes));
}

MHD_Response* FileResponse(const std::string& path, std::uint64_t& bytes) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat facts {};
  if (file < 0) return nullptr;
  if (fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    close(file);
    return nullptr;
  }
  bytes = static_cast<std::uint64_t>(facts.st_size);
  return MHD_create_response_from_fd64(bytes, file);
}

MHD_Response* MissingResponse(std::uint64_t& bytes) {
  static std::string text = "<html><title>404</title>Not Found</html>\n";
  bytes = text.size();
  return MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_PERSISTENT);
}

MHD_Result Answer(void* closure, MHD_Connection* connection, const char* url, const char* method, const char*,
                  const char*, std::size_t*, void**) {
  const auto& site = *static_cast<const Site*>(closure);
  const std::string path = url;
  std::uint64_t bytes = 0;
  MHD_Response* response = path.find("/..") == std::string::npos ? FileResponse(site.root + path, bytes) : nullptr;
  const unsigned status = response != nullptr ? MHD_HTTP_OK : MHD_HTTP_NOT_FOUND;
  if (response == nullptr) response = MissingResponse(bytes);
  MHD_add_response_header(response, "Content-Type", "application/octet-stream");
  const MHD_Result queued = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  WriteLog(site, connection, url, method, status, bytes);
  return queued;
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

void WaitForSignal(const sigset_t& signals) {
  int which = 0;
  sigwait(&signals, &which);
}

void Run(const CommandLine& line) {
  RaiseDescriptorLimit();
  Site site{line.Text("root", "."), nullptr};
  if (line.Has("log")) site.log = std::fopen(line.Text("log").c_str(), "ae");
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  const sockaddr_in address = Loopback(static_cast<std::uint16_t>(line.Number("port", 0)));
  MHD_Daemon* daemon =
      MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_TURBO, 0, nullptr, nullptr, &Answer, &site,
                       MHD_OPTION_SOCK_ADDR, reinterpret_cast<const sockaddr*>(&address), MHD_OPTION_CONNECTION_LIMIT,
                       kConnections, MHD_OPTION_LISTEN_BACKLOG_SIZE, kBacklog, MHD_OPTION_END);
  if (daemon == nullptr) throw std::runtime_error("cannot start");
  WaitForSignal(signals);
  MHD_stop_daemon(daemon);
  if (site.log != nullptr) std::fclose(site.log);
}

}  // namespace
}  // namespace Comparison

int main(int argc, char** argv) {
  try {
    Comparison::Run(Comparison::CommandLine(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << "comparison_microhttpd: " << error.what() << '\n';
    return 1;
  }
}
