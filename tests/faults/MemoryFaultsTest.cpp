// Memory that runs out once, anywhere on the road of a request or while a folder is remembered: whatever becomes of
// that one, nothing is lost to those who come after it.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/files/FileCache.h"
#include "platform/files/FileStamp.h"
#include "platform/files/FileSystem.h"
#include "platform/files/FolderCache.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNthMemory.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::FailNthMemory;
using Kit::RawClient;
using Kit::TestControl;

struct FaultyRequest {
  const char* line;
  bool isForHost = false;  // which answers every request then
};

class MemoryFaultsTest : public testing::TestWithParam<FaultyRequest> {};

TEST_P(MemoryFaultsTest, TheOnlySlotIsFreeAgain) {
  constexpr int kMost = 2000;  // no request below needs nearly as many
  const std::string request =
      std::string(GetParam().line) + " HTTP/1.0\r\nUser-Agent: " + std::string(100, 'u') + "\r\n\r\n";
  TestControl control;
  control.tree.Write("index.html", "page");
  control.tree.Write("Folder/file.txt", "file");
  control.tree.Write("Folder/Its name is long enough to need memory.txt", "file");
  control.tessel.MaxConnections(1);
  control.tessel.TrapFileEnable(GetParam().isForHost);
  control.tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    control.tessel.TrapFileData(index, "page", false);
  };
  control.tessel.DirectoryBrowseEnable(true);
  const std::int32_t port = control.Start();
  const auto letTimePass = [&control] {  // until no connection lingers
    for (int i = 0; i < 20; ++i) {
      control.world.Advance(250);
      for (int turn = 0; turn < 3; ++turn) control.loop.RunOnce(0);
    }
  };
  ASSERT_NE(control.Ask(request), "");
  letTimePass();
  const std::size_t before = Kit::CountDescriptors();
  bool happened = true;
  int nth = 0;
  while (happened && nth < kMost) {
    ++nth;
    {
      RawClient client(port);
      client.Send(control.loop, request);
      const FailNthMemory fault(nth);
      try {
        for (int turn = 0; turn < 4; ++turn) control.loop.RunOnce(0);
      } catch (const std::bad_alloc&) {
      }
      happened = fault.Happened();
    }
    letTimePass();
    ASSERT_EQ(BodyOf(control.Get("/")), "page") << "request for memory number " << nth;
    ASSERT_EQ(Kit::CountDescriptors(), before) << "request for memory number " << nth;
  }
  EXPECT_FALSE(happened) << "it needs more than " << kMost;
  EXPECT_GT(nth, 5) << "a request needs memory";
}

INSTANTIATE_TEST_SUITE_P(
    Requests, MemoryFaultsTest,
    testing::Values(FaultyRequest{"GET /"}, FaultyRequest{"GET /FOLDER/FILE.TXT"}, FaultyRequest{"GET /Folder/"},
                    FaultyRequest{"GET /missing"}, FaultyRequest{"POST /"}, FaultyRequest{"GET /Folder/file.txt", true},
                    FaultyRequest{"GET /FOLDER/ITS%20name%20is%20long%20enough%20to%20need%20memory.txt", true}),
    [](const auto& each) { return "Number" + std::to_string(each.index); });

TEST(BodyMemoryFaultsTest, ARequestThatIsGivenUpIsClosedAndGivesItsShareBack) {
  constexpr int kMost = 2000;
  const std::string head = "POST / HTTP/1.0\r\nContent-Length: 1000\r\n\r\n";
  TestControl control;
  control.tree.Write("index.html", "page <%=FunctionX()%>");
  control.tessel.HTMLFunctionsEnable(true);
  control.tessel.CallFunction = [&](std::int32_t& index, std::string&) { control.tessel.ReturnData(index, "date"); };
  control.tessel.MaxConnections(5);
  control.tessel.MaxBodyBytesTotal(1000);
  const std::int32_t port = control.Start();
  ASSERT_NE(control.Get("/"), "");
  int closed = 0;
  bool happened = true;
  int nth = 0;
  while (happened && nth < kMost) {
    ++nth;
    RawClient client(port);
    {
      const FailNthMemory fault(nth);
      try {
        client.Send(control.loop, head + std::string(500, 'b'));
        for (int turn = 0; turn < 4; ++turn) control.loop.RunOnce(0);
        client.Send(control.loop, std::string(495, 'b'));
        for (int turn = 0; turn < 4; ++turn) control.loop.RunOnce(0);
      } catch (const std::bad_alloc&) {
      }
      happened = fault.Happened();
    }
    if (!happened) break;
    if (!control.errors.empty()) {  // the request was given up
      control.errors.clear();
      ++closed;
      EXPECT_TRUE(Kit::RunUntil(control.loop, [&] { return client.Poll(); })) << "request for memory number " << nth;
      const std::string other = control.Ask(head + std::string(1000, 'b'));
      EXPECT_TRUE(other.starts_with("HTTP/1.0 200")) << "request for memory number " << nth << "\n" << other;
    }
    client.Abort();
    Kit::Settle(control.loop);
    control.world.Advance(3000);
    Kit::Settle(control.loop);
    control.errors.clear();
  }
  EXPECT_FALSE(happened);
  EXPECT_GT(closed, 0);
}

// Turns are long here, so those who came together are told of one after the other, by notices. Of these only some need
// memory, so it is tried often.
TEST(ArrivalsMemoryFaultsTest, OneOfThoseWhoCameTogetherMissesItsAnswerAtMost) {
  constexpr int kRounds = 20;
  constexpr int kMost = 1000;
  constexpr int kTogether = 4;
  const std::string request = "GET / HTTP/1.0\r\n\r\n";
  TestControl control;
  control.tree.Write("index.html", "page");
  control.tessel.MaxConnections(2 * kTogether);
  control.tessel.HTTPLog = [&](std::string&) { control.world.Advance(1); };
  const std::int32_t port = control.Start();
  ASSERT_NE(control.Ask(request), "");
  // Whether memory ran out when it was asked for the `nth` time.
  const auto happens = [&](int nth) {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < kTogether; ++i) {
      clients.push_back(std::make_unique<RawClient>(port));
      send(clients.back()->Descriptor(), request.data(), request.size(), MSG_NOSIGNAL);
    }
    bool happened = false;
    {
      const FailNthMemory fault(nth);
      try {
        for (int turn = 0; turn < 20; ++turn) control.loop.RunOnce(0);
      } catch (const std::bad_alloc&) {
      }
      happened = fault.Happened();
    }
    const auto mostHaveEnded = [&] {
      return std::count_if(clients.begin(), clients.end(), [](const auto& each) { return each->Poll(); }) >=
             kTogether - 1;
    };
    EXPECT_TRUE(Kit::RunUntil(control.loop, mostHaveEnded)) << "request for memory number " << nth;
    return happened;
  };
  for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
    int nth = 1;
    while (nth < kMost && !testing::Test::HasFailure() && happens(nth)) ++nth;
    EXPECT_LT(nth, kMost) << "it needs more";
    EXPECT_GT(nth, 5) << "requests need memory";
  }
}

TEST(FolderCacheFaultsTest, ItsCountIsRightWhereverMemoryRunsOut) {
  constexpr std::size_t kRoomForTwo = 2000;
  const Kit::TemporaryTree tree;
  for (const char* name : {"a/x", "b/x", "c/x", "d/x"}) tree.Write(name, "1");
  const std::string names[] = {"a", "b", "c", "d"};
  const OpenFile folders[] = {OpenPath(tree.Text() + "/a"), OpenPath(tree.Text() + "/b"), OpenPath(tree.Text() + "/c"),
                              OpenPath(tree.Text() + "/d")};
  if (!KeepsChangeTimes(folders[0].Descriptor(), ReadFrom::kNames)) GTEST_SKIP() << "nothing is remembered here";
  Kit::FakeWorld world;
  world.LetFilesSettle();
  bool happened = true;
  for (int nth = 1; happened; ++nth) {
    FolderCache cache(tree.Text(), world, kRoomForTwo);
    const auto namesOf = [&](std::size_t i) { return cache.NamesOf(names[i], folders[i].Descriptor()); };
    namesOf(0);
    ASSERT_NE(namesOf(0), nullptr);
    {
      const FailNthMemory fault(nth);
      for (int round = 0; round < 2; ++round) namesOf(1);
      happened = fault.Happened();
    }
    for (std::size_t i = 0; i < 4; ++i) namesOf(i);
    for (int round = 0; round < 2; ++round) {
      for (std::size_t i = 0; i < 4; ++i) EXPECT_NE(namesOf(i), nullptr) << nth;
    }
    EXPECT_GT(cache.Count(), 0u) << nth;
    EXPECT_GT(cache.Bytes(), 0u) << nth;
    EXPECT_LE(cache.Bytes(), kRoomForTwo) << nth;
    EXPECT_EQ(namesOf(3), namesOf(3)) << nth;
  }
}

TEST(FileCacheFaultsTest, AFileIsServedWhereverMemoryRunsOut) {
  const Kit::TemporaryTree tree;
  const OpenFile file = OpenPath(tree.Write("a", "bytes"));
  if (!KeepsChangeTimes(file.Descriptor(), ReadFrom::kContents)) GTEST_SKIP() << "nothing is remembered here";
  Kit::FakeWorld world;
  world.LetFilesSettle();
  bool happened = true;
  for (int nth = 1; happened; ++nth) {
    FileCache cache(tree.Text(), world);
    {
      const FailNthMemory fault(nth);
      for (int i = 0; i < 2; ++i) cache.Admit("a", file.Descriptor(), file.Stamp());
      happened = fault.Happened();
    }
    cache.Admit("a", file.Descriptor(), file.Stamp());
    ASSERT_NE(cache.Admit("a", file.Descriptor(), file.Stamp()), nullptr) << nth;
    ASSERT_NE(cache.Find("a"), nullptr) << nth;
    EXPECT_EQ(*cache.Find("a")->contents, "bytes") << nth;
  }
}

}  // namespace
}  // namespace TesselServer
