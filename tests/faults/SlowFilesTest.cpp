// Files of a local disk that are not in memory when they are asked for.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "platform/tasks/Task.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

class SlowFilesTest : public testing::TestWithParam<std::size_t> {
 protected:
  void SetUp() override {
    control_.tree.Write("file.bin", bytes_);
    control_.tree.Write("other.bin", "other");
    control_.tessel.MaxConnections(4);
    control_.Start();
    Kit::BodyOf(control_.Get("/other.bin"));  // opens what stays open, the root
  }

  // Asks for a file whose reading is held up.
  void AskAndHold(Kit::RawClient& client) {
    const Kit::FailNth notInMemory("preadv2", 1, EAGAIN);
    client.Send(control_.loop, "GET /file.bin HTTP/1.0\r\n\r\n");
    Kit::Settle(control_.loop);
    EXPECT_TRUE(notInMemory.Happened());
    ASSERT_TRUE(reading_.Holds());
    EXPECT_GT(TaskPromise::living, 0);
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
