// The least that a server of one request a connection must do, and so the floor under all others: wait, take what is
// there, read the request without looking at it, send an answer from memory, close.
//
//   comparison_floor --body-bytes N   answers with so many bytes, those of the file f<N>.bin of the site
//   comparison_floor --missing        answers 404 with a header alone
//   --watch                           times every request, from before its accept to behind its close; each SIGUSR1
//                                     prints the longest since the last one: {"request_cpu_ms": N}, processor time
//
// Says {"port": N} on standard output and serves until SIGTERM ends it.
#include <errno.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <map>
#include <string>

#include "benchmarks/comparison/CommandLine.h"
#include "benchmarks/comparison/Moment.h"
#include "benchmarks/comparison/Sockets.h"

namespace Comparison {
namespace {

constexpr int kAcceptsPerWake = 64;
constexpr int kReportMilliseconds = 100;

volatile sig_atomic_t reportWanted = 0;

extern "C" void WantReport(int) { reportWanted = 1; }

std::string AnswerText(const CommandLine& line) {
  const std::string server = "Server: floor\r\nDate: Sat, 01 Jan 2000 00:00:00 GMT\r\n";
  if (line.Has("missing")) return "HTTP/1.0 404 Not Found\r\n" + server + "\r\n";
  const auto bytes = line.Number("body-bytes", 0);
  std::string text = "HTTP/1.0 200 OK\r\n" + server + "Content-Type: application/octet-stream\r\n";
  text += "Content-Length: " + std::to_string(bytes) + "\r\n\r\n";
  for (std::int64_t i = 0; i < bytes; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

class Floor {
 public:
  Floor(int listener, std::string answer, bool watched)
      : listener_(listener), answer_(std::move(answer)), epoll_(epoll_create1(EPOLL_CLOEXEC)), watched_(watched) {
    Watch(listener_, EPOLLIN);
    if (watched) signal(SIGUSR1, WantReport);
  }

  [[noreturn]] void Run() {
    for (;;) {
      std::array<epoll_event, 256> events;
      // a report may be wanted just before the wait
      const int wait = watched_ ? kReportMilliseconds : -1;
      const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), wait);
      for (int i = 0; i < count; ++i) Serve(events[static_cast<std::size_t>(i)].data.fd);
      if (reportWanted != 0) Report();
    }
  }

 private:
  void Watch(int socket, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = socket;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) epoll_ctl(epoll_, EPOLL_CTL_MOD, socket, &event);
  }

  void Serve(int socket) {
    if (socket == listener_) return Accept();
    unsent_.contains(socket) ? Send(socket, unsent_[socket]) : Receive(socket);
  }

  void Accept() {
    for (int i = 0; i < kAcceptsPerWake; ++i) {
      const double begin = watched_ ? Moment::Milliseconds(CLOCK_THREAD_CPUTIME_ID) : 0;
      const int socket = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (socket < 0) return;
      Receive(socket);
      if (watched_) longest_ = std::max(longest_, Moment::Milliseconds(CLOCK_THREAD_CPUTIME_ID) - begin);
    }
  }

  void Report() {
    reportWanted = 0;
    std::cout << "{\"request_cpu_ms\": " << longest_ << "}" << std::endl;
    longest_ = 0;
  }

  void Receive(int socket) {
    std::array<char, 4096> buffer;
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), 0);
    if (count > 0) return Send(socket, 0);
    if (count < 0 && errno == EAGAIN) return Watch(socket, EPOLLIN);
    close(socket);
  }

  void Send(int socket, std::size_t done) {
    const ssize_t sent = send(socket, answer_.data() + done, answer_.size() - done, MSG_NOSIGNAL);
    if (sent > 0) done += static_cast<std::size_t>(sent);
    if (done < answer_.size() && (sent > 0 || errno == EAGAIN)) {
      unsent_[socket] = done;
      return Watch(socket, EPOLLOUT);
    }
    unsent_.erase(socket);
    close(socket);
  }

  int listener_;
  std::string answer_;
  int epoll_;
  bool watched_;
  double longest_ = 0;                 // of all requests that were answered at once, milliseconds of processor time
  std::map<int, std::size_t> unsent_;  // of sockets that did not take all at once: how much they took
};

}  // namespace
}  // namespace Comparison

int main(int argc, char** argv) {
  try {
    const Comparison::CommandLine line(argc, argv);
    Comparison::RaiseDescriptorLimit();
    const int listener = Comparison::Listen(static_cast<std::uint16_t>(line.Number("port", 0)));
    std::cout << "{\"port\": " << Comparison::PortOf(listener) << "}" << std::endl;
    Comparison::Floor(listener, Comparison::AnswerText(line), line.Has("watch")).Run();
  } catch (const std::exception& error) {
    std::cerr << "comparison_floor: " << error.what() << '\n';
    return 1;
  }
}
