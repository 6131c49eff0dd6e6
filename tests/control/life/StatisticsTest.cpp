#include <gtest/gtest.h>

#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::RawClient;

class StatisticsTest : public Kit::ControlTest {
 protected:
  // Asks with so many bytes in all.
  std::string AskWithBytes(std::size_t size) {
    std::string request = "GET /a.txt HTTP/1.0\r\nX: ";
    request += std::string(size - request.size() - 4, 'x') + "\r\n\r\n";
    return control.Ask(request);
  }
};

TEST_F(StatisticsTest, AFreshControlHasCountedNothing) {
  Tessel fresh(control.loop);
  EXPECT_EQ(fresh.Stats_BytesReceived(), "0K");
  EXPECT_EQ(fresh.Stats_BytesSent(), "0K");
  EXPECT_EQ(fresh.Stats_Requests(), "0");
  EXPECT_EQ(fresh.Stats_Errors(), "0");
  EXPECT_EQ(fresh.Stats_UpTime(), "");
  EXPECT_EQ(fresh.Stats_FreeConnections(), "0/2");
}

TEST_F(StatisticsTest, ReceivedBytesAreWholeKilobytesRoundedHalvesUp) {
  control.Start();
  struct {
    std::size_t bytes;
    const char* text;
  } const cases[] = {{511, "0K"}, {1, "1K"}, {1023, "1K"}, {1, "2K"}, {1024, "3K"}, {60000, "61K"}};
  std::size_t total = 0;
  for (const auto& c : cases) {
    if (c.bytes < 30) {  // too few for a request: one that makes none counts as well
      RawClient client(tessel.ListeningPort());
      client.Send(control.loop, "G");
      client.EndSending();
      Kit::Settle(control.loop);
    } else {
      AskWithBytes(c.bytes);
    }
    total += c.bytes;
    EXPECT_EQ(tessel.Stats_BytesReceived(), c.text) << total;
  }
}

TEST_F(StatisticsTest, DroppedBytesAreReceivedToo) {
  control.Start();
  control.Ask("GET /a.txt HTTP/1.0\r\n\r\n" + std::string(2048, 'x'));
  EXPECT_EQ(tessel.Stats_BytesReceived(), "2K");
}

TEST_F(StatisticsTest, SentBytesAreThoseOfLoggedAnswers) {
  control.tree.Write("a.txt", std::string(4096, 'a'));
  control.Start();
  control.Get("/a.txt");
  EXPECT_EQ(tessel.Stats_BytesSent(), "4K") << "4096 and a short header";
  control.Ask("POST /a.txt HTTP/1.0\r\n\r\n");
  EXPECT_EQ(tessel.Stats_BytesSent(), "4K") << "a forced answer is not counted";
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    tessel.TrapFileData(index, std::string(100000, 'x'), false);
  };
  EXPECT_GT(control.Get("/a.txt").size(), 100000u);
  EXPECT_EQ(tessel.Stats_BytesSent(), "4K") << "nor is one of the host";
  EXPECT_EQ(tessel.Stats_Requests(), "3") << "all of them are requests";
}

TEST_F(StatisticsTest, EveryAnswerIsARequest) {
  control.tree.Write("a.txt", "a");
  control.Start();
  struct {
    const char* request;
    const char* count;
    const char* why;
  } const cases[] = {
      {"GET /a.txt HTTP/1.0\r\n\r\n", "1", "a file"},
      {"GET /b.txt HTTP/1.0\r\n\r\n", "2", "404"},
      {"GET / HTTP/1.0\r\n\r\n", "3", "403"},
      {"HEAD / HTTP/1.0\r\n\r\n", "4", "400"},
      {"GET  HTTP/1.0\r\n\r\n", "5", "no URL, closed"},
      {"GET /a.txt HTTP/1.0\r\n\r\nGET /a.txt HTTP/1.0\r\n\r\n", "6", "one request a connection"},
      {"POST /a.txt HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc", "7", "a body"},
  };
  for (const auto& c : cases) {
    control.Ask(c.request);
    EXPECT_EQ(tessel.Stats_Requests(), c.count) << c.why;
  }
}

TEST_F(StatisticsTest, ATrappedRequestCountsWhenItIsAnswered) {
  tessel.TrapFileEnable(true);
  std::int32_t waiting = 0;
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) { waiting = index; };
  control.Start();
  RawClient client(tessel.ListeningPort());
  client.Send(control.loop, "GET /a HTTP/1.0\r\n\r\n");
  ASSERT_TRUE(Kit::RunUntil(control.loop, [&] { return waiting != 0; }));
  EXPECT_EQ(tessel.Stats_Requests(), "0");
  tessel.TrapFileData(waiting, "x", false);
  EXPECT_EQ(tessel.Stats_Requests(), "1");
  tessel.TrapFileData(waiting, "y", false);
  EXPECT_EQ(tessel.Stats_Requests(), "1") << "answered only once";
}

TEST_F(StatisticsTest, UpTimeIsDaysHoursMinutesAndSeconds) {
  control.Start();
  const std::int64_t start = control.world.utcSeconds;
  struct {
    std::int64_t seconds;
    const char* text;
  } const cases[] = {
      {0, "00:00:00:00"},     {1, "00:00:00:01"},     {59, "00:00:00:59"},           {3600, "00:01:00:00"},
      {86400, "01:00:00:00"}, {93784, "01:02:03:04"}, {100 * 86400, "100:00:00:00"},
  };
  for (const auto& c : cases) {
    control.world.utcSeconds = start + c.seconds;
    EXPECT_EQ(tessel.Stats_UpTime(), c.text) << c.seconds;
  }
}

TEST_F(StatisticsTest, UpTimeStartsAnewWithEachStartAndTheCountersGoOn) {
  control.tree.Write("a.txt", std::string(2000, 'a'));
  control.Start();
  AskWithBytes(1536);
  control.world.Advance(3'605'000);
  EXPECT_EQ(tessel.Stats_UpTime(), "00:01:00:05");
  tessel.StopServer();
  control.world.Advance(10'000);
  EXPECT_EQ(tessel.Stats_UpTime(), "00:01:00:15") << "it counts from the last start, also while stopped";
  control.Start();
  EXPECT_EQ(tessel.Stats_UpTime(), "00:00:00:00");
  EXPECT_EQ(tessel.Stats_Requests(), "1");
  EXPECT_EQ(tessel.Stats_BytesReceived(), "2K");
  EXPECT_EQ(tessel.Stats_BytesSent(), "2K");
}

TEST_F(StatisticsTest, BytesThatComeAfterTheAnswerDoNotCount) {
  control.Start();
  RawClient client(tessel.ListeningPort());
  client.Send(control.loop, "GET /none HTTP/1.0\r\n");
  client.ReceiveAll(control.loop);
  ASSERT_TRUE(client.Send(control.loop, std::string(3000, 'x')));
  Kit::Settle(control.loop);
  EXPECT_EQ(tessel.Stats_BytesReceived(), "0K");
}

TEST_F(StatisticsTest, FreeConnectionsStartAtTheWholeNumber) {
  tessel.MaxConnections(5);
  control.Start();
  EXPECT_EQ(tessel.Stats_FreeConnections(), "5/5");
  RawClient client(tessel.ListeningPort());
  client.Send(control.loop, "POST");
  Kit::Settle(control.loop);
  EXPECT_EQ(tessel.Stats_FreeConnections(), "5/5") << "no client changes it";
  tessel.MaxConnections(7);
  EXPECT_EQ(tessel.Stats_FreeConnections(), "5/7");
}

TEST_F(StatisticsTest, EveryReportIsAnError) {
  tessel.ServerIP("192.0.2.1");
  control.Start();
  EXPECT_EQ(tessel.Stats_Errors(), "1");
  EXPECT_EQ(control.errors.size(), 1u);
  tessel.StopServer();
  control.Start();
  EXPECT_EQ(tessel.Stats_Errors(), "2") << "not set back by a start";
}

}  // namespace
}  // namespace TesselServer
