#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LongMemory.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;

// A world in which whatever asks for the time finds that its turn is over.
class HastyWorld : public Kit::FakeWorld {
 public:
  std::int64_t MonotonicMicroseconds() const override { return now_ += EventLoop::kMicrosecondsPerTurn; }

 private:
  mutable std::int64_t now_ = 0;
};

// How many bytes of the memory are there; none where it was unmapped.
std::size_t BytesThere(const char* memory, std::size_t bytes) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(memory) / page * page;
  std::vector<unsigned char> pages((bytes + page - 1) / page);
  if (mincore(reinterpret_cast<void*>(begin), pages.size() * page, pages.data()) != 0) return 0;
  return page * static_cast<std::size_t>(
                    std::count_if(pages.begin(), pages.end(), [](unsigned char each) { return (each & 1) != 0; }));
}

class LongMemoryTest : public testing::Test {
 protected:
  // Runs one turn in which `task` is called.
  void TurnWith(std::function<void()> task) {
    loop.Post(std::move(task));
    loop.RunOnce(0);
  }

  HastyWorld world;
  EventLoop loop{world};
};

TEST_F(LongMemoryTest, ALongTextGoesAStretchATurn) {
  std::string text(8 * kMebibyte, 'x');
  const char* const memory = text.data();
  std::size_t before = BytesThere(memory, 8 * kMebibyte);
  ASSERT_GE(before, 8 * kMebibyte);
  TurnWith([&] { GiveBack(text); });
  EXPECT_TRUE(text.empty());
  int turns = 1;
  while (BytesThere(memory, 8 * kMebibyte) > kMebibyte) {
    const std::size_t now = BytesThere(memory, 8 * kMebibyte);
    EXPECT_LE(before - now, kMebibyte + 8192);
    before = now;
    ASSERT_TRUE(loop.RunOnce(0));
    ++turns;
  }
  EXPECT_GE(turns, 7);
  EXPECT_LE(turns, 9);
}

TEST_F(LongMemoryTest, ManyShortTextsDoNotGoInOneTurn) {
  std::vector<std::weak_ptr<std::string>> texts;
  TurnWith([&] {
    for (int i = 0; i < 1000; ++i) {
      auto text = std::make_shared<std::string>(100, 'x');
      texts.push_back(text);
      LongMemory::OfThisTurn()->Drop(text, text->data(), text->size());
    }
  });
  const auto gone = [&] {
    return std::count_if(texts.begin(), texts.end(), [](const auto& each) { return each.expired(); });
  };
  for (int turns = 0; gone() < 1000; ++turns) {
    const auto before = gone();
    ASSERT_TRUE(loop.RunOnce(0));
    EXPECT_LE(gone() - before, 100);
    EXPECT_GT(gone(), before);
  }
}

TEST_F(LongMemoryTest, TheLastOwnerOfASharedTextGivesItBack) {
  auto text = ShareLong(std::string(4 * kMebibyte, 'x'));
  auto other = text;
  const char* const memory = text->data();
  TurnWith([&] { text.reset(); });
  EXPECT_EQ(*other, std::string(4 * kMebibyte, 'x'));
  TurnWith([&] { other.reset(); });
  EXPECT_GE(BytesThere(memory, 4 * kMebibyte), 2 * kMebibyte);
  for (int turn = 0; turn < 4; ++turn) loop.RunOnce(0);
  EXPECT_LE(BytesThere(memory, 4 * kMebibyte), 8192u);
  EXPECT_FALSE(loop.RunOnce(0)) << "there is nothing left to do";
}

TEST_F(LongMemoryTest, SeveralGoOneAfterTheOther) {
  std::vector<std::string> texts(3, std::string(2 * kMebibyte, 'x'));
  TurnWith([&] {
    for (std::string& text : texts) GiveBack(text);
  });
  int turns = 0;
  while (loop.RunOnce(0)) ++turns;
  EXPECT_GE(turns, 4);
  EXPECT_LE(turns, 7);
}

TEST_F(LongMemoryTest, BlocksGoInStretchesToo) {
  constexpr std::size_t kBytes = 4 * kMebibyte;
  auto* const block = static_cast<char*>(LongBlocks()->allocate(kBytes));
  std::fill_n(block, kBytes, 'x');
  TurnWith([&] { LongBlocks()->deallocate(block, kBytes); });
  EXPECT_GE(BytesThere(block, kBytes), 2 * kMebibyte);
  for (int turn = 0; turn < 4; ++turn) loop.RunOnce(0);
  EXPECT_LE(BytesThere(block, kBytes), 8192u);
}

TEST_F(LongMemoryTest, PiecesThatAreLongAllTogetherGoInStretches) {
  constexpr std::size_t kBytesOfPiece = 64 * 1024;
  std::vector<std::string> texts(64, std::string(kBytesOfPiece, 'x'));
  std::vector<std::vector<int>> few(2, std::vector<int>(100));
  TurnWith([&] {
    GiveBackPieces(texts);
    GiveBackPieces(few);
  });
  EXPECT_TRUE(texts.empty());
  EXPECT_TRUE(few.empty());
  int turns = 0;
  while (loop.RunOnce(0)) ++turns;
  EXPECT_GE(turns, 3);
  EXPECT_LE(turns, 5);
}

TEST_F(LongMemoryTest, WhatIsShortAndWhatNoTurnWaitsForGoesAtOnce) {
  std::string shortText(1000, 'x');
  TurnWith([&] { GiveBack(shortText); });
  EXPECT_EQ(shortText.capacity(), std::string().capacity());
  EXPECT_FALSE(loop.RunOnce(0));
  std::string longText(4 * kMebibyte, 'x');
  GiveBack(longText);
  EXPECT_EQ(longText.capacity(), std::string().capacity());
  EXPECT_FALSE(loop.RunOnce(0));
}

TEST_F(LongMemoryTest, ALoopInsideAHandlerOfAnotherTakesItsOwn) {
  HastyWorld innerWorld;
  EventLoop inner(innerWorld);
  std::string first(4 * kMebibyte, 'x');
  std::string second(4 * kMebibyte, 'x');
  TurnWith([&] {
    inner.Post([&] { GiveBack(first); });
    inner.RunOnce(0);
    GiveBack(second);
  });
  EXPECT_TRUE(inner.RunOnce(0));
  EXPECT_TRUE(loop.RunOnce(0));
}

TEST(LongMemoryEndTest, ALoopThatIsDestroyedDropsWhatIsLeft) {
  std::string text(4 * kMebibyte, 'x');
  {
    HastyWorld world;
    EventLoop loop(world);
    loop.Post([&] { GiveBack(text); });
    loop.RunOnce(0);
  }
  EXPECT_TRUE(text.empty());  // and the sanitizer for leaks finds nothing
}

}  // namespace
}  // namespace TesselServer
