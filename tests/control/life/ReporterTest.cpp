#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "control/life/Reporter.h"
#include "platform/world/Error.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::TestCore;

TEST(ReporterTest, EveryProcedureHasItsPrefix) {
  const std::vector<std::pair<std::string_view, std::string>> cases = {
      {ErrorPrefix::kInitialize, "Error - Initialize. [9] Subscript out of range"},
      {ErrorPrefix::kStartServer, "Error - StartServer. [9] Subscript out of range"},
      {ErrorPrefix::kStopServer, "Error - StopServer. [9] Subscript out of range"},
      {ErrorPrefix::kConnectionRequest, "Error - TCP::ConnectionRequest. [9] Subscript out of range"},
      {ErrorPrefix::kDataArrival, "Error - TCP::DataArrival. [9] Subscript out of range"},
      {ErrorPrefix::kSendComplete, "Error - TCP::Send Complete. [9] Subscript out of range"},
      {ErrorPrefix::kClose, "Error - TCP::Close. [9] Subscript out of range"},
      {ErrorPrefix::kListen, "Error - TCP::Listen. [9] Subscript out of range"},
      {ErrorPrefix::kSendWebPage, "Error - SendWebPage. [9] Subscript out of range"},
      {ErrorPrefix::kKillAllConnections, "Error -  KillAllConnections. [9] Subscript out of range"},
      {ErrorPrefix::kSendData, "Error -  SendData. [9] Subscript out of range"},
      {ErrorPrefix::kServerTooBusy, "Error -  ServerTooBusy. [9] Subscript out of range"},
      {ErrorPrefix::kTimerCheckConnections, "Error - TimerCheckConnections. [9] Subscript out of range"},
  };
  for (const auto& [prefix, report] : cases) {
    TestCore core;
    const bool done =
        core.core.state.reporter.Trap(prefix, [] { throw Error(ErrorNumber::kSubscript, "Subscript out of range"); });
    EXPECT_FALSE(done);
    EXPECT_EQ(core.errors, std::vector<std::string>{report});
    EXPECT_EQ(core.core.state.statistics.ErrorCount, 1);
  }
}

TEST(ReporterTest, WhatIsThrownIsReportedByNumberAndText) {
  const std::vector<std::pair<std::exception_ptr, std::string>> cases = {
      {std::make_exception_ptr(Error(10054, "Connection reset by peer.")), "10054 Connection reset by peer."},
      {std::make_exception_ptr(std::bad_alloc()), "7 Out of memory"},
      {std::make_exception_ptr(std::runtime_error("broken")), "51 broken"},
      {std::make_exception_ptr(42), "51 Unknown exception"},
  };
  for (const auto& [exception, text] : cases) {
    const CaughtError caught = DescribeException(exception);
    EXPECT_EQ(std::to_string(caught.number) + " " + caught.description, text);
  }
}

TEST(ReporterTest, WhatSucceedsIsNotReported) {
  TestCore core;
  EXPECT_TRUE(core.core.state.reporter.Trap(ErrorPrefix::kClose, [] {}));
  EXPECT_TRUE(core.errors.empty());
}

TEST(ReporterTest, AForgottenOwnerGetsNoReport) {
  TestCore core;
  core.core.state.reporter.Forget();
  core.core.state.reporter.RaiseHTTPLog("line");
  core.core.state.reporter.RaiseLogEvent("error");
  core.core.state.reporter.RaiseStatusLine("text");
  EXPECT_TRUE(core.log.empty());
  EXPECT_TRUE(core.errors.empty());
  EXPECT_TRUE(core.status.empty());
  EXPECT_FALSE(core.core.state.reporter.FileRequestIsHeard());
}

}  // namespace
}  // namespace TesselServer
