// A name server for a child process (tests/kit/Child.h), which answers or keeps silent.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <nss.h>
#include <resolv.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <string>

#include "platform/internal/UniqueDescriptor.h"

namespace TesselServer::Kit {

// This process asks a socket on the loopback for names, and nothing else. It is never undone.
class NameServer {
 public:
  NameServer() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const timeval patience{3, 0};
    setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    isReady_ = bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
               getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&address), &size) == 0 && res_init() == 0 &&
               __nss_configure_lookup("hosts", "dns") == 0;
    _res.nscount = 2;
    _res.nsaddr_list[0] = _res.nsaddr_list[1] = address;
    _res.retrans = 7;
    _res.retry = 3;
  }

  bool IsReady() const { return isReady_; }

  // Answers one question for a name with `label`.example; false when none comes.
  bool AnswerWithName(const std::string& label) const {
    std::array<char, 512> packet{};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length =
        recvfrom(socket_.Get(), packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 12) return false;
    std::string answer(packet.data(), static_cast<std::size_t>(length));
    answer.resize(answer.find('\0', 12) + 5);               // the header, the question's name, type and class
    answer.replace(2, 10, "\x81\x80\0\1\0\1\0\0\0\0", 10);  // a response without error: one question, one answer
    const std::string name = static_cast<char>(label.size()) + label + std::string("\7example\0", 9);
    answer += std::string("\xC0\x0C\0\x0C\0\1\0\0\0\x3C\0", 11) + static_cast<char>(name.size()) + name;
    return sendto(socket_.Get(), answer.data(), answer.size(), 0, reinterpret_cast<const sockaddr*>(&from), size) > 0;
  }

  // How many questions came so far.
  int CountQuestions() const {
    std::array<char, 512> packet{};
    int count = 0;
    while (recv(socket_.Get(), packet.data(), packet.size(), MSG_DONTWAIT) > 0) ++count;
    return count;
  }

 private:
  UniqueDescriptor socket_;
  bool isReady_ = false;
};

}  // namespace TesselServer::Kit
