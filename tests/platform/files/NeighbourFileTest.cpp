#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/files/NeighbourFile.h"
#include "platform/world/Error.h"
#include "tests/kit/Limits.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Neighbour = NeighbourFile::State;

class NeighbourFileTest : public testing::Test {
 protected:
  NeighbourFile Beside(const std::string& path, const std::string& name = "notes.txt") {
    return FindBeside(OpenPath((tree_.Path() / path).string()), name);
  }
  static std::string TextOf(const NeighbourFile& found) {
    std::string text;
    found.file.ReadAll(text, 100);
    return text;
  }

  Kit::TemporaryTree tree_;
};

TEST_F(NeighbourFileTest, IsInTheFolderOfAFileOrInAFolderItself) {
  tree_.Write("a/page.html", "p");
  tree_.Write("a/notes.txt", "of a");
  tree_.Write("a/deeper/page.html", "p");
  tree_.Write("notes.txt", "of the root");
  EXPECT_EQ(TextOf(Beside("a/page.html")), "of a");
  EXPECT_EQ(TextOf(Beside("a")), "of a");
  EXPECT_EQ(TextOf(Beside("")), "of the root");
  EXPECT_EQ(Beside("a/deeper/page.html").state, Neighbour::kMissing);
  EXPECT_EQ(Beside("a/deeper").state, Neighbour::kMissing);
  EXPECT_EQ(TextOf(Beside("a/notes.txt")), "of a") << "beside itself";
}

TEST_F(NeighbourFileTest, IsFoundInAnyCaseTheGivenOneFirst) {
  tree_.Write("a/page.html", "p");
  tree_.Write("a/NOTES.txt", "upper");
  tree_.Write("a/Notes.TXT", "mixed");
  EXPECT_EQ(TextOf(Beside("a/page.html")), "upper") << "the first in byte order";
  tree_.Write("a/notes.txt", "exact");
  EXPECT_EQ(TextOf(Beside("a/page.html")), "exact");
}

TEST_F(NeighbourFileTest, LiesWhereTheEntryReallyLies) {
  tree_.Write("real/page.html", "p");
  tree_.Write("real/notes.txt", "of real");
  tree_.MakeFolder("other");
  std::filesystem::create_symlink("../real/page.html", tree_.Path() / "other/link.html");
  std::filesystem::create_directory_symlink("real", tree_.Path() / "alias");
  for (const char* path : {"other/link.html", "alias/page.html", "alias"}) {
    EXPECT_EQ(TextOf(Beside(path)), "of real") << path;
  }
}

TEST_F(NeighbourFileTest, ABackslashIsAByteLikeOthers) {
  tree_.Write("a\\b/page.html", "p");
  tree_.Write("a\\b/notes.txt", "here");
  tree_.Write("a/b/other.html", "p");
  const OpenFile page(open((tree_.Path() / "a\\b/page.html").c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(TextOf(FindBeside(page, "notes.txt")), "here");
}

TEST_F(NeighbourFileTest, WhatIsThereAndCannotBeReadIsFoundAllTheSame) {
  for (const char* folder : {"dangling", "loop", "fifo"}) tree_.MakeFolder(folder);
  std::filesystem::create_symlink("/nonexistent/notes", tree_.Path() / "dangling/notes.txt");
  std::filesystem::create_symlink("notes.txt", tree_.Path() / "loop/notes.txt");
  ASSERT_EQ(mkfifo((tree_.Path() / "fifo/notes.txt").c_str(), 0600), 0);
  for (const char* folder : {"dangling", "loop", "fifo"}) {
    const NeighbourFile found = Beside(folder);
    EXPECT_EQ(found.state, Neighbour::kFound) << folder;
    EXPECT_FALSE(found.file.IsOpen()) << folder;
  }
}

TEST_F(NeighbourFileTest, AFolderOfThatNameIsNoFile) {
  tree_.MakeFolder("a/notes.txt");
  tree_.MakeFolder("b/NOTES.TXT");
  EXPECT_EQ(Beside("a").state, Neighbour::kMissing);
  EXPECT_EQ(Beside("b").state, Neighbour::kMissing);
}

TEST_F(NeighbourFileTest, BesideNothingItIsUnknown) {
  EXPECT_EQ(FindBeside(OpenFile(), "notes.txt").state, Neighbour::kUnknown);
}

TEST_F(NeighbourFileTest, ALackOfDescriptorsIsRaised) {
  tree_.Write("a/notes.txt", "n");
  const OpenFile folder = OpenPath((tree_.Path() / "a").string());
  const Kit::DescriptorFamine famine;
  try {
    FindBeside(folder, "notes.txt");
    ADD_FAILURE() << "nothing was raised";
  } catch (const Error& error) {
    EXPECT_EQ(error.Number(), 10024);
  }
}

}  // namespace
}  // namespace TesselServer
