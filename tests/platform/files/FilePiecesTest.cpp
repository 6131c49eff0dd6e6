#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "platform/files/FilePieces.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/TaskTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class FilePiecesTest : public testing::Test {
 protected:
  static constexpr std::int64_t kLimit = 1 << 20;

  struct Contents {
    std::string text;
    bool isWhole = false;
    std::size_t longest = 0;
  };

  static Task<Contents> Collect(const OpenFile& file, std::int64_t limit, Turns* turns) {
    Contents contents;
    FilePieces pieces(file, limit, turns);
    std::string room(pieces.UsualRoom(), '\0');
    for (;;) {
      auto reading = pieces.Next(room);
      const std::size_t bytes = co_await reading;
      if (bytes == 0) break;
      contents.text.append(room, 0, bytes);
      contents.longest = std::max(contents.longest, bytes);
    }
    contents.isWhole = pieces.IsWhole();
    co_return contents;
  }
  Contents AllOf(const OpenFile& file, Turns* turns, std::int64_t limit = kLimit) {
    Kit::TaskUnderWay<Contents> running(Collect(file, limit, turns));
    turnsTaken_ = running.Finish(loop_);
    return running.Get();
  }
  // Of so many bytes, not two pieces of which are equal.
  OpenFile FileOf(std::size_t bytes) {
    text_.clear();
    for (std::size_t i = 0; text_.size() < bytes; ++i) text_ += std::to_string(i) + ",";
    text_.resize(bytes);
    return OpenPath(tree_.Write("file", text_));
  }

  Kit::TemporaryTree tree_;
  Kit::TickingWorld world_;
  EventLoop loop_{world_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  std::string text_;
  int turnsTaken_ = 0;
};

TEST_F(FilePiecesTest, AreTogetherTheFile) {
  constexpr std::size_t kMost = FilePieces::kMostBytes;
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, kMost - 1, kMost, kMost + 1, 5 * kMost + 3}) {
    const OpenFile file = FileOf(bytes);
    for (Turns* turns : {static_cast<Turns*>(nullptr), &turns_}) {
      const Contents contents = AllOf(file, turns);
      EXPECT_EQ(contents.text, text_) << bytes;
      EXPECT_TRUE(contents.isWhole) << bytes;
      EXPECT_LE(contents.longest, kMost) << bytes;
    }
  }
}

TEST_F(FilePiecesTest, OfALargeFileComeInManyTurns) {
  world_.microsecondsPerLook = 300;  // a turn is over after each piece
  AllOf(FileOf(10 * PatientReader::kPieceBytes), &turns_);
  EXPECT_GE(turnsTaken_, 10);
}

TEST_F(FilePiecesTest, EndAtTheLimit) {
  const OpenFile file = FileOf(100'000);
  EXPECT_TRUE(AllOf(file, nullptr, 100'000).isWhole);
  const Contents cut = AllOf(file, nullptr, 99'999);
  EXPECT_FALSE(cut.isWhole);
  EXPECT_LE(cut.text.size(), 99'999u);
}

TEST_F(FilePiecesTest, AreThoseOfTheFileAsItIsNow) {
  const OpenFile grown = FileOf(10);
  tree_.Write("file", std::string(1000, 'x'));
  EXPECT_EQ(AllOf(grown, nullptr).text, std::string(1000, 'x'));
  const OpenFile cut = FileOf(1000);
  std::filesystem::resize_file(tree_.Path() / "file", 7);
  const Contents rest = AllOf(cut, nullptr);
  EXPECT_EQ(rest.text, text_.substr(0, 7));
  EXPECT_TRUE(rest.isWhole);
}

TEST_F(FilePiecesTest, AFolderHasNone) {
  std::filesystem::create_directory(tree_.Path() / "folder");
  const Contents contents = AllOf(OpenPath(tree_.Text() + "/folder"), nullptr);
  EXPECT_EQ(contents.text, "");
  EXPECT_FALSE(contents.isWhole);
}

}  // namespace
}  // namespace TesselServer
