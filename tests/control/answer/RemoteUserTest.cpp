// Whom REMOTE_USER names: only a user whom a password file, or the host, has let in.

#include <gtest/gtest.h>

#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;

constexpr const char* kAnnsPassword = "Authorization: Basic YW5uOnNlY3JldA==\r\n";  // ann:secret

class RemoteUserTest : public Kit::ControlTest {
 protected:
  RemoteUserTest() {
    tessel.SSIEnable(true);
    control.tree.Write("site/page.html", "<!--#echo var=REMOTE_USER-->");
    tessel.VirtualPath(control.tree.Text() + "/site");
  }
  void Guard() { tessel.AuthenticationSourceFile(control.tree.Write("users.txt", "ann:secret\r\n")); }
  // What a page shows of its user to a client that says it is "ann".
  std::string Shown(const std::string& headers = kAnnsPassword) {
    if (!tessel.ServerRunning()) control.Start();
    return BodyOf(control.Ask("GET /page.html HTTP/1.0\r\n" + headers + "\r\n"));
  }
};

TEST_F(RemoteUserTest, WithoutAPasswordFileWhatTheClientClaimsIsNoName) { EXPECT_EQ(Shown(), ""); }

TEST_F(RemoteUserTest, TheSourcesThatAskForNothingGiveNoName) {
  Guard();
  for (const e_AuthSource source : {e_AuthSource::LocalACL, e_AuthSource::DomainACL, e_AuthSource::DirectoryFile}) {
    tessel.AuthenticationSource(source);
    EXPECT_EQ(Shown(), "") << static_cast<int>(source);
  }
}

TEST_F(RemoteUserTest, APasswordFileThatLetsTheClientInGivesItsName) {
  Guard();
  EXPECT_EQ(Shown(), "ann");
}

TEST_F(RemoteUserTest, APasswordFileOfTheFolderGivesTheNameToo) {
  control.tree.Write("site/htaccess.txt", "ann:secret\r\n");
  tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  EXPECT_EQ(Shown(), "ann");
}

TEST_F(RemoteUserTest, InsideFileRequestNoUserIsAuthenticatedYet) {
  std::string told = "?";
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    told = tessel.CGIValue(index, "REMOTE_USER");
    tessel.TrapFileData(index, "host", false);
  };
  EXPECT_EQ(Shown(), "host");
  EXPECT_EQ(told, "");
}

TEST_F(RemoteUserTest, AHostThatHandsTheRequestBackHasLetTheClientIn) {
  std::string heard;
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string& user) {
    heard = user;
    tessel.TrapFileData(index, "", true);
  };
  EXPECT_EQ(Shown(), "ann");
  EXPECT_EQ(heard, "ann:secret");
  EXPECT_EQ(Shown(""), "") << "the next client says nothing of itself";
}

TEST_F(RemoteUserTest, TheNameEndsWithItsRequest) {
  Guard();
  EXPECT_EQ(Shown(), "ann");
  tessel.AuthenticationSource(e_AuthSource::LocalACL);
  EXPECT_EQ(Shown(), "") << "the same slot";
}

TEST_F(RemoteUserTest, TheKindOfAuthenticationIsAlwaysSet) {
  control.tree.Write("site/page.html", "<!--#echo var=AUTH_TYPE-->");
  EXPECT_EQ(Shown(""), "Basic");
}

}  // namespace
}  // namespace TesselServer
