// Whatever system call fails while requests are served: nobody but the client concerned notices, nothing is lost.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/kit/Descriptors.h"
#include "tests/kit/FailNth.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::FailNth;
using Kit::RawClient;
using Kit::TestControl;

struct ServingFault {
  const char* function;
  int error;
};

class ServingFaultsTest : public testing::TestWithParam<ServingFault> {};

// A few requests of every kind: a page, a small file, one that the kernel sends, a body, and input behind a request.
void Use(TestControl& control) {
  const std::int32_t port = control.tessel.ListeningPort();
  for (const char* request : {"GET / HTTP/1.0\r\n\r\n", "GET /large.bin HTTP/1.0\r\n\r\n", "GET /no HTTP/1.0\r\n\r\n",
                              "POST / HTTP/1.0\r\nContent-Length: 4\r\n\r\nbody and more", "GET / HTTP/1.0\r\n"}) {
    RawClient client(port);
    client.Send(control.loop, request);
    for (int turn = 0; turn < 40 && !client.Poll(); ++turn) control.loop.RunOnce(1);
  }
}

// Time for whoever waits: for a free element, for the last bytes of a client.
void LetTimePass(TestControl& control) {
  for (int i = 0; i < 20; ++i) {
    control.world.Advance(250);
    for (int turn = 0; turn < 5; ++turn) control.loop.RunOnce(0);
  }
}

TEST_P(ServingFaultsTest, HarmOneClientAtMost) {
  const auto [function, error] = GetParam();
  int happened = 0;
  for (int nth = 1; nth <= 12; ++nth) {
    TestControl control;
    control.tree.Write("index.html", "page");
    control.tree.Write("large.bin", std::string(200'000, 'x'));
    control.tessel.MaxConnections(4);
    control.Start();
    ASSERT_EQ(BodyOf(control.Get("/")), "page");  // opens what stays open, the root
    const std::size_t before = Kit::CountDescriptors();
    {
      const FailNth fault(function, nth, error);
      Use(control);
      happened += fault.Happened() ? 1 : 0;
    }
    LetTimePass(control);
    EXPECT_TRUE(Kit::RunUntil(control.loop, [&] { return Kit::CountDescriptors() == before; }))  // threads have theirs
        << function << " " << nth;
    EXPECT_EQ(BodyOf(control.Get("/")), "page") << function << " " << nth;
    EXPECT_EQ(BodyOf(control.Get("/large.bin")).size(), 200'000u) << function << " " << nth;
    EXPECT_TRUE(control.tessel.StopServer());
  }
  EXPECT_GT(happened, 0) << function << " was never called";
}

TEST(UnreadPageTest, APageThatCannotBeReadIsAnErrorAndNeverItsSource) {
  TestControl control;
  control.tree.Write("page.html", "<!--#echo var=\"SERVER_NAME\"--> secret of the author");
  control.tessel.SSIEnable(true);
  control.Start();
  {
    const FailNth fault("preadv2", 1, EIO);
    EXPECT_NE(control.Get("/page.html").find("HTPP 500: Internal Server Error"), std::string::npos);
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_EQ(control.errors, std::vector<std::string>{"Error - SendWebPage. [75] Path/File access error"});
  EXPECT_NE(control.Get("/page.html").find("secret of the author"), std::string::npos);
}

TEST(UnreadPageTest, AnErrorPageThatCannotBeReadIsAsIfItWereNotThere) {
  TestControl control;
  control.tree.Write("html/errors/http404.html", "page of the site");
  control.tessel.ApplicationFolder(control.tree.Text());
  control.tessel.ErrorFilesEnable(true);
  control.Start();
  {
    const FailNth fault("preadv2", 1, EIO);
    EXPECT_EQ(control.Get("/none").substr(0, 22), "HTTP/1.0 404 Not Found");
    EXPECT_TRUE(fault.Happened());
  }
  EXPECT_EQ(BodyOf(control.Get("/none")), "page of the site");
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ServingFaultsTest,
    testing::Values(ServingFault{"accept4", EMFILE}, ServingFault{"accept4", ENOMEM},
                    ServingFault{"accept4", ECONNABORTED}, ServingFault{"accept4", EINTR},
                    ServingFault{"recv", ECONNRESET}, ServingFault{"recv", EINTR}, ServingFault{"recv", ENOMEM},
                    ServingFault{"sendmsg", EPIPE}, ServingFault{"sendmsg", EAGAIN}, ServingFault{"sendmsg", ENOBUFS},
                    ServingFault{"sendmsg", EINTR}, ServingFault{"sendfile", EIO}, ServingFault{"sendfile", EPIPE},
                    ServingFault{"sendfile", EAGAIN}, ServingFault{"sendfile", EINTR}, ServingFault{"preadv2", EIO},
                    ServingFault{"preadv2", EINTR}, ServingFault{"preadv2", EAGAIN},
                    ServingFault{"preadv2", EOPNOTSUPP}, ServingFault{"epoll_ctl", ENOMEM},
                    ServingFault{"epoll_ctl", ENOSPC}, ServingFault{"epoll_wait", EINTR}),
    [](const auto& each) { return std::string(each.param.function) + "_" + std::to_string(each.param.error); });

}  // namespace
}  // namespace TesselServer
