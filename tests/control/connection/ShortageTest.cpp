// A process that has run short: of descriptors, of memory that clients hold on to.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/kit/Descriptors.h"
#include "tests/kit/Limits.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::DescriptorFamine;
using Kit::RawClient;
using Kit::Settle;
using Kit::TestControl;
using Kit::TestCore;

// The answer to a GET whose connection stands when the descriptors run out, but for `left` of them.
std::string GetInAFamine(TestControl& control, const std::string& url, int left) {
  RawClient client(control.tessel.ListeningPort());
  client.Send(control.loop, "G");
  Settle(control.loop);
  const DescriptorFamine famine(left);
  client.Send(control.loop, "ET " + url + " HTTP/1.0\r\n\r\n");
  return client.ReceiveAll(control.loop);
}

TEST(ShortageTest, FileThatCannotBeOpenedForWantOfDescriptorsIsNoMissingFile) {
  TestControl control;
  control.tree.Write("page.html", "page");
  control.Start();
  control.Get("/page.html");
  GetInAFamine(control, "/page.html", 8);  // what a sanitizer opens once
  control.log.clear();
  const std::string answer = GetInAFamine(control, "/page.html", 0);
  EXPECT_NE(answer.find("HTPP 500: Internal Server Error"), std::string::npos) << answer;
  EXPECT_EQ(control.errors, std::vector<std::string>{"Error - SendWebPage. [10024] Too many open files."});
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_NE(control.log[0].find("\"GET /page.html HTTP/1.0\" 500 "), std::string::npos) << control.log[0];
  EXPECT_EQ(BodyOf(control.Get("/page.html")), "page") << "afterwards";
}

TEST(ShortageTest, WithoutVerboseErrorsTheHeaderHasStatus500) {
  TestControl control;
  control.tree.Write("page.html", "page");
  control.tessel.VerboseErrorsEnable(false);
  control.Start();
  control.Get("/page.html");
  GetInAFamine(control, "/page.html", 8);  // what a sanitizer opens once
  EXPECT_TRUE(GetInAFamine(control, "/page.html", 0).starts_with("HTTP/1.0 500 Internal Server Error\r\n"));
}

// However few descriptors are left, the password file stays closed.
TEST(ShortageTest, PasswordFileIsNotServedForWantOfDescriptors) {
  TestControl control;
  control.tree.Write("index.html", "page");
  control.tree.Write("users.txt", "user:secret");
  control.tessel.AuthenticationSourceFile(
      "/proc/self/stat");  // asked for beside the loop, as below for want of descriptors
  control.Start();
  control.Get("/");
  control.tessel.AuthenticationSourceFile(control.tree.Text() + "/users.txt");
  control.Get("/");
  for (const char* url : {"/users.txt", "/USERS.TXT"}) GetInAFamine(control, url, 8);  // what a sanitizer opens once
  for (int left = 0; left < 6; ++left) {
    for (const char* url : {"/users.txt", "/USERS.TXT"}) {
      EXPECT_EQ(GetInAFamine(control, url, left).find("secret"), std::string::npos) << url << " " << left;
    }
  }
  EXPECT_EQ(control.tessel.AuthenticationSourceFile(), control.tree.Text() + "/users.txt");
}

TEST(ShortageTest, ClientThatLeftHoldsNoDescriptor) {
  TestCore core;
  core.core.state.settings.MaxConnections = 40;
  core.core.state.settings.ConnectionTimeout = 0;
  core.Start();
  core.Get("/");  // the root stays open
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 20; ++i) {
    RawClient client(core.Port());
    client.Send(core.loop, "POST / HTTP/1.0\r\nContent-Length: 100\r\n\r\n");
    Settle(core.loop);
    client.Close();
    Settle(core.loop);
    EXPECT_EQ(core.State(2 + i), SocketState::kClosing);
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(ShortageTest, ClientThatLeftHoldsNoMemory) {
  TestCore core;
  core.tree.Write("page.html", "a page may ask for the body");
  core.core.state.settings.HTMLFunctionsEnable = true;
  core.owner.CallFunction = [](std::int32_t&, std::string&) {};
  core.Start();
  RawClient client(core.Port());
  client.Send(core.loop, "POST /page.html HTTP/1.0\r\nContent-Length: 9000000\r\n\r\n" + std::string(8'000'000, 'b'));
  Settle(core.loop);
  EXPECT_GE(core.SlotAt(2).Fields().RequestBody.capacity(), 8'000'000u);
  client.Close();
  Settle(core.loop);
  EXPECT_EQ(core.State(2), SocketState::kClosing);
  EXPECT_LT(core.SlotAt(2).Fields().RequestBody.capacity(), 100u);
}

TEST(ShortageTest, BodyIsNotKeptWhileItsAnswerGoesOut) {
  TestCore core;
  core.tree.Write("large.bin", std::string(8'000'000, 'x'));
  core.Start();
  RawClient client(core.Port());
  client.Send(core.loop, "POST /large.bin HTTP/1.0\r\nContent-Length: 1000000\r\n\r\n" + std::string(1'000'000, 'b'));
  Settle(core.loop);
  EXPECT_EQ(core.State(2), SocketState::kConnected) << "the answer is still on its way";
  EXPECT_LT(core.SlotAt(2).Fields().RequestBody.capacity(), 100u);
  EXPECT_EQ(BodyOf(client.ReceiveAll(core.loop)).size(), 8'000'000u);
}

}  // namespace
}  // namespace TesselServer
