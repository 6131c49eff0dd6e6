#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "platform/world/Error.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Signals.h"
#include "tests/kit/SocketTest.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr std::size_t kMoreThanTheKernelTakes = 20'000'000;

// The server's end of a client's connection.
int AcceptedFrom(const Kit::RawClient& client) {
  sockaddr_in own{}, peer{};
  socklen_t size = sizeof own;
  getsockname(client.Descriptor(), reinterpret_cast<sockaddr*>(&own), &size);
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    size = sizeof peer;
    const bool isSocket = getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
    if (isSocket && peer.sin_family == AF_INET && peer.sin_port == own.sin_port) return descriptor;
  }
  return -1;
}

class SocketSendTest : public Kit::SocketTest {
 protected:
  SocketSendTest() : SocketTest(3) {}
  // The number of the error that sending raises, 0 for none.
  std::int32_t ErrorOfSending(std::int32_t index, Answer answer) {
    try {
      sockets.SendData(index, std::move(answer));
    } catch (const Error& error) {
      return error.Number();
    }
    return 0;
  }
  // Reads until `size` bytes have come or nothing comes any more.
  const std::string& Receive(Kit::RawClient& client, std::size_t size) {
    Kit::RunUntil(loop, [&] { return client.Poll() || client.Received().size() >= size; });
    return client.Received();
  }
  Answer File(const std::string& bytes) {
    return {"head", FileBody{OpenPath(tree.Write("file", bytes)), static_cast<std::int64_t>(bytes.size())}};
  }

  Kit::TemporaryTree tree;
};

// ---- Whole answers.

TEST_F(SocketSendTest, EveryKindOfAnswerArrivesWholeAndCompletesOnce) {
  const std::string small = Kit::Pattern(5000);
  const std::string large = Kit::Pattern(kMoreThanTheKernelTakes);
  const auto shared = [](const std::string& bytes) { return std::make_shared<const std::string>(bytes); };
  struct {
    const char* what;
    Answer answer;
    std::string bytes;
  } cases[] = {
      {"a head alone", {"head", ""}, "head"},
      {"a text", {"head", small}, "head" + small},
      {"a long text", {"head", large}, "head" + large},
      {"shared bytes", {"head", shared(small)}, "head" + small},
      {"long shared bytes", {"head", shared(large)}, "head" + large},
      {"a small file", File(small), "head" + small},
      {"a large file",
       {"head", FileBody{OpenPath(tree.Write("large", large)), static_cast<std::int64_t>(large.size())}},
       "head" + large},
  };
  for (auto& c : cases) {
    const auto client = Connect();
    owner.heard.clear();
    sockets.SendData(2, std::move(c.answer));
    const std::string& received = Receive(*client, c.bytes.size());
    Kit::Settle(loop);
    EXPECT_TRUE(received == c.bytes) << c.what << ": " << received.size() << " of " << c.bytes.size();
    EXPECT_EQ(owner.heard, std::vector<std::string>{"sent 2"}) << c.what;
    EXPECT_EQ(sockets.State(2), SocketState::kConnected) << c.what << ": closing is the owner's business";
    sockets.Reload(2);
  }
}

TEST_F(SocketSendTest, AnEmptyAnswerIsCompleteAtOnce) {
  const auto client = Connect();
  owner.heard.clear();
  sockets.SendData(2, Answer{});
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, std::vector<std::string>{"sent 2"});
  EXPECT_EQ(client->Received(), "");
}

TEST_F(SocketSendTest, CompletionIsNeverRaisedInsideTheCall) {
  bool inside = false;
  owner.onData = [&](std::int32_t index) {
    inside = true;
    sockets.SendData(index, Kit::TextAnswer("answer"));
    EXPECT_EQ(owner.Count("sent 2"), 0u);
    inside = false;
  };
  owner.onSent = [&](std::int32_t) { EXPECT_FALSE(inside); };
  const auto client = Connect();
  EXPECT_EQ(owner.Count("sent 2"), 1u);
}

TEST_F(SocketSendTest, CompletionComesOnlyAfterTheLastByte) {
  const auto client = Connect();
  sockets.SendData(2, Kit::TextAnswer(std::string(kMoreThanTheKernelTakes, 'a')));
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("sent 2"), 0u) << "the client has read nothing";
  EXPECT_EQ(client->Received().size(), 0u);
  bool early = false;
  owner.onSent = [&](std::int32_t) {
    client->Poll();  // what the kernel holds is all there is
    early = client->Received().size() < kMoreThanTheKernelTakes / 2;
  };
  Receive(*client, kMoreThanTheKernelTakes);
  Kit::Settle(loop);
  EXPECT_FALSE(early);
  EXPECT_EQ(owner.Count("sent 2"), 1u);
}

TEST_F(SocketSendTest, TheKernelKeepsLittleOfAnUnreadAnswer) {
  for (const bool file : {false, true}) {
    const auto client = Connect();
    const std::string bytes = Kit::Pattern(kMoreThanTheKernelTakes);
    sockets.SendData(2, file ? File(bytes) : Kit::TextAnswer(bytes));
    Kit::Settle(loop);
    int unsent = -1;
    ASSERT_EQ(ioctl(AcceptedFrom(*client), SIOCOUTQNSD, &unsent), 0) << file;
    EXPECT_GT(unsent, 0) << file;
    EXPECT_LE(unsent, 2 * TcpListener::kUnsentBytes) << file;  // the last piece is taken whole
    sockets.Reload(2);
  }
}

TEST_F(SocketSendTest, OneAnswerMayFollowAnother) {
  const auto client = Connect();
  int left = 50;
  owner.onSent = [&](std::int32_t index) {
    if (--left > 0) sockets.SendData(index, Kit::TextAnswer("again "));
  };
  sockets.SendData(2, Kit::TextAnswer("first "));
  Receive(*client, 6 * 50);
  Kit::Settle(loop);
  EXPECT_EQ(client->Received().size(), 6u * 50);
  EXPECT_EQ(owner.Count("sent 2"), 50u);
}

// ---- Refusals.

TEST_F(SocketSendTest, AnElementThatCarriesNoConnectionIsNotConnected) {
  auto ended = Connect();
  auto aborted = Connect();
  ended->EndSending();
  aborted->Abort();
  Kit::Settle(loop);
  struct {
    std::int32_t index;
    const char* why;
  } const cases[] = {{1, "it listens"},   {2, "its peer has ended"}, {3, "it failed"},
                     {4, "it is closed"}, {5, "it does not exist"},  {-1, "it cannot exist"}};
  for (const auto& c : cases) EXPECT_EQ(ErrorOfSending(c.index, Kit::TextAnswer("x")), 10057) << c.why;
  try {
    sockets.SendData(4, Kit::TextAnswer("x"));
  } catch (const Error& error) {
    EXPECT_EQ(error.Description(), "Socket is not connected.");
  }
}

TEST_F(SocketSendTest, ASecondAnswerIsRefusedWhileTheFirstIsUnderWay) {
  const auto client = Connect();
  const std::string bytes = Kit::Pattern(kMoreThanTheKernelTakes);
  sockets.SendData(2, Kit::TextAnswer(bytes));
  EXPECT_EQ(ErrorOfSending(2, Kit::TextAnswer("second")), 10057);
  Kit::Settle(loop);
  EXPECT_EQ(ErrorOfSending(2, Kit::TextAnswer("second")), 10057);
  EXPECT_TRUE(Receive(*client, bytes.size()) == bytes) << "and does no harm to it";
  Kit::Settle(loop);
  EXPECT_EQ(ErrorOfSending(2, Kit::TextAnswer("second")), 0) << "when it has gone, it is not";
}

TEST_F(SocketSendTest, ASecondAnswerIsRefusedUntilTheFirstHasCompleted) {
  const auto client = Connect();
  sockets.SendData(2, Kit::TextAnswer("first"));
  EXPECT_EQ(ErrorOfSending(2, Kit::TextAnswer("second")), 10057);
  Kit::Settle(loop);
  EXPECT_EQ(owner.Count("sent 2"), 1u);
  EXPECT_EQ(Receive(*client, 5), "first");
}

// ---- Peers that do not read, or go.

TEST_F(SocketSendTest, AClientThatNeverReadsDelaysNoOther) {
  owner.onData = [&](std::int32_t index) {
    if (index != 2) sockets.SendData(index, Kit::TextAnswer("answer"));
  };
  owner.onSent = [&](std::int32_t index) { sockets.Reload(index); };
  const auto stuck = Connect();
  sockets.SendData(2, Kit::TextAnswer(std::string(kMoreThanTheKernelTakes, 'a')));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(Kit::Exchange(loop, port, "hello"), "answer");
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
  Kit::Settle(loop);
  EXPECT_FALSE(loop.RunOnce(20)) << "nor does the loop spin on it";
  stuck->Abort();
  Kit::Settle(loop);
  EXPECT_EQ(sockets.State(2), SocketState::kError);
}

TEST_F(SocketSendTest, AClientThatReadsWhileAnotherFloodsGetsItsAnswer) {
  const std::string bytes = Kit::Pattern(kMoreThanTheKernelTakes);
  const auto reader = Connect();
  const auto flooder = Connect();
  sockets.SendData(2, Kit::TextAnswer(bytes));
  const std::string flood(1'000'000, 'f');
  Kit::RunUntil(loop, [&] {
    send(flooder->Descriptor(), flood.data(), flood.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return reader->Poll() || reader->Received().size() == bytes.size();
  });
  EXPECT_TRUE(reader->Received() == bytes);
}

TEST_F(SocketSendTest, SendingToAPeerThatIsGoneRaisesItsErrorAndNoSignal) {
  Kit::SignalCounter pipeSignals(SIGPIPE);
  for (const bool file : {false, true}) {
    const auto client = Connect();
    client->Abort();
    // the loop has not heard of it yet
    EXPECT_EQ(ErrorOfSending(2, file ? File(Kit::Pattern(200'000)) : Kit::TextAnswer("answer")), 10054) << file;
    EXPECT_EQ(ErrorOfSending(2, file ? File(Kit::Pattern(200'000)) : Kit::TextAnswer("answer")), 10053) << file;
    Kit::Settle(loop);
    EXPECT_EQ(owner.Count("sent 2"), 0u) << file;
    EXPECT_NE(sockets.LowestFree(2, 2), -1) << "the element is not lost";
    sockets.Reload(2);
  }
  EXPECT_EQ(pipeSignals.Count(), 0);
}

TEST_F(SocketSendTest, APeerThatGoesWhileItIsSentToRaisesNoSignalEither) {
  Kit::SignalCounter pipeSignals(SIGPIPE);
  for (const bool file : {false, true}) {
    const auto client = Connect();
    owner.heard.clear();
    const std::string bytes = Kit::Pattern(kMoreThanTheKernelTakes);
    sockets.SendData(2, file ? File(bytes) : Kit::TextAnswer(bytes));
    Receive(*client, 1'000'000);
    client->Close();
    Kit::Settle(loop);
    ASSERT_FALSE(owner.heard.empty()) << file;  // the end of its side may come first
    EXPECT_EQ(owner.heard.back(), "error 2 10054 Connection reset by peer.") << file;
    EXPECT_EQ(owner.Count("sent 2"), 0u) << file;
    sockets.Reload(2);
  }
  EXPECT_EQ(pipeSignals.Count(), 0);
}

TEST_F(SocketSendTest, AFileThatBecomesShorterIsAnAbortedConnection) {
  const auto client = Connect();
  owner.heard.clear();
  sockets.SendData(2, File(Kit::Pattern(kMoreThanTheKernelTakes)));
  std::filesystem::resize_file(tree.Path() / "file", 1000);
  Receive(*client, kMoreThanTheKernelTakes);
  Kit::Settle(loop);
  EXPECT_EQ(owner.heard, std::vector<std::string>{"error 2 10053 Software caused connection abort."});
  EXPECT_EQ(sockets.State(2), SocketState::kError);
  EXPECT_TRUE(client->Poll()) << "the client is told by the end of the connection";
  EXPECT_LT(client->Received().size(), kMoreThanTheKernelTakes);
}

TEST_F(SocketSendTest, AFileThatIsShorterAlreadyIsRefused) {
  const auto client = Connect();
  Answer answer = File(Kit::Pattern(1000));
  std::filesystem::resize_file(tree.Path() / "file", 10);
  const std::int32_t error = ErrorOfSending(2, std::move(answer));
  Kit::Settle(loop);
  EXPECT_TRUE(error == 10053 || owner.Count("error 2 10053") == 1) << error;
  EXPECT_EQ(owner.Count("sent 2"), 0u);
}

// ---- What it costs.

std::size_t ResidentKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::stoul(line.substr(6));
  }
  return 0;
}

TEST_F(SocketSendTest, AFileCostsNoMemoryHoweverLongItIs) {
  constexpr std::int64_t kSize = 80'000'000;
  const std::string path = tree.Write("sparse", "");
  std::filesystem::resize_file(path, kSize);
  const auto client = Connect();
  std::string chunk(1'000'000, '\0');
  const std::size_t before = ResidentKilobytes();
  ASSERT_GT(before, 0u);
  sockets.SendData(2, {"head", FileBody{OpenPath(path), kSize}});
  std::int64_t received = 0;
  int reads = 0;
  std::size_t most = before;
  EXPECT_TRUE(Kit::RunUntil(loop, [&] {
    const ssize_t count = recv(client->Descriptor(), chunk.data(), chunk.size(), 0);
    if (count > 0) received += count;
    if (++reads % 16 == 0) most = std::max(most, ResidentKilobytes());
    return received == kSize + 4;
  })) << received;
  EXPECT_LT(most - before, 20'000u) << "kilobytes";
}

TEST_F(SocketSendTest, SharedBytesAreNotCopied) {
  const auto bytes = std::make_shared<const std::string>(Kit::Pattern(kMoreThanTheKernelTakes));
  const auto first = Connect();
  const auto second = Connect();
  sockets.SendData(2, {"head", bytes});
  sockets.SendData(3, {"head", bytes});
  EXPECT_EQ(bytes.use_count(), 3);
  Receive(*first, bytes->size() + 4);
  Kit::Settle(loop);
  EXPECT_EQ(bytes.use_count(), 2) << "let go when they have gone";
  sockets.Reload(3);
  EXPECT_EQ(bytes.use_count(), 1) << "or when the connection is closed";
}

TEST_F(SocketSendTest, TheFileIsClosedAsSoonAsItHasGoneOrFailed) {
  struct {
    const char* how;
    std::function<void(Kit::RawClient&)> end;
  } const cases[] = {
      {"read whole", [&](Kit::RawClient& client) { Receive(client, kMoreThanTheKernelTakes + 4); }},
      {"broken off", [](Kit::RawClient& client) { client.Abort(); }},
      {"closed", [&](Kit::RawClient&) { sockets.Reload(2); }},
  };
  const std::size_t before = Kit::CountDescriptors();
  for (const auto& c : cases) {
    {
      const auto client = Connect();
      const std::size_t connected = Kit::CountDescriptors();
      sockets.SendData(2, File(Kit::Pattern(kMoreThanTheKernelTakes)));
      EXPECT_EQ(Kit::CountDescriptors(), connected + 1) << c.how;
      c.end(*client);
      Kit::Settle(loop);
      EXPECT_LE(Kit::CountDescriptors(), connected) << c.how;
      sockets.Reload(2);
    }
    Kit::Settle(loop);
    EXPECT_EQ(Kit::CountDescriptors(), before) << c.how;
  }
}

// ---- Completions of the past.

TEST_F(SocketSendTest, APendingCompletionEndsWithItsConnection) {
  struct {
    const char* how;
    std::function<void()> renew;
  } const cases[] = {
      {"closed", [&] { sockets.Close(2); }},
      {"reloaded", [&] { sockets.Reload(2); }},
      {"unloaded and loaded", [&] { sockets.Unload(2), sockets.Load(2); }},
  };
  for (const auto& c : cases) {
    const auto client = Connect();
    Kit::RawClient next(port);
    send(next.Descriptor(), "next", 4, MSG_NOSIGNAL);
    owner.heard.clear();
    sockets.SendData(2, Kit::TextAnswer("answer"));
    c.renew();
    sockets.OfferWaiting(1);
    ASSERT_EQ(sockets.State(2), SocketState::kConnected) << c.how << ": by the next client";
    Kit::Settle(loop);
    EXPECT_EQ(owner.Count("sent 2"), 0u) << c.how;
    EXPECT_EQ(Receive(*client, 6), "answer") << c.how << ": the answer has gone all the same";
    sockets.Reload(2);
    Kit::Settle(loop);
  }
}

}  // namespace
}  // namespace TesselServer
