// A start whose listener cannot be made: the host hears of it, and the server comes up by itself as soon as it can.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/kit/FailNth.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::FailNth;
using Kit::TestControl;

TEST(StartingFaultsTest, ListenerIsMadeByTheNextCheck) {
  struct {
    const char* function;
    int error;
    const char* report;
  } const cases[] = {
      {"socket", EMFILE, "Error - TCP::Listen. [10024] Too many open files."},
      {"bind", EACCES, "Error - TCP::Listen. [10013] Permission Denied."},
      {"bind", EADDRNOTAVAIL, "Error - TCP::Listen. [10049] Can't assign requested address."},
      {"listen", ENOBUFS, "Error - TCP::Listen. [10055] No buffer space available."},
      {"epoll_ctl", ENOSPC, "Error - TCP::Listen. [10055] No buffer space available."},
  };
  for (const auto& c : cases) {
    TestControl control;
    control.tree.Write("index.html", "page");
    {
      const FailNth fault(c.function, 1, c.error);
      EXPECT_TRUE(control.tessel.StartServer()) << c.function;
      EXPECT_TRUE(fault.Happened()) << c.function;
    }
    EXPECT_EQ(control.errors, std::vector<std::string>{c.report}) << c.function;
    EXPECT_TRUE(control.tessel.ServerRunning());
    EXPECT_FALSE(control.tessel.IsListening()) << c.function;
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
    ASSERT_TRUE(control.tessel.IsListening()) << c.function;
    EXPECT_EQ(Kit::BodyOf(control.Get("/")), "page") << c.function;
  }
}

TEST(StartingFaultsTest, AddressInUseIsRaised) {
  for (const char* function : {"bind", "listen"}) {
    TestControl control;
    const FailNth fault(function, 1, EADDRINUSE);
    try {
      control.tessel.StartServer();
      FAIL() << function;
    } catch (const Error& error) {
      EXPECT_EQ(error.Number(), 10048);
      EXPECT_EQ(error.Description(), "Address in use");
    }
    EXPECT_EQ(control.errors, std::vector<std::string>{"Error - StartServer. [10048] Address in use"});
  }
}

}  // namespace
}  // namespace TesselServer
