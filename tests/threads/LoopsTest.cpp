// Several loops in one process, each on its own thread with a control on it, and what other threads may do with them.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Tessel.h>
#include <TesselServer/Timer.h>

#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr int kLoops = 4;
constexpr int kRequests = 50;  // of each client

// One request over a socket that waits; the whole answer.
std::string Ask(std::int32_t port, const std::string& url) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  const std::string request = "GET " + url + " HTTP/1.0\r\n\r\n";
  if (connect(client, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0 &&
      send(client, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    std::array<char, 4096> chunk;
    for (ssize_t count; (count = recv(client, chunk.data(), chunk.size(), 0)) > 0;) {
      answer.append(chunk.data(), static_cast<std::size_t>(count));
    }
  }
  close(client);
  return answer;
}

// A control that serves files, pages with a program's and the host's answers, and requests answered by another thread.
struct Server {
  explicit Server(int given) : number(std::to_string(given)) {
    tree.Write("page.html", "number <!--#echo var=\"SERVER_NAME\" --> " + number);
    tree.Write("file.txt", "file of " + number);
    tessel.ServerIP("127.0.0.1");
    tessel.ServerPort("0");
    tessel.VirtualPath(tree.Text());
    tessel.MaxConnections(8);
    tessel.SSIEnable(true);
    tessel.DirectoryBrowseEnable(true);
    tessel.TrapFileEnable(true);
    tessel.TrapFileTypes("trp");
    tessel.HTTPLog = [this](std::string&) { ++lines; };
    tessel.LogEvent = [this](std::string& text) { errors += text; };
    tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      const std::uint64_t request = tessel.RequestNumber(index);
      workers.emplace_back([this, index, request] {
        const std::string text = "worked out for " + number;
        loop.Post([this, index, request, text] {
          if (tessel.RequestNumber(index) == request) tessel.TrapFileData(index, text, false, "text/plain");
        });
      });
    };
    tessel.StartServer();
    port = tessel.ListeningPort();
  }
  ~Server() {
    for (std::thread& each : workers) each.join();
  }

  const std::string number;
  Kit::TemporaryTree tree;
  EventLoop loop;
  int lines = 0;
  std::string errors;
  std::vector<std::thread> workers;
  std::int32_t port = 0;
  Tessel tessel{loop};
};

TEST(LoopsTest, SeveralThreadsServeAControlEach) {
  std::vector<std::unique_ptr<Server>> servers;
  std::vector<std::thread> threads;
  std::vector<std::thread> clients;
  std::atomic<int> good = 0;
  for (int i = 0; i < kLoops; ++i) {
    servers.push_back(std::make_unique<Server>(i));  // made here, and run elsewhere
    threads.emplace_back([&server = *servers.back()] { server.loop.Run(); });
  }
  for (const auto& each : servers) {
    clients.emplace_back([&good, &server = *each] {
      for (int i = 0; i < kRequests; ++i) {
        good += Ask(server.port, "/file.txt").ends_with("file of " + server.number) ? 1 : 0;
        good += Ask(server.port, "/page.html").ends_with(" " + server.number) ? 1 : 0;
        good += Ask(server.port, "/x.trp").ends_with("worked out for " + server.number) ? 1 : 0;
        good += Ask(server.port, "/").find("file.txt") != std::string::npos ? 1 : 0;
      }
    });
  }
  for (std::thread& each : clients) each.join();
  for (const auto& each : servers) each->loop.Stop();
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(good, kLoops * kRequests * 4);
  for (const auto& each : servers) {  // no thread runs the loops any more, so they are this thread's
    EXPECT_EQ(each->errors, "");
    EXPECT_TRUE(each->tessel.StopServer());
    EXPECT_GT(each->lines, kRequests * 3);  // what the host answers itself is not logged
  }
}

TEST(LoopsTest, ControlsAreMadeAndEndOnTheirOwnThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> good = 0;
  for (int i = 0; i < kLoops; ++i) {
    threads.emplace_back([&good, i] {
      for (int life = 0; life < 5; ++life) {
        Server server(i);
        std::thread client([&] {
          good += Ask(server.port, "/file.txt").ends_with("file of " + server.number) ? 1 : 0;
          server.loop.Stop();
        });
        server.loop.Run();
        client.join();
        server.tessel.StopServer();
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(good, kLoops * 5);
}

TEST(LoopsTest, TasksOfManyThreadsRunOnTheLoopsOwnEachInItsOrder) {
  constexpr int kPosters = 4;
  constexpr int kTasks = 2000;
  EventLoop loop;
  std::array<int, kPosters> next{};
  int ran = 0;
  bool inOrder = true;
  bool onThread = true;
  std::thread::id own;
  std::vector<std::thread> posters;
  for (std::size_t poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&, poster] {
      for (int i = 0; i < kTasks; ++i) {
        loop.Post([&, poster, i] {
          inOrder = inOrder && next[poster] == i;
          onThread = onThread && std::this_thread::get_id() == own;
          next[poster] = i + 1;
          if (++ran == kPosters * kTasks) loop.Stop();
        });
      }
    });
  }
  std::thread runner([&] {
    own = std::this_thread::get_id();
    loop.Run();
  });
  for (std::thread& each : posters) each.join();
  runner.join();
  EXPECT_EQ(ran, kPosters * kTasks);
  EXPECT_TRUE(inOrder);
  EXPECT_TRUE(onThread);
}

}  // namespace
}  // namespace TesselServer
