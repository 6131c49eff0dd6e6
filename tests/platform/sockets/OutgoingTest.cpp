#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "platform/sockets/Outgoing.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/Signals.h"
#include "tests/kit/SocketOwner.h"
#include "tests/kit/TcpPair.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Result = Outgoing::Result;

Answer FileAnswer(std::string head, const std::string& path, std::int64_t size) {
  return {std::move(head), FileBody{OpenPath(path), size}};
}

struct Sent {
  Result result = Result::kAgain;
  std::string bytes;
  int steps = 0;
  int error = 0;
};

// Sends all of it to a peer that reads whatever comes.
Sent SendAll(Answer answer, Kit::TcpPair& pair) {
  Outgoing outgoing(std::move(answer));
  Sent sent;
  while (sent.steps < 100'000) {
    sent.result = outgoing.Step(pair.Own());
    ++sent.steps;
    sent.bytes += pair.PeerReads();
    if (sent.result == Result::kDone || sent.result == Result::kFailed) break;
    if (sent.result != Result::kBlocked) continue;
    pollfd writable{pair.Own(), POLLOUT, 0};
    poll(&writable, 1, 10);
  }
  sent.bytes += pair.PeerReadsToTheEnd();
  sent.error = outgoing.Error();
  return sent;
}

TEST(OutgoingTest, SendsHeadAndBodyWhateverTheBodyIs) {
  const Kit::TemporaryTree tree;
  const std::string small = Kit::Pattern(1000);
  const std::string large = Kit::Pattern(3'000'000);
  const auto shared = [](const std::string& bytes) { return std::make_shared<const std::string>(bytes); };
  const auto file = [&](std::string head, const std::string& bytes) {
    const std::string path = tree.Write("file" + std::to_string(bytes.size()), bytes);
    return FileAnswer(std::move(head), path, static_cast<std::int64_t>(bytes.size()));
  };
  struct {
    const char* what;
    Answer answer;
    std::string bytes;
  } cases[] = {
      {"nothing", {"", ""}, ""},
      {"a head alone", {"head", ""}, "head"},
      {"a text alone", {"", "body"}, "body"},
      {"a head and a text", {"head", small}, "head" + small},
      {"a head and a long text", {"head", large}, "head" + large},
      {"a long head", {large, ""}, large},
      {"a long head and a text", {large, small}, large + small},
      {"a head and shared bytes", {"head", shared(small)}, "head" + small},
      {"a head and long shared bytes", {"head", shared(large)}, "head" + large},
      {"a head and no shared bytes", {"head", Answer::SharedBytes()}, "head"},
      {"a head and an empty file", file("head", ""), "head"},
      {"a head and a small file", file("head", small), "head" + small},
      {"the longest file that is read", file("head", Kit::Pattern(65'536)), "head" + Kit::Pattern(65'536)},
      {"the shortest file that is not", file("head", Kit::Pattern(65'537)), "head" + Kit::Pattern(65'537)},
      {"a head and a large file", file("head", large), "head" + large},
      {"a large file alone", file("", large), large},
      {"a part of a small file", FileAnswer("head", tree.Write("part", small), 10), "head" + small.substr(0, 10)},
      {"a part of a large file", FileAnswer("head", tree.Write("Part", large), 100'000),
       "head" + large.substr(0, 100'000)},
      {"a file that is not open and of no size", {"head", FileBody{}}, "head"},
  };
  for (auto& c : cases) {
    Kit::TcpPair pair;
    EXPECT_EQ(c.answer.Size(), static_cast<std::int64_t>(c.bytes.size())) << c.what;
    const Sent sent = SendAll(std::move(c.answer), pair);
    EXPECT_EQ(sent.result, Result::kDone) << c.what;
    EXPECT_TRUE(sent.bytes == c.bytes) << c.what << ": " << sent.bytes.size() << " of " << c.bytes.size();
  }
}

TEST(OutgoingTest, AShortAnswerGoesOutInOneStep) {
  const Kit::TemporaryTree tree;
  Answer cases[] = {{"", ""}, {"head", "body"}, FileAnswer("head", tree.Write("file", Kit::Pattern(60'000)), 60'000)};
  for (Answer& answer : cases) {
    Kit::TcpPair pair;
    const std::int64_t size = answer.Size();
    const Sent sent = SendAll(std::move(answer), pair);
    EXPECT_EQ(sent.steps, 1) << size;
    EXPECT_EQ(sent.result, Result::kDone) << size;
    EXPECT_EQ(static_cast<std::int64_t>(sent.bytes.size()), size);
  }
}

TEST(OutgoingTest, OneStepHandsOverABoundedNumberOfBytes) {
  const Kit::TemporaryTree tree;
  const std::string bytes = Kit::Pattern(8'000'000);
  struct {
    const char* what;
    Answer answer;
  } cases[] = {
      {"a text", {"", bytes}},
      {"a head", {bytes, ""}},
      {"a head and a text", {bytes.substr(0, 700'000), bytes.substr(700'000)}},
      {"a file", FileAnswer("", tree.Write("file", bytes), 8'000'000)},
  };
  for (auto& c : cases) {
    Kit::TcpPair pair;
    Outgoing outgoing(std::move(c.answer));
    std::string received;
    for (int steps = 1; steps < 5000 && received.size() < bytes.size(); ++steps) {
      ASSERT_NE(outgoing.Step(pair.Own()), Result::kFailed);
      received += pair.PeerReads();
      ASSERT_LE(static_cast<std::int64_t>(received.size()), steps * Outgoing::kBytesPerStep) << c.what;
    }
    EXPECT_TRUE(received == bytes) << c.what;
  }
}

TEST(OutgoingTest, APeerThatReadsNothingBlocksItAndNothingIsLost) {
  const Kit::TemporaryTree tree;
  const std::string bytes = Kit::Pattern(20'000'000);
  struct {
    const char* what;
    Answer answer;
  } cases[] = {
      {"a text", {"head", bytes}},
      {"shared bytes", {"head", std::make_shared<const std::string>(bytes)}},
      {"a file", FileAnswer("head", tree.Write("file", bytes), 20'000'000)},
  };
  for (auto& c : cases) {
    Kit::TcpPair pair;
    Outgoing outgoing(std::move(c.answer));
    Result result = Result::kAgain;
    for (int steps = 0; steps < 1000 && result == Result::kAgain; ++steps) result = outgoing.Step(pair.Own());
    ASSERT_EQ(result, Result::kBlocked) << c.what;
    std::string received;
    for (int i = 0; i < 5000 && result != Result::kDone && result != Result::kFailed; ++i) {
      received += pair.PeerReads(50'000);
      result = outgoing.Step(pair.Own());
    }
    EXPECT_EQ(result, Result::kDone) << c.what;
    received += pair.PeerReadsToTheEnd();
    EXPECT_TRUE(received == "head" + bytes) << c.what;
  }
}

TEST(OutgoingTest, AFileThatBecameShorterFailsAsAnAbortedConnection) {
  const Kit::TemporaryTree tree;
  for (const std::int64_t size : {1000, 65'536, 65'537, 3'000'000}) {
    const std::string bytes = Kit::Pattern(static_cast<std::size_t>(size));
    const std::string path = tree.Write("file", bytes);
    Answer answer = FileAnswer("head", path, size);
    std::filesystem::resize_file(path, 500);
    Kit::TcpPair pair;
    const Sent sent = SendAll(std::move(answer), pair);
    EXPECT_EQ(sent.result, Result::kFailed) << size;
    EXPECT_EQ(sent.error, ECONNABORTED) << size;
    EXPECT_EQ(sent.bytes, "head" + bytes.substr(0, 500)) << size << ": what was there has gone";
  }
}

TEST(OutgoingTest, AFileThatIsCutWhileItIsSentFailsToo) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("file", Kit::Pattern(20'000'000));
  Kit::TcpPair pair;
  Outgoing outgoing(FileAnswer("head", path, 20'000'000));
  for (int steps = 0; steps < 1000 && outgoing.Step(pair.Own()) == Result::kAgain; ++steps) {
  }
  std::filesystem::resize_file(path, 100);
  Result result = Result::kAgain;
  for (int i = 0; i < 1000 && result != Result::kFailed; ++i) {
    pair.PeerReads();
    result = outgoing.Step(pair.Own());
    ASSERT_NE(result, Result::kDone);
  }
  EXPECT_EQ(result, Result::kFailed);
  EXPECT_EQ(outgoing.Error(), ECONNABORTED);
}

TEST(OutgoingTest, AFileThatGrewIsSentInTheLengthThatWasAnnounced) {
  const Kit::TemporaryTree tree;
  for (const std::size_t size : {1000u, 100'000u}) {
    const std::string bytes = Kit::Pattern(size);
    const std::string path = tree.Write("file", bytes);
    Answer answer = FileAnswer("head", path, static_cast<std::int64_t>(size));
    tree.Write("file", bytes + "and more");
    Kit::TcpPair pair;
    EXPECT_EQ(SendAll(std::move(answer), pair).bytes, "head" + bytes) << size;
  }
}

TEST(OutgoingTest, ItsFileIsClosedWithIt) {
  const Kit::TemporaryTree tree;
  const std::size_t before = Kit::CountDescriptors();
  {
    const Outgoing read(FileAnswer("", tree.Write("small", "small"), 5));
    EXPECT_EQ(Kit::CountDescriptors(), before) << "a small file is read and closed at once";
    const Outgoing open(FileAnswer("", tree.Write("large", Kit::Pattern(100'000)), 100'000));
    EXPECT_EQ(Kit::CountDescriptors(), before + 1);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

// ---- Peers that go away.

class OutgoingToAClosedPeerTest : public testing::Test {
 protected:
  Answer Text() { return {"head", "body"}; }
  Answer File() { return FileAnswer("", tree.Write("file", Kit::Pattern(200'000)), 200'000); }

  // A connection whose peer has gone, with the first error already told, so that the next is EPIPE.
  void Break(Kit::TcpPair& pair) {
    pair.AbortPeer();
    Outgoing first(Text());
    ASSERT_EQ(first.Step(pair.Own()), Result::kFailed);
    ASSERT_EQ(first.Error(), ECONNRESET);
  }

  Kit::TemporaryTree tree;
  Kit::SignalCounter pipeSignals{SIGPIPE};
};

TEST_F(OutgoingToAClosedPeerTest, FailsAndRaisesNoSignal) {
  for (const bool file : {false, true}) {
    Kit::TcpPair pair;
    Break(pair);
    Outgoing outgoing(file ? File() : Text());
    EXPECT_EQ(outgoing.Step(pair.Own()), Result::kFailed) << file;
    EXPECT_EQ(outgoing.Error(), EPIPE) << file;
  }
  EXPECT_EQ(pipeSignals.Count(), 0);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0) << "nor leaves one waiting";
}

TEST_F(OutgoingToAClosedPeerTest, AFileFailsWithTheResetWhenThatIsNotReportedYet) {
  Kit::TcpPair pair;
  pair.AbortPeer();
  Outgoing outgoing(File());
  EXPECT_EQ(outgoing.Step(pair.Own()), Result::kFailed);
  EXPECT_EQ(outgoing.Error(), ECONNRESET);
  EXPECT_EQ(pipeSignals.Count(), 0);
}

TEST_F(OutgoingToAClosedPeerTest, LeavesTheHostsOwnSignalsAsTheyWere) {
  Kit::TcpPair pair;
  Break(pair);
  sigset_t before, after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  EXPECT_EQ(Outgoing(File()).Step(pair.Own()), Result::kFailed);
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int each = 1; each < 32; ++each) EXPECT_EQ(sigismember(&before, each), sigismember(&after, each)) << each;

  // one of the host's that waits behind the host's own mask goes on waiting
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  raise(SIGPIPE);
  EXPECT_EQ(Outgoing(File()).Step(pair.Own()), Result::kFailed);
  sigpending(&after);
  EXPECT_EQ(sigismember(&after, SIGPIPE), 1);
  EXPECT_EQ(pipeSignals.Count(), 0);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(pipeSignals.Count(), 1) << "the host's own";
}

}  // namespace
}  // namespace TesselServer
