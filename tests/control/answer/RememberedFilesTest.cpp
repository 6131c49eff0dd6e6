// Which files the control keeps in memory: those that requests were answered with twice within a minute, and never a
// password or a program.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/files/FileStamp.h"
#include "platform/world/UniqueDescriptor.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

class RememberedFilesTest : public testing::Test {
 protected:
  void SetUp() override {
    const UniqueDescriptor folder(open(kit.tree.Text().c_str(), O_PATH | O_CLOEXEC));
    if (!KeepsChangeTimes(folder.Get(), ReadFrom::kContents)) GTEST_SKIP() << "nothing is remembered of this folder";
    kit.tree.Write("a.txt", "text");
    kit.tree.Write("page.html", "[<!--#include = \"inner.txt\" -->]");
    kit.tree.Write("inner.txt", "inner");
    kit.tree.Write("folder/index.html", "index");
    kit.tree.Write("htaccess.txt", "anna:secret");
    kit.tree.Write("users.txt", "anna:secret");
    Kit::WriteProgram(kit.tree, "tool.exe", "echo ran");
    kit.world.LetFilesSettle();
    settings.SSIEnable = true;
    settings.CGIEnable = true;
    kit.Start();
  }

  bool Remembers(const std::string& name) { return state.Root()->Find(name).file.Contents() != nullptr; }

  // The body comes later than its header.
  std::string Post(const std::string& url) {
    Kit::RawClient client(kit.Port());
    client.Send(kit.loop, "POST " + url + " HTTP/1.0\r\nContent-Length: 100\r\n\r\n" + std::string(50, 'x'));
    Kit::Settle(kit.loop);
    client.Send(kit.loop, std::string(50, 'x'));
    return client.ReceiveAll(kit.loop);
  }

  Kit::TestCore kit;
  ControlState& state = kit.core.state;
  Settings& settings = state.settings;
};

TEST_F(RememberedFilesTest, AFileThatIsSentTwiceIsRemembered) {
  kit.Get("/a.txt");
  EXPECT_FALSE(Remembers("a.txt"));
  kit.Get("/a.txt");
  EXPECT_TRUE(Remembers("a.txt"));
  for (int i = 0; i < 2; ++i) kit.Get("/folder/");
  EXPECT_TRUE(Remembers("folder/index.html"));
}

TEST_F(RememberedFilesTest, AnIncludeIsRememberedWithItsPage) {
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(kit.Get("/page.html").ends_with("[inner]"));
  EXPECT_TRUE(Remembers("page.html"));
  EXPECT_TRUE(Remembers("inner.txt"));
}

TEST_F(RememberedFilesTest, APasswordFileThatClientsAskForIsNot) {
  settings.AuthenticationSourceFile = kit.tree.Text() + "/users.txt";
  settings.IndexPageList = {"htaccess.txt"};
  kit.tree.Write("page.html", "[<!--#include = \"users.txt\" -->]");
  for (int i = 0; i < 3; ++i) {
    for (const char* url : {"/htaccess.txt", "/users.txt", "/", "/page.html"}) {
      EXPECT_EQ(kit.Get(url).find("secret"), std::string::npos) << url;
    }
  }
  EXPECT_FALSE(Remembers("htaccess.txt"));
  EXPECT_FALSE(Remembers("users.txt"));
}

TEST_F(RememberedFilesTest, AProgramIsNotWhetherItRunsOrIsIncluded) {
  kit.tree.Write("page.html", "[<!--#include = \"tool.exe\" -->]");
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(kit.Get("/tool.exe").ends_with("ran\n"));
    EXPECT_TRUE(kit.Get("/page.html").ends_with("[ran\n]"));
  }
  EXPECT_FALSE(Remembers("tool.exe"));
}

TEST_F(RememberedFilesTest, AFileThatAClientWasNotLetInForIsNot) {
  settings.AuthenticationSource = e_AuthSource::DirectoryFile;
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(kit.Get("/a.txt").starts_with("HTTP/1.0 401"));
  EXPECT_FALSE(Remembers("a.txt"));
}

TEST_F(RememberedFilesTest, ARequestWhoseBodyComesLaterCountsOnce) {
  Post("/page.html");
  EXPECT_FALSE(Remembers("page.html"));
  Post("/page.html");
  EXPECT_TRUE(Remembers("page.html"));
}

TEST_F(RememberedFilesTest, ARequestThatTheHostHandsBackCountsOnce) {
  settings.TrapFileEnable = true;
  kit.owner.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
    kit.core.hostAnswers.TrapFileData(index, "", true, "");
  };
  EXPECT_TRUE(kit.Get("/a.txt").ends_with("text"));
  EXPECT_FALSE(Remembers("a.txt"));
  EXPECT_TRUE(kit.Get("/a.txt").ends_with("text"));
  EXPECT_TRUE(Remembers("a.txt"));
}

}  // namespace
}  // namespace TesselServer
