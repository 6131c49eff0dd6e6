// What the program does with what its control and its loop report.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Tessel.h>

#include "host/Console.h"
#include "host/Program.h"

namespace TesselServer {
namespace {

TEST(ProgramTest, WhatATaskThrowsIsALineOnStandardError) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  {
    Console console;
    std::string lastReport;
    EventLoop loop;
    Tessel tessel(loop);
    ConnectOutputs(loop, tessel, console, lastReport);
    console.Release();
    loop.Post([] { throw std::runtime_error("a task that fails"); });
    loop.RunOnce(0);
  }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("a task that fails\n"), std::string::npos);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace TesselServer
