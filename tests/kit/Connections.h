// A client of TCP connections that writes down what it is told.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/sockets/Lingering.h"
#include "platform/sockets/TcpConnection.h"
#include "tests/kit/TcpPair.h"

namespace TesselServer::Kit {

struct ConnectionClient : TcpConnection::Client {
  std::span<char> ReadBuffer() override { return buffer; }
  void OnConnected(TcpConnection&) override { Note("connected"); }
  void OnData(TcpConnection&, std::string_view bytes) override { Note("data " + std::string(bytes)); }
  void OnPeerEnded(TcpConnection&) override { Note("ended"); }
  void OnSent(TcpConnection&) override { Note("sent"); }
  void OnFailed(TcpConnection&, int error) override { Note("failed " + std::to_string(error)); }

  void Note(const std::string& line) {
    heard.push_back(line);
    then(line);
  }

  std::array<char, 64> buffer{};
  std::vector<std::string> heard;
  std::function<void(const std::string&)> then = [](const std::string&) {};
};

// A connection that has taken over the own side of a pair.
inline std::shared_ptr<TcpConnection> Adopted(EventLoop& loop, TcpConnection::Client& client, TcpPair& pair,
                                              DiskAccess* disk = nullptr) {
  auto connection = std::make_shared<TcpConnection>(loop, client, 0, disk);
  const Endpoint peer = *Endpoint::PeerOf(pair.Own());
  connection->Adopt(UniqueDescriptor(pair.ReleaseOwn()), peer);
  return connection;
}

}  // namespace TesselServer::Kit
