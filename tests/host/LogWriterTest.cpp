#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/LogWriter.h"
#include "tests/kit/FailNthMemory.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr auto kSoon = 20s;     // what is to happen happens at once; a busy machine takes longer
constexpr auto kAtOnce = 0ms;   // every block at once
constexpr auto kVeryLong = 1h;  // no block before it is whole

std::string Lost(const std::string& mark, int lines) {
  return mark + "Lost lines: " + std::to_string(lines) + " (this output was not read, or could not be written)\n";
}

// An output that the test can stop, and let refuse what it is given.
class Output {
 public:
  std::size_t Write(std::string_view bytes) {
    std::unique_lock lock(mutex_);
    ++begun_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return !stopped_; });
    const auto taken = bytes.substr(0, room_);
    if (!taken.empty()) blocks_.emplace_back(taken);
    changed_.notify_all();
    return taken.size();
  }

  void Stop() {
    Set([this] { stopped_ = true; });
  }
  void GoOn() {
    Set([this] { stopped_ = false; });
  }
  void Room(std::size_t bytes) {
    Set([this, bytes] { room_ = bytes; });
  }

  // Waits until the writer has come so often.
  bool WaitForWrites(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kSoon, [&] { return begun_ >= count; });
  }

  std::vector<std::string> Blocks() {
    const std::lock_guard lock(mutex_);
    return blocks_;
  }

  std::string Text() {
    std::string text;
    for (const auto& block : Blocks()) text += block;
    return text;
  }

 private:
  template <typename Change>
  void Set(const Change& change) {
    const std::lock_guard lock(mutex_);
    change();
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> blocks_;
  std::size_t room_ = std::string::npos;
  int begun_ = 0;
  bool stopped_ = false;
};

class LogWriterTest : public testing::Test {
 protected:
  LogWriter::Sink Sink() {
    return [kept = output](std::string_view bytes) { return kept->Write(bytes); };
  }

  static bool Finish(LogWriter& log) {
    log.End();
    return log.WaitUntil(std::chrono::steady_clock::now() + kSoon);
  }

  const std::shared_ptr<Output> output = std::make_shared<Output>();  // the writing thread may outlive the test
};

TEST_F(LogWriterTest, ALineAfterASilenceIsWrittenAtOnce) {
  LogWriter log(Sink(), "#", kVeryLong);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), ElementsAre("one\n"));
}

TEST_F(LogWriterTest, LinesThatComeCloseTogetherAreOneBlock) {
  LogWriter log(Sink(), "#", kVeryLong);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  log.Put("two");
  log.Put("");
  log.Put("three");
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), ElementsAre("one\n", "two\n\nthree\n"));
}

TEST_F(LogWriterTest, AWholeBlockIsWrittenBeforeItsTime) {
  LogWriter log(Sink(), "#", kVeryLong);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  const std::string half(LogWriter::kBlockBytes / 2, 'x');
  log.Put(half);
  log.Put(half);
  ASSERT_TRUE(output->WaitForWrites(2));
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), ElementsAre("one\n", half + "\n" + half + "\n"));
}

TEST_F(LogWriterTest, LinesComeWithinTheIntervalWithoutAnotherEvent) {
  LogWriter log(Sink(), "#", 1ms);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  log.Put("two");
  ASSERT_TRUE(output->WaitForWrites(2));
  EXPECT_TRUE(Finish(log));
  EXPECT_EQ(output->Text(), "one\ntwo\n");
}

TEST_F(LogWriterTest, LinesWithoutRoomAreCountedWhereTheyWouldBe) {
  output->Stop();
  LogWriter log(Sink(), "#", kAtOnce);
  log.Put("being written");
  ASSERT_TRUE(output->WaitForWrites(1));
  const std::string most(LogWriter::kMaxWaitingBytes - 10, 'x');
  log.Put(most);
  log.Put("too long for the room");
  log.Put("short");  // would find room: lines after a lost one are lost too, so that the count has one place
  output->GoOn();
  ASSERT_TRUE(output->WaitForWrites(3));
  log.Put("later");
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), ElementsAre("being written\n", most + "\n", Lost("#", 2), "later\n"));
}

TEST_F(LogWriterTest, ALineThatIsLongerThanTheRoomIsLost) {
  LogWriter log(Sink(), "#", kAtOnce);
  log.Put(std::string(LogWriter::kMaxWaitingBytes, 'x'));
  ASSERT_TRUE(output->WaitForWrites(1));
  EXPECT_TRUE(Finish(log));
  EXPECT_EQ(output->Text(), Lost("#", 1));
}

TEST_F(LogWriterTest, LinesLostToAnOutputThatRefusesAreReportedWhenItTakesMore) {
  LogWriter log(Sink(), "tessel: ", kAtOnce);
  output->Room(0);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  log.Put("two");  // the count is tried first, and refused as well
  ASSERT_TRUE(output->WaitForWrites(2));
  output->Room(std::string::npos);
  log.Put("three");
  EXPECT_TRUE(Finish(log));
  EXPECT_EQ(output->Text(), Lost("tessel: ", 2) + "three\n");
}

TEST_F(LogWriterTest, ALineThatIsCutIsEndedAndCounted) {
  LogWriter log(Sink(), "#", kAtOnce);
  output->Stop();
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  log.Put("two");
  log.Put("three");
  output->Room(6);
  output->GoOn();
  ASSERT_TRUE(output->WaitForWrites(2));
  output->Room(std::string::npos);
  log.Put("four");
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Text(), testing::StartsWith("one\ntwo\nth"));
  EXPECT_THAT(output->Text(), EndsWith("\n" + Lost("#", 1) + "four\n"));
}

TEST_F(LogWriterTest, ALineForWhichThereIsNoMemoryIsLostAsAWhole) {
  const std::size_t inPlace = std::string().capacity();  // the line fits without memory of its own, its end does not
  for (const std::size_t length : {inPlace, std::size_t{1000}}) {
    const auto own = std::make_shared<Output>();
    LogWriter log([own](std::string_view bytes) { return own->Write(bytes); }, "#", kVeryLong);
    log.Put("one");
    ASSERT_TRUE(own->WaitForWrites(1));
    const std::string line(length, 'x');
    {
      const Kit::FailNthMemory fault(1);
      EXPECT_NO_THROW(log.Put(line));
      EXPECT_TRUE(fault.Happened());
    }
    log.Put("two");  // lost too, so that the count has one place
    EXPECT_TRUE(Finish(log));
    EXPECT_EQ(own->Text(), "one\n" + Lost("#", 2)) << length;
  }
}

TEST_F(LogWriterTest, WhatCannotBeWrittenForWantOfMemoryIsCounted) {
  bool failed = false;
  LogWriter log(
      [&failed, kept = output](std::string_view bytes) {
        if (!std::exchange(failed, true)) throw std::bad_alloc();
        return kept->Write(bytes);
      },
      "#", kAtOnce);
  log.Put("one");
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), IsEmpty());
  EXPECT_TRUE(failed);
}

TEST_F(LogWriterTest, TheEndWritesWhatWaits) {
  LogWriter log(Sink(), "#", kVeryLong);
  log.Put("one");
  ASSERT_TRUE(output->WaitForWrites(1));
  log.Put("two");
  log.End();
  log.Put("three");
  EXPECT_TRUE(Finish(log));
  EXPECT_EQ(output->Text(), "one\ntwo\n");
}

TEST_F(LogWriterTest, TheEndWithoutLinesWritesNothing) {
  LogWriter log(Sink(), "#");
  EXPECT_TRUE(Finish(log));
  EXPECT_THAT(output->Blocks(), IsEmpty());
}

TEST_F(LogWriterTest, TheEndDoesNotWaitForAnOutputThatIsStuck) {
  output->Stop();
  {
    LogWriter log(Sink(), "#", kAtOnce);
    log.Put("one");
    ASSERT_TRUE(output->WaitForWrites(1));
    log.End();
    EXPECT_FALSE(log.WaitUntil(std::chrono::steady_clock::now()));
  }
  EXPECT_THAT(output->Blocks(), IsEmpty());
  output->GoOn();  // what was waiting is written although the writer has gone
  EXPECT_TRUE(output->WaitForWrites(1));
}

}  // namespace
}  // namespace TesselServer
