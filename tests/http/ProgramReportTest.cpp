#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "http/ProgramReport.h"

namespace TesselServer {
namespace {

ProgramResult Ended(std::int32_t exitCode) {
  ProgramResult result;
  result.ended = true;
  result.exitCode = exitCode;
  result.output = "0123456789";
  result.milliseconds = 1203;
  return result;
}

TEST(ProgramReportTest, AProgramThatDoesWellIsNotReported) {
  EXPECT_EQ(ProgramReport("/a.exe", Ended(0)), "");
  ProgramResult unknown = Ended(0);
  unknown.exitCode.reset();
  EXPECT_EQ(ProgramReport("/a.exe", unknown), "") << "the host has collected it before it was looked at";
}

TEST(ProgramReportTest, NamesTheProgramTheReasonAndTheTime) {
  EXPECT_EQ(ProgramReport("/srv/a b.exe", Ended(3)), "Program /srv/a b.exe: exit code 3, after 1.203 s");

  ProgramResult killed = Ended(0);
  killed.exitCode.reset();
  killed.signal = 11;
  killed.milliseconds = 7;
  EXPECT_EQ(ProgramReport("/a.exe", killed), "Program /a.exe: signal 11, after 0.007 s");

  ProgramResult cut = Ended(0);
  cut.outputWasCut = true;
  EXPECT_EQ(ProgramReport("/a.exe", cut), "Program /a.exe: output cut at 10 bytes, after 1.203 s");
  cut.exitCode = 1;
  EXPECT_EQ(ProgramReport("/a.exe", cut), "Program /a.exe: exit code 1, output cut at 10 bytes, after 1.203 s");

  ProgramResult late;
  late.milliseconds = 30'000;
  EXPECT_EQ(ProgramReport("/a.exe", late), "Program /a.exe: time-out, it runs on, after 30.000 s");
}

TEST(ProgramReportTest, AProgramThatWasNotRunHasAReasonAndNoTime) {
  using Failure = ProgramResult::Failure;
  const struct {
    Failure failure;
    std::int32_t error;
    const char* text;
  } cases[] = {
      {Failure::kStart, ENOENT, "Program /a.exe: not started, [2] No such file or directory"},
      {Failure::kStart, EACCES, "Program /a.exe: not started, [13] Permission denied"},
      {Failure::kPipe, EMFILE, "Program /a.exe: not started, [24] Too many open files"},
      {Failure::kRead, EIO, "Program /a.exe: output not read, [5] Input/output error, after 0.000 s"},
      {Failure::kStart, ECANCELED, ""},
  };
  for (const auto& c : cases) {
    ProgramResult result;
    result.failure = c.failure;
    result.error = c.error;
    EXPECT_EQ(ProgramReport("/a.exe", result), c.text);
  }
}

TEST(ProgramReportTest, IsOneLineWhateverTheNameIs) {
  using namespace std::string_literals;
  EXPECT_EQ(ProgramReport("a\r\nb\0c\x7F"s, Ended(1)), "Program a??b?c?: exit code 1, after 1.203 s");
  EXPECT_LT(ProgramReport(std::string(1'000'000, 'x'), Ended(1)).size(), 5000u);
}

}  // namespace
}  // namespace TesselServer
