// Clients that do what no client should, beside a good one that must be served as if they were not there.

#include <sys/socket.h>

#include <iterator>

#include "tests/kit/Memory.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::Noise;
using Kit::RawClient;
using Kit::StatusLineOf;

constexpr std::string_view kGetPage = "GET /index.html HTTP/1.0\r\n\r\n";
constexpr std::string_view kGetBig = "GET /big.bin HTTP/1.0\r\n\r\n";

class MisbehavingClientsTest : public Kit::WireTest {
 protected:
  MisbehavingClientsTest() {
    page = control.Write("index.html", "<html><body>" + Kit::PageNoise(3000) + "</body></html>");
    big = control.Write("big.bin", Noise(8'000'000));
    control.EchoTrapped();
    control.tessel.VerboseErrorsEnable(false);
  }

  // The good client: served whole, and while nobody else wants the slot, at once.
  void ExpectGoodClientServed(const std::string& when) const {
    EXPECT_EQ(BodyOf(control.Get("/index.html")) == page, true) << when;
    EXPECT_EQ(BodyOf(control.Ask("POST /good.trp HTTP/1.0\r\nContent-Length: 4\r\n\r\ngood")), "POST /good.trp?\ngood")
        << when;
  }

  void Turns(int count) {
    while (count-- > 0) loop.RunOnce(1);
  }

  std::string page, big;
};

// Every way of going away in the middle: with an ordinary close, or with a reset.
TEST_F(MisbehavingClientsTest, GoingAwayHalfwayHarmsNoOtherClient) {
  struct {
    const char* why;
    std::string_view sent;
    int turns;  // how long the client stays
    bool reads;
  } const cases[] = {
      {"in the middle of the method", "GE", 1, false},
      {"in the middle of the URL", "GET /index.ht", 1, false},
      {"in the middle of the header", "GET /index.html HTTP/1.0\r\nAccept: ", 1, false},
      {"right after the request", kGetPage, 0, false},
      {"right after a request for a big file", kGetBig, 0, false},
      {"in the middle of the answer", kGetBig, 4, true},
      {"in the middle of the answer, unread", kGetBig, 4, false},
      {"in the middle of a POST's header", "POST /index.html HTTP/1.0\r\nContent-Length: 1", 1, false},
      {"in the middle of a body", "POST /index.html HTTP/1.0\r\nContent-Length: 100\r\n\r\n0123456789", 1, false},
  };
  control.Start(2);
  for (const auto& c : cases) {
    for (const bool reset : {false, true}) {
      for (int round = 0; round < 5; ++round) {
        RawClient bad(control.Port());
        bad.Send(loop, c.sent);
        Turns(c.turns);
        if (c.reads) bad.Poll();
        ExpectGoodClientServed(std::string(c.why) + ", while it is there");
        reset ? bad.Abort() : bad.Close();
        ExpectGoodClientServed(std::string(c.why) + ", after it has gone");
      }
    }
  }
}

TEST_F(MisbehavingClientsTest, AClientThatClosesItsSideAfterItsRequestGetsItsAnswer) {
  control.Start();
  const struct {
    std::string_view sent;
    std::string body;
  } cases[] = {
      {kGetPage, page},
      {kGetBig, big},
      {"GET /index.html", page},  // a request line without its end
      {"GET /index.html HTTP/1.0\r\n", page},
      {"POST /a.trp HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc", "POST /a.trp?\nabc"},
  };
  for (const auto& c : cases) {
    for (const bool atOnce : {false, true}) {
      RawClient client(control.Port());
      client.Send(loop, c.sent);
      if (!atOnce) Turns(2);
      client.EndSending();
      EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == c.body, true) << c.sent;
      EXPECT_FALSE(client.WasReset()) << c.sent;
    }
  }
}

TEST_F(MisbehavingClientsTest, AClientThatSendsByteByByteIsServed) {
  control.Start(2);
  RawClient client(control.Port());
  const std::string request = "POST /slow.trp?q=1 HTTP/1.0\r\nContent-Length: 10\r\n\r\n0123456789";
  for (const char byte : request) {
    client.Send(loop, std::string_view(&byte, 1));
    Turns(1);
    ExpectGoodClientServed("beside a slow one");
  }
  EXPECT_EQ(BodyOf(client.ReceiveAll(loop)), "POST /slow.trp?q=1\n0123456789");
}

TEST_F(MisbehavingClientsTest, ASecondRequestOnTheConnectionIsNotAnswered) {
  control.Start();
  for (const bool together : {true, false}) {
    RawClient client(control.Port());
    client.Send(loop, kGetPage);
    if (!together) Turns(1);
    client.Send(loop, "GET /second HTTP/1.0\r\n\r\n");
    const std::string answer = client.ReceiveAll(loop);
    EXPECT_EQ(BodyOf(answer) == page, true);
    EXPECT_TRUE(client.Ended());
  }
  EXPECT_EQ(control.log.size(), 2u);
}

TEST_F(MisbehavingClientsTest, ASecondRequestInOnePieceDoesNotEatABigAnswer) {
  control.Start();
  RawClient client(control.Port());
  client.Send(loop, std::string(kGetBig) + std::string(kGetPage));
  EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == big, true);
  EXPECT_FALSE(client.WasReset());
}

// Closing while bytes lie unread would be a reset, and that would take what is on its way along.
TEST_F(MisbehavingClientsTest, ASecondRequestThatComesJustBeforeTheCloseDoesNotEatTheAnswer) {
  control.Start();
  for (const std::size_t size : {100'000u, 400'000u, 1'000'000u, 2'000'000u}) {
    const std::string bytes = control.Write("file.bin", Noise(size));
    RawClient client(control.Port());
    control.tessel.HTTPLog = [&](std::string&) {  // the answer is on its way, the connection still open
      EXPECT_EQ(send(client.Descriptor(), kGetPage.data(), kGetPage.size(), MSG_NOSIGNAL), std::ssize(kGetPage));
    };
    client.Send(loop, "GET /file.bin HTTP/1.0\r\n\r\n");
    Kit::Settle(loop);
    EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == bytes, true) << size << ", received " << client.Received().size();
    EXPECT_FALSE(client.WasReset()) << size;
  }
}

TEST_F(MisbehavingClientsTest, ALineEndAfterABodyDoesNotEatTheAnswer) {
  control.Start();
  for (const std::size_t size : {100u, 100'000u, 400'000u, 1'000'000u, 2'000'000u}) {
    const std::string bytes = control.Write("file.bin", Noise(size));
    RawClient client(control.Port());
    client.Send(loop, "POST /file.bin HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc");
    Kit::Settle(loop);  // the answer has gone as far as it goes without a reader
    EXPECT_TRUE(client.Send(loop, "\r\n")) << size;
    EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == bytes, true) << size << ", received " << client.Received().size();
    EXPECT_FALSE(client.WasReset()) << size;
  }
}

TEST_F(MisbehavingClientsTest, MoreThanTheAnnouncedBodyIsDropped) {
  control.Start();
  RawClient client(control.Port());
  client.Send(loop, "POST /a.trp HTTP/1.0\r\nContent-Length: 4\r\n\r\nbodyand then " + Noise(200'000));
  EXPECT_EQ(BodyOf(client.ReceiveAll(loop)), "POST /a.trp?\nbody");
  EXPECT_FALSE(client.WasReset());
}

TEST_F(MisbehavingClientsTest, ASilentClientCostsNoSlot) {
  control.Start(1);
  std::vector<std::unique_ptr<RawClient>> silent;
  for (int i = 0; i < 50; ++i) silent.push_back(std::make_unique<RawClient>(control.Port()));
  Turns(3);
  ExpectGoodClientServed("beside fifty silent ones");
  silent[7]->Send(loop, kGetPage);
  EXPECT_EQ(BodyOf(silent[7]->ReceiveAll(loop)) == page, true) << "who speaks in the end is served";
  silent.clear();
  ExpectGoodClientServed("after fifty silent ones");
}

TEST_F(MisbehavingClientsTest, AMebibyteOfAnythingEndsInOneAnswer) {
  const std::size_t kSize = 1024 * 1024;
  std::string lines;
  while (lines.size() < kSize) lines += "X-Line-" + std::to_string(lines.size()) + ": " + std::string(60, 'v') + "\r\n";
  std::string accepts;
  while (accepts.size() < kSize) accepts += "Accept: a/b\r\n";
  struct {
    const char* why;
    std::string sent;
    std::string statusLine;
  } const cases[] = {
      {"noise", Noise(kSize), "HTTP/1.0 400 Bad Request"},
      {"one byte again and again", std::string(kSize, 'A'), "HTTP/1.0 400 Bad Request"},
      {"blanks before a request", std::string(kSize, ' ') + std::string(kGetPage), "HTTP/1.0 400 Bad Request"},
      {"NULs", std::string(kSize, '\0'), "HTTP/1.0 400 Bad Request"},
      {"line ends", std::string(kSize, '\n'), "HTTP/1.0 400 Bad Request"},
      {"a URL without end", "GET /" + std::string(kSize, 'a'), "HTTP/1.0 400 Bad Request"},
      {"header lines of a POST", "POST /a.trp HTTP/1.0\r\n" + lines + "\r\n", "HTTP/1.0 400 Bad Request"},
      {"header lines of a GET", "GET /index.html HTTP/1.0\r\n" + lines + "\r\n", "HTTP/1.0 200 OK"},
      {"Accept lines of a GET", "GET /index.html HTTP/1.0\r\n" + accepts + "\r\n", "HTTP/1.0 200 OK"},
      {"the greeting of another protocol", "\x16\x03\x01\x02" + Noise(kSize), "HTTP/1.0 400 Bad Request"},
  };
  control.Start(2);
  for (const auto& c : cases) {
    RawClient client(control.Port());
    EXPECT_TRUE(client.Send(loop, std::string_view(c.sent).substr(0, 100'000))) << c.why;
    ExpectGoodClientServed(c.why);
    EXPECT_TRUE(client.Send(loop, std::string_view(c.sent).substr(100'000))) << c.why;
    EXPECT_EQ(StatusLineOf(client.ReceiveAll(loop)), c.statusLine) << c.why;
    EXPECT_FALSE(client.WasReset()) << c.why;
  }
}

TEST_F(MisbehavingClientsTest, AShortGreetingOfAnotherProtocolEndsInABadRequest) {
  control.Start();
  RawClient client(control.Port());
  client.Send(loop, "\x16\x03\x01\x02\x01\x01");
  Turns(2);
  world.Skip(2500);
  EXPECT_EQ(StatusLineOf(client.ReceiveAll(loop)), "HTTP/1.0 400 Bad Request");
}

TEST_F(MisbehavingClientsTest, AClientThatNeverReadsItsBigAnswerDelaysNoOther) {
  control.Start(4);
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 3; ++i) {
    idle.push_back(std::make_unique<RawClient>(control.Port()));
    idle.back()->Send(loop, kGetBig);
  }
  for (int i = 0; i < 20; ++i) ExpectGoodClientServed("beside clients that do not read");
  EXPECT_EQ(BodyOf(idle[0]->ReceiveAll(loop)) == big, true) << "who reads in the end gets it whole";
  idle.clear();
  for (int i = 0; i < 20; ++i) ExpectGoodClientServed("after clients that did not read");
}

TEST_F(MisbehavingClientsTest, UrgentBytesAreNothingSpecial) {
  control.Start(2);
  RawClient client(control.Port());
  client.Send(loop, "GET /index.html ");
  send(client.Descriptor(), "!", 1, MSG_OOB | MSG_NOSIGNAL);
  client.Send(loop, "HTTP/1.0\r\n\r\n");
  EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == page, true);
  ExpectGoodClientServed("after urgent bytes");
}

TEST_F(MisbehavingClientsTest, ClientsThatSayNothingAndCloseKeepTheOneSlotFree) {
  control.Start(1);
  for (int i = 0; i < 50; ++i) {
    RawClient client(control.Port());
    client.EndSending();
    Turns(1);
    if (i % 10 != 0) continue;
    ExpectGoodClientServed("beside one that closed its side without a word");
  }
}

TEST_F(MisbehavingClientsTest, AClientThatNeverStopsSendingIsCutOff) {
  control.Start();
  RawClient client(control.Port());
  client.Send(loop, "POST / HTTP/1.0\r\n\r\n");
  Turns(2);
  client.Poll();
  EXPECT_EQ(StatusLineOf(client.Received()), "HTTP/1.0 400 Bad Request");
  int milliseconds = 0;
  for (; milliseconds < 4000 && client.Send(loop, "more and more"); milliseconds += 50) {
    world.Skip(50);
    loop.RunOnce(5);
  }
  EXPECT_GT(milliseconds, 1500) << "some time is given";
  EXPECT_LT(milliseconds, 3500) << "but no more than that";
}

TEST_F(MisbehavingClientsTest, AnAnswerOutlivesTheTimeThatItsClientIsWaitedFor) {
  const std::string bytes = control.Write("file.bin", Noise(1'000'000));
  control.Start();
  RawClient client(control.Port());
  client.Send(loop, "POST /file.bin HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc");
  for (int milliseconds = 0; milliseconds < 2700; milliseconds += 100) {
    world.Skip(100);
    loop.RunOnce(2);
  }
  EXPECT_EQ(BodyOf(client.ReceiveAll(loop)) == bytes, true) << client.Received().size();
  EXPECT_FALSE(client.WasReset());
}

// Whatever clients are waiting for, the loop sleeps meanwhile.
TEST_F(MisbehavingClientsTest, WaitingClientsKeepNoProcessorBusy) {
  std::int32_t asked = 0;
  control.tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) { asked = index; };
  control.Start(5);
  std::vector<std::unique_ptr<RawClient>> clients;
  const auto add = [&](std::string_view sent) -> RawClient& {
    clients.push_back(std::make_unique<RawClient>(control.Port()));
    clients.back()->Send(loop, sent);
    Turns(3);
    return *clients.back();
  };
  add("POST / HTTP/1.0\r\n\r\n");  // answered, and waited for to close
  add("");
  add("GET /unfinished");
  add("POST /unfinished HTTP/1.0\r\nContent-Length: 100\r\n\r\nabc");
  add(kGetBig);  // and not reading
  RawClient& halfClosed = add("GET /later.trp HTTP/1.0\r\n\r\n");
  halfClosed.EndSending();
  RawClient& gone = add("GET /gone");  // and gone, its slot not yet wanted
  gone.EndSending();
  add("GET /unfinished");             // takes that slot
  RawClient& queued = add(kGetPage);  // finds no slot
  Turns(3);
  int busy = 0;
  for (int milliseconds = 0; milliseconds < 1500; milliseconds += 25) {
    world.Skip(25);
    busy += loop.RunOnce(2) ? 1 : 0;
  }
  EXPECT_LE(busy, 25);  // two timers of 250 ms, with room for a slow machine
  EXPECT_FALSE(queued.Poll());
  ASSERT_NE(asked, 0);
  control.tessel.TrapFileData(asked, "at last", false);
  EXPECT_EQ(BodyOf(halfClosed.ReceiveAll(loop)), "at last");
  EXPECT_EQ(BodyOf(queued.ReceiveAll(loop)) == page, true);
}

TEST_F(MisbehavingClientsTest, WhatIsAnnouncedCostsNoMemoryUntilItComes) {
  constexpr int kClients = 100;
  constexpr std::int64_t kGrowth = (Kit::kSanitized ? 64 : 16) * 1024 * 1024;
  control.Start(kClients + 1);
  ExpectGoodClientServed("before");
  const std::int64_t before = Kit::ResidentBytes();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<RawClient>(control.Port()));
    clients.back()->Send(loop, "POST /a.trp HTTP/1.0\r\nContent-Length: 60000000\r\n\r\nabc");
    Turns(1);
  }
  EXPECT_LT(Kit::ResidentBytes() - before, kGrowth);
  ExpectGoodClientServed("beside a hundred announcements");
}

}  // namespace
}  // namespace TesselServer
