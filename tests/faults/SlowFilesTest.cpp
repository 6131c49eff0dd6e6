// Files of a local disk that are not in memory when they are asked for.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "platform/tasks/Task.h"
#include "platform/tasks/Workers.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Clients = std::vector<std::unique_ptr<Kit::RawClient>>;

class SlowFilesTest : public testing::TestWithParam<std::size_t> {
 protected:
  void SetUp() override {
    control_.tree.Write("file.bin", bytes_);
    control_.tree.Write("other.bin", "other");
    control_.tree.Write("next.bin", "next");
    control_.tessel.MaxConnections(16);
    control_.Start();
    Kit::BodyOf(control_.Get("/other.bin"));  // opens what stays open, the root
  }

  // Asks for a file whose bytes are waited for.
  void AskForCold(Kit::RawClient& client, const std::string& url = "/file.bin") {
    const std::int64_t before = TaskPromise::living;
    const Kit::FailNth notInMemory("preadv2", 1, EAGAIN);
    client.Send(control_.loop, "GET " + url + " HTTP/1.0\r\n\r\n");
    Kit::Settle(control_.loop);
    EXPECT_TRUE(notInMemory.Happened());
    EXPECT_GT(TaskPromise::living, before);
  }
  // So many clients who do.
  Clients AskForCold(int count) {
    Clients clients;
    for (int i = 0; i < count; ++i) {
      clients.push_back(std::make_unique<Kit::RawClient>(control_.tessel.ListeningPort()));
      AskForCold(*clients.back());
    }
    return clients;
  }
  // The same, and its reading is held up.
  void AskAndHold(Kit::RawClient& client) {
    AskForCold(client);
    ASSERT_TRUE(reading_.Holds());
  }

  const std::string bytes_ = std::string(GetParam(), 'x');
  Kit::HeldCall reading_{"pread"};
  Kit::TestControl control_;
};

TEST_P(SlowFilesTest, OthersAreServedWhileTheyAreRead) {
  Kit::RawClient client(control_.tessel.ListeningPort());
  AskAndHold(client);
  EXPECT_EQ(Kit::BodyOf(control_.Get("/other.bin")), "other");
  client.Poll();
  EXPECT_FALSE(client.Ended());
  reading_.LetGo();
  EXPECT_TRUE(Kit::BodyOf(client.ReceiveAll(control_.loop)) == bytes_);
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_P(SlowFilesTest, OneThatIsToBeRememberedIsNotWaitedFor) {
  control_.world.LetFilesSettle();
  const Kit::FailNth notInMemory("preadv2", 1, EAGAIN);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Kit::BodyOf(control_.Get("/other.bin")), "other") << i;
    EXPECT_EQ(TaskPromise::living, 0) << i;
  }
  EXPECT_TRUE(notInMemory.Happened());
}

TEST_P(SlowFilesTest, AStopDoesNotWaitForThem) {
  const std::size_t before = Kit::CountDescriptors();
  {
    Kit::RawClient client(control_.tessel.ListeningPort());
    AskAndHold(client);
    EXPECT_TRUE(control_.tessel.StopServer());
    EXPECT_EQ(TaskPromise::living, 0);
    EXPECT_NE(Kit::BodyOf(client.ReceiveAll(control_.loop)), bytes_);
    EXPECT_TRUE(client.Ended());
  }
  reading_.LetGo();
  control_.Start();
  EXPECT_EQ(Kit::BodyOf(control_.Get("/other.bin")), "other");
  EXPECT_TRUE(Kit::RunUntil(control_.loop, [&] { return Kit::CountDescriptors() == before; }));
}

// Two of the three threads are held up all the time, and the third one may do two readings and no more.
TEST_P(SlowFilesTest, WhatIsQueuedForClientsWhoHaveGoneIsNotReadBeforeTheNextOnes) {
  Clients first = AskForCold(Workers::kMaxOfAKind);
  ASSERT_TRUE(reading_.Holds(Workers::kMaxOfAKind));
  const std::int64_t before = TaskPromise::living;
  for (const auto& gone : AskForCold(8)) gone->Abort();
  EXPECT_TRUE(Kit::RunUntil(control_.loop, [&] { return TaskPromise::living == before; }));
  Kit::RawClient next(control_.tessel.ListeningPort());
  AskForCold(next, "/next.bin");
  reading_.LetPass(1);
  reading_.LetPass(Workers::kMaxOfAKind + 1);
  EXPECT_EQ(Kit::BodyOf(next.ReceiveAll(control_.loop)), "next");
  EXPECT_EQ(std::count_if(first.begin(), first.end(), [](auto& client) { return !client->Poll(); }),
            Workers::kMaxOfAKind - 1);
  reading_.LetGo();
  for (const auto& client : first) EXPECT_TRUE(Kit::BodyOf(client->ReceiveAll(control_.loop)) == bytes_);
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_P(SlowFilesTest, OneThatCannotBeReadThenEndsItsConnection) {
  {
    Kit::RawClient client(control_.tessel.ListeningPort());
    AskAndHold(client);
    const Kit::FailNth broken("pread", 1, EIO);
    reading_.LetGo();
    EXPECT_EQ(Kit::BodyOf(client.ReceiveAll(control_.loop)), "");
    EXPECT_TRUE(client.Ended());
  }
  EXPECT_TRUE(Kit::BodyOf(control_.Get("/file.bin")) == bytes_);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SlowFilesTest, testing::Values(1000u, 200'000u));

}  // namespace
}  // namespace TesselServer
