#include <gtest/gtest.h>

#include "http/ErrorPages.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

class ErrorPagesTest : public testing::Test {
 protected:
  std::string Opened(std::string_view code) {
    const ErrorFile error = RunNow(OpenErrorFile(tree_.Text(), std::string(code), nullptr));
    if (!error.file.IsOpen()) return "none";
    std::string text;
    EXPECT_TRUE(error.file.ReadAll(text, 1000));
    return text;
  }

  Kit::TemporaryTree tree_;
};

TEST_F(ErrorPagesTest, OpensTheFileOfTheCode) {
  tree_.Write("html/errors/http404.html", "404 file");
  tree_.Write("html/errors/http500.html", "500 file");
  EXPECT_EQ(Opened("500"), "500 file");
  EXPECT_EQ(Opened("404"), "404 file");
  EXPECT_EQ(RunNow(OpenErrorFile(tree_.Text(), "500", nullptr)).path, tree_.Text() + "\\html\\errors\\http500.html");
}

TEST_F(ErrorPagesTest, FallsBackToTheFileOf404) {
  tree_.Write("html/errors/http404.html", "404 file");
  tree_.MakeFolder("html/errors/http403.html");
  EXPECT_EQ(Opened("500"), "404 file") << "missing";
  EXPECT_EQ(Opened("403"), "404 file") << "a folder is no file";
  EXPECT_EQ(RunNow(OpenErrorFile(tree_.Text(), "500", nullptr)).path, tree_.Text() + "\\html\\errors\\http404.html");
}

TEST_F(ErrorPagesTest, NothingIsOpenWithoutEitherFile) {
  EXPECT_EQ(Opened("404"), "none");
  EXPECT_EQ(Opened("500"), "none");
  tree_.MakeFolder("html/errors/http404.html");
  EXPECT_EQ(Opened("500"), "none");
  EXPECT_EQ(RunNow(OpenErrorFile(tree_.Text(), "500", nullptr)).path, tree_.Text() + "\\html\\errors\\http404.html");
}

TEST_F(ErrorPagesTest, ACodeIsNoPath) {
  tree_.Write("html/errors/http404.html", "404 file");
  tree_.Write("html/errors/http500/secret.html", "secret");
  tree_.Write("secret.html", "secret");
  for (const char* code : {"500/secret", "500\\secret", "500/../../../secret", "abc"}) {
    EXPECT_EQ(Opened(code), "404 file") << code;
  }
}

}  // namespace
}  // namespace TesselServer
