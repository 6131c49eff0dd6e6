// A name server for a child process (tests/kit/Child.h), which answers or keeps silent.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <nss.h>
#include <resolv.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <functional>
#include <string>
#include <string_view>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer::Kit {

// This process asks a socket on the loopback for names, and nothing else. It is never undone.
class NameServer {
 public:
  static constexpr std::uint16_t kDomainPort = 53;

  // On a free port, which the resolver of this thread is told directly; over TCP it accepts and never says a word.
  NameServer() : NameServer(0) {
    isReady_ = isReady_ && res_init() == 0;
    _res.nscount = 2;
    _res.nsaddr_list[0] = _res.nsaddr_list[1] = address_;
    _res.retrans = 7;
    _res.retry = 3;
    _res.ndots = 1;
  }

  // On `port`, where a resolv.conf(5) says that it is; 0 for one that is free for both UDP and TCP.
  explicit NameServer(std::uint16_t port) {
    constexpr int kTries = 50;
    for (int i = 0; i < kTries && !isReady_; ++i) isReady_ = Open(port);
    isReady_ = isReady_ && __nss_configure_lookup("hosts", "dns") == 0;
  }

  bool IsReady() const { return isReady_; }

  // Answers one question for the name of an address with `label`.example; false when none comes.
  bool AnswerWithName(const std::string& label) const {
    const std::string name = static_cast<char>(label.size()) + label + std::string("\7example\0", 9);
    return !Answer([&](const std::string&) { return Record('\x0C', name); }).empty();
  }

  // Answers one question with nothing but the word that the answer is too long for a packet; false when none comes.
  bool AnswerTruncated() const {
    isTruncating_ = true;
    const bool asked = !Answer([](const std::string&) { return std::string(); }).empty();
    isTruncating_ = false;
    return asked;
  }

  // Whether a client has connected over TCP.
  bool WasAskedOverTcp() const { return UniqueDescriptor(accept(listener_.Get(), nullptr, nullptr)).IsOpen(); }

  // Answers one question for the address of a name: 192.0.2.7 when it is `name`, else that there is no such name. The
  // name asked for, "" when no question comes.
  std::string AnswerWhetherItIs(const std::string& name) const {
    return Answer([&](const std::string& asked) {
      return asked == name ? Record('\1', std::string_view("\xC0\0\2\7", 4)) : std::string();
    });
  }

  // How many questions came so far.
  int CountQuestions() const {
    std::array<char, 512> packet{};
    int count = 0;
    while (recv(socket_.Get(), packet.data(), packet.size(), MSG_DONTWAIT) > 0) ++count;
    return count;
  }

 private:
  bool Open(std::uint16_t port) {
    socket_ = UniqueDescriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    listener_ = UniqueDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    address_.sin_family = AF_INET;
    address_.sin_port = htons(port);
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const address = reinterpret_cast<sockaddr*>(&address_);
    socklen_t size = sizeof address_;
    const timeval patience{3, 0};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return bind(socket_.Get(), address, size) == 0 && getsockname(socket_.Get(), address, &size) == 0 &&
           bind(listener_.Get(), address, size) == 0 && listen(listener_.Get(), 8) == 0;
  }

  // A record of `type` for the name that was asked for.
  static std::string Record(char type, std::string_view data) {
    return std::string("\xC0\x0C\0", 3) + type + std::string("\0\1\0\0\0\x3C\0", 7) + static_cast<char>(data.size()) +
           std::string(data);
  }

  // The name in a question, with dots between its labels.
  static std::string NameIn(const std::string& question) {
    std::string name;
    for (std::size_t place = 12; place < question.size() && question[place] != '\0';) {
      const auto length = static_cast<std::size_t>(question[place]);
      name += (name.empty() ? "" : ".") + question.substr(place + 1, length);
      place += length + 1;
    }
    return name;
  }

  // Answers one question with the record that `find` has for its name, or that there is no such name when it has none.
  // The name asked for, "" when no question comes.
  std::string Answer(const std::function<std::string(const std::string&)>& find) const {
    std::array<char, 512> packet{};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length =
        recvfrom(socket_.Get(), packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 12) return {};
    std::string answer(packet.data(), static_cast<std::size_t>(length));
    const std::string name = NameIn(answer);
    const std::string record = find(name);
    answer.resize(answer.find('\0', 12) + 5);  // the header, the question's name, type and class
    answer.replace(2, 10, record.empty() ? "\x81\x83\0\1\0\0\0\0\0\0" : "\x81\x80\0\1\0\1\0\0\0\0", 10);
    if (isTruncating_) answer.replace(2, 2, "\x83\x80", 2);
    answer += record;
    sendto(socket_.Get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from), size);
    return name;
  }

  UniqueDescriptor socket_{-1};
  UniqueDescriptor listener_{-1};  // for TCP, on the same port
  sockaddr_in address_{};
  bool isReady_ = false;
  mutable bool isTruncating_ = false;
};

}  // namespace TesselServer::Kit
