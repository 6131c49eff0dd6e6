// Files that are sent while their disk has to be waited for.

#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/files/SlowDisk.h"
#include "platform/loop/Timer.h"
#include "platform/sockets/OutgoingFile.h"
#include "tests/kit/ColdFile.h"
#include "tests/kit/Connections.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SlowDisk.h"
#include "tests/kit/SocketOwner.h"
#include "tests/kit/SystemCalls.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using ConnectionState = TcpConnection::State;
using Lines = std::vector<std::string>;

Answer AnswerWith(const std::string& path, std::size_t size) {
  return {"head", FileBody{OpenPath(path), static_cast<std::int64_t>(size)}};
}

// ---- A file system that keeps its readers waiting.

class SlowFileTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Kit::SlowDisk::IsPossible()) GTEST_SKIP() << "there is no /dev/fuse for a file system in user space";
    disk_.emplace(tree_.MakeFolder("site"));
    port_ = owner_.Listen(2);
    owner_.onData = [this](std::int32_t index) {
      const bool wantsFile = owner_.received[index].starts_with("file");
      if (wantsFile && owner_.Count("data 2") > 1) return;  // what follows its request
      owner_.sockets.SendData(index, wantsFile ? FileAnswer() : Kit::TextAnswer("quick"));
    };
    owner_.onSent = [this](std::int32_t index) { owner_.sockets.Close(index); };
  }

  void TearDown() override {
    if (disk_) disk_->Release();  // the loop waits for its threads
  }

  // The file that is sent.
  void Write(std::size_t size) {
    bytes_ = Kit::Pattern(size);
    tree_.Write("site/file", bytes_);
  }
  std::string Path() const { return disk_->Path() + "/file"; }
  Answer FileAnswer() const { return AnswerWith(Path(), bytes_.size()); }

  // A client whose answer waits for the disk, which is held.
  std::unique_ptr<Kit::RawClient> Waiting() {
    disk_->Hold();
    auto client = std::make_unique<Kit::RawClient>(port_);
    client->Send(loop_, "file");
    EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return owner_.Count("data 2") > 0; }));
    Kit::Settle(loop_);
    EXPECT_EQ(owner_.Count("sent 2"), 0u);
    EXPECT_GT(TaskPromise::living, 0) << "it waits for the disk";
    return client;
  }

  // How many descriptors are open once there is a thread and all is sent.
  std::size_t CountWithAThread() {
    Write(1000);
    const std::size_t before = Kit::CountDescriptors();
    const auto client = Waiting();
    disk_->Release();
    client->ReceiveAll(loop_);
    client->Close();
    Kit::Settle(loop_);
    EXPECT_TRUE(ComesDownTo(before));
    return before;
  }
  // Whether what the process has open comes down to `count` again, when the threads have come back.
  bool ComesDownTo(std::size_t count) {
    return Kit::RunUntil(loop_, [&] { return Kit::CountDescriptors() == count; });
  }

  Kit::TemporaryTree tree_;
  std::optional<Kit::SlowDisk> disk_;
  std::string bytes_;
  Kit::FakeWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  Kit::SocketOwner owner_{loop_, &turns_};
  std::int32_t port_ = 0;
};

TEST_F(SlowFileTest, OthersAreServedWhileItsDiskIsWaitedFor) {
  for (const std::size_t size : {1000u, 65'536u, 65'537u, 131'072u, 131'073u, 3'000'000u}) {
    owner_.heard.clear();
    owner_.received.clear();
    Write(size);
    const auto client = Waiting();
    EXPECT_EQ(Kit::Exchange(loop_, port_, "another"), "quick") << size;
    int ticks = 0;
    Timer timer(loop_);
    Kit::Every(timer, 10, [&] { ++ticks; });
    world_.Advance(10);
    Kit::Settle(loop_);
    EXPECT_EQ(ticks, 1) << size;
    EXPECT_EQ(owner_.Count("sent 2"), 0u) << size;
    disk_->Release();
    EXPECT_TRUE(client->ReceiveAll(loop_) == "head" + bytes_) << size << ": " << client->Received().size();
    EXPECT_EQ(owner_.Count("sent 2"), 1u) << size;
    EXPECT_EQ(TaskPromise::living, 0) << size;
  }
}

TEST_F(SlowFileTest, NothingGoesOnMeanwhile) {
  Write(1000);
  const auto client = Waiting();
  for (int i = 0; i < 20; ++i) EXPECT_FALSE(loop_.RunOnce(0)) << "its socket takes bytes, and none are there";
  disk_->Release();
  EXPECT_EQ(client->ReceiveAll(loop_), "head" + bytes_);
}

TEST_F(SlowFileTest, AllElementsMayWaitAtOnce) {
  Write(200'000);
  tree_.Write("site/other", bytes_);
  const auto first = Waiting();
  const auto second = std::make_unique<Kit::RawClient>(port_);
  owner_.onData = [this](std::int32_t index) {
    owner_.sockets.SendData(index, AnswerWith(disk_->Path() + "/other", bytes_.size()));
  };
  second->Send(loop_, "file");
  Kit::Settle(loop_);
  EXPECT_EQ(owner_.Count("sent 2") + owner_.Count("sent 3"), 0u);
  disk_->Release();
  EXPECT_TRUE(first->ReceiveAll(loop_) == "head" + bytes_);
  EXPECT_TRUE(second->ReceiveAll(loop_) == "head" + bytes_);
}

TEST_F(SlowFileTest, IsSendingAllTheTime) {
  Write(1000);
  const auto client = Waiting();
  EXPECT_ANY_THROW(owner_.sockets.SendData(2, Kit::TextAnswer("second")));
  client->Send(loop_, "more");
  Kit::Settle(loop_);
  EXPECT_EQ(owner_.received[2], "filemore") << "input is reported meanwhile";
  client->EndSending();
  Kit::Settle(loop_);
  EXPECT_EQ(owner_.Count("close 2"), 1u);
  EXPECT_EQ(owner_.sockets.State(2), SocketState::kConnected) << "the answer is under way";
  disk_->Release();
  EXPECT_EQ(client->ReceiveAll(loop_), "head" + bytes_);
}

TEST_F(SlowFileTest, AResetIsSeenWhileItWaits) {
  Write(1000);
  const auto client = Waiting();
  client->Abort();
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return owner_.Count("error 2 10054") > 0; }));
  EXPECT_EQ(owner_.sockets.State(2), SocketState::kError);
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_F(SlowFileTest, AResetAfterTheEndIsSeenToo) {
  Write(1000);
  const auto client = Waiting();
  client->EndSending();
  Kit::Settle(loop_);
  client->Abort();
  EXPECT_TRUE(Kit::RunUntil(loop_, [this] { return owner_.Count("error 2 10054") > 0; }));
  EXPECT_EQ(TaskPromise::living, 0);
}

TEST_F(SlowFileTest, MayBeClosedWhileItWaits) {
  const std::size_t before = CountWithAThread();
  void (SocketArray::*const ways[])(std::int32_t) = {&SocketArray::Close, &SocketArray::Reload, &SocketArray::Unload};
  for (const auto way : ways) {
    owner_.heard.clear();
    owner_.received.clear();
    const auto client = Waiting();
    (owner_.sockets.*way)(2);
    EXPECT_EQ(TaskPromise::living, 0);
    client->ReceiveAll(loop_);
    if (!owner_.sockets.IsLoaded(2)) owner_.sockets.Load(2);
    owner_.received.clear();
    EXPECT_EQ(Kit::Exchange(loop_, port_, "another"), "quick") << "the element is free at once";
    client->Close();
    disk_->Release();
    EXPECT_TRUE(ComesDownTo(before));
    EXPECT_EQ(owner_.Count("sent 2"), 1u) << "of the other one";
  }
}

TEST_F(SlowFileTest, MayBeDestroyedWhileItWaits) {
  const std::size_t before = CountWithAThread();
  for (int i = 0; i < 3; ++i) {
    auto owner = std::make_unique<Kit::SocketOwner>(loop_, &turns_);
    owner->onData = [&](std::int32_t index) { owner->sockets.SendData(index, FileAnswer()); };
    const std::int32_t port = owner->Listen(1);
    disk_->Hold();
    Kit::RawClient client(port);
    client.Send(loop_, "file");
    Kit::Settle(loop_);
    EXPECT_GT(TaskPromise::living, 0);
    owner.reset();
    EXPECT_EQ(TaskPromise::living, 0);
    client.ReceiveAll(loop_);
    client.Close();
    disk_->Release();
    EXPECT_TRUE(ComesDownTo(before)) << i;
  }
}

TEST_F(SlowFileTest, AFileThatBecameShorterEndsTheConnection) {
  for (const std::size_t size : {1000u, 300'000u}) {
    owner_.heard.clear();
    owner_.received.clear();
    Write(size);
    const auto client = Waiting();
    std::filesystem::resize_file(tree_.Text() + "/site/file", 500);
    disk_->Release();
    const std::string& received = client->ReceiveAll(loop_);
    EXPECT_EQ(owner_.Count("error 2 10053"), 1u) << size;
    EXPECT_EQ(received, "head" + bytes_.substr(0, 500)) << size;
    owner_.sockets.Close(2);
  }
}

TEST_F(SlowFileTest, WithoutThreadsItIsReadInTheCall) {
  workers_.Count(0);
  for (const std::size_t size : {1000u, 400'000u}) {
    owner_.received.clear();
    owner_.heard.clear();
    Write(size);
    EXPECT_TRUE(Kit::Exchange(loop_, port_, "file") == "head" + bytes_) << size;
    EXPECT_EQ(TaskPromise::living, 0);
  }
}

TEST_F(SlowFileTest, AStateOfItsOwn) {
  Write(1000);
  disk_->Hold();
  DiskAccess disk(turns_, world_);
  Kit::ConnectionClient client;
  Kit::TcpPair pair;
  const auto connection = Kit::Adopted(loop_, client, pair, &disk);
  EXPECT_EQ(connection->Send(FileAnswer(), true), 0);
  EXPECT_EQ(connection->Status(), ConnectionState::kFetching);
  EXPECT_EQ(connection->Send({"more", ""}, false), ENOTCONN);
  connection->AnswerPending(false);
  EXPECT_EQ(connection->Status(), ConnectionState::kFetching);
  disk_->Release();
  EXPECT_TRUE(Kit::RunUntil(loop_, [&] { return !client.heard.empty(); }));
  EXPECT_EQ(client.heard, Lines{"sent"});
  EXPECT_EQ(connection->Status(), ConnectionState::kReceiving);
  connection->Close();
  EXPECT_EQ(pair.PeerReads(), "head" + bytes_);
}

// ---- Local disks.

class LocalFileTest : public testing::Test {
 protected:
  OutgoingFile Open(const std::string& path, DiskAccess* disk) {
    OpenFile file = OpenPath(path);
    const ImmediateReader reader(file.Descriptor());
    return OutgoingFile(std::move(file), reader, disk);
  }
  void Fetch(OutgoingFile& file, std::int64_t offset, std::int64_t bytes) {
    const RunningTask fetching = RunningTask::Start(file.Fetch(offset, bytes));
    ASSERT_TRUE(Kit::RunUntil(loop_, [&] { return fetching.IsDone(); }));
  }

  Kit::TemporaryTree tree_;
  Kit::FakeWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  DiskAccess disk_{turns_, world_};
};

TEST_F(LocalFileTest, WhatWasReadBesideTheLoopIsSentFromMemory) {
  constexpr std::int64_t kSize = 300'000;
  const std::string bytes = Kit::Pattern(kSize);
  OutgoingFile file = Open(tree_.Write("file", bytes), &disk_);
  Kit::TcpPair pair;
  std::string received;
  for (std::int64_t sent = 0; sent < kSize;) {
    Fetch(file, sent, kSize - sent);
    EXPECT_FALSE(file.WouldWait(sent, kSize - sent));
    const ssize_t count = file.Send(pair.Own(), sent, kSize - sent, false);
    EXPECT_LE(count, OutgoingFile::kBytesPerReading) << "what comes after it may have to be waited for";
    ASSERT_GT(count, 0);
    sent += count;
    received += pair.PeerReads();
  }
  EXPECT_TRUE(received + pair.PeerReadsToTheEnd() == bytes);
}

TEST_F(LocalFileTest, WhatCannotBeReadBesideTheLoopFails) {
  Kit::TcpPair pair;
  OutgoingFile folder = Open(tree_.MakeFolder("folder"), &disk_), file = Open(tree_.Write("file", "bytes"), &disk_);
  Fetch(folder, 0, 1);
  EXPECT_EQ(folder.Send(pair.Own(), 0, 1, false), -EISDIR);
  Fetch(file, 5, 1);
  EXPECT_EQ(file.Send(pair.Own(), 5, 1, false), 0) << "its end";
}

TEST_F(LocalFileTest, IsWaitedForWhereItsFirstByteOrItsLastIsNotInMemory) {
  constexpr std::int64_t kSize = 100'000;
  const std::string path = tree_.Write("file", std::string(kSize, 'x'));
  for (const std::int64_t inMemory : {std::int64_t{0}, kSize - 1}) {
    bool waits = false;  // a disk may be as fast as memory, now and then
    for (int i = 0; i < 100 && !waits; ++i) {
      if (!Kit::MakeCold(path)) GTEST_SKIP() << Kit::kNoColdFiles;
      OutgoingFile file = Open(path, &disk_), unaware = Open(path, nullptr);
      EXPECT_FALSE(unaware.WouldWait(0, kSize)) << "it waits in the call";
      Kit::ReadAlone(path, inMemory);
      waits = file.WouldWait(0, kSize);
    }
    if (!waits) GTEST_SKIP() << Kit::kFastDisk;
  }
}

TEST_F(LocalFileTest, WhatIsInMemoryCostsOneCallAStep) {
  const std::string small = tree_.Write("small", Kit::Pattern(1000));
  const std::string large = tree_.Write("large", Kit::Pattern(1'000'000));
  if (MayWait(OpenPath(small).Descriptor())) GTEST_SKIP() << "the temporary folder is on a file system that may wait";
  Kit::TcpPair pair;
  const auto send = [&](Answer answer, std::int64_t& steps) {
    Outgoing outgoing(std::move(answer), true, &disk_);
    for (steps = 1; outgoing.Step(pair.Own()) != Outgoing::Result::kDone && steps < 1000; ++steps) pair.PeerReads();
  };
  std::int64_t steps = 0;
  send(AnswerWith(small, 1000), steps);  // the file system is known from here on
  auto first = AnswerWith(small, 1000);
  const auto calls = Kit::SystemCallsOf([&] { Outgoing(std::move(first), true, &disk_).Step(pair.Own()); });
  if (!calls) GTEST_SKIP() << "no process may be traced";
  ASSERT_EQ(calls->size(), 3u);
  EXPECT_TRUE(calls->front() == SYS_preadv2 || calls->front() == SYS_pread64);
  EXPECT_TRUE(std::count(calls->begin(), calls->end(), SYS_sendmsg) == 1);
  EXPECT_TRUE(std::count(calls->begin(), calls->end(), SYS_close) == 1);

  const auto all = Kit::SystemCallsOf([&] { send(AnswerWith(large, 1'000'000), steps); });
  ASSERT_TRUE(all);
  const auto asked = std::count(all->begin(), all->end(), SYS_preadv2);
  const auto sent = std::count(all->begin(), all->end(), SYS_sendfile);
  EXPECT_GE(sent, 4);
  EXPECT_LE(asked, sent + 1);
}

}  // namespace
}  // namespace TesselServer
