// What pages and listings that wait for their clients take of memory together.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using Kit::Settle;
using testing::HasSubstr;

constexpr std::size_t kLargePage = 16 * 1024 * 1024;  // more than the kernel takes from one connection
constexpr const char* kBusyText = "Sorry, the server is too busy to handle you request.";

class PageMemoryTest : public Kit::ControlTest {
 protected:
  PageMemoryTest() {
    tessel.MaxConnections(20);
    tessel.DirectoryBrowseEnable(true);
    tessel.SSIEnable(true);
    control.tree.Write("large.html", "<!--#echo var=DATE-->" + std::string(kLargePage, 'x'));
    control.tree.Write("small.html", "<!--#echo var=REQUEST_METHOD--> small");
    control.tree.Write("plain.txt", std::string(10'000, 'p'));
    for (int i = 0; i < 20; ++i) control.tree.Write("folder/" + std::to_string(i) + ".txt", "");
    control.Start();
  }

  std::unique_ptr<RawClient> AskAndWait(const std::string& path) { return Send("GET " + path + " HTTP/1.0\r\n\r\n"); }
};

TEST_F(PageMemoryTest, APageThatFindsNoRoomIsThePageOfAServerThatIsTooBusy) {
  tessel.MaxUnsentPageBytes(kLargePage + 1000);
  const auto slow = AskAndWait("/large.html");
  control.log.clear();
  const std::string answer = control.Get("/large.html");
  EXPECT_THAT(answer, testing::StartsWith("HTTP/1.0 200 OK\r\n")) << "as errors with a page are";
  EXPECT_THAT(BodyOf(answer), HasSubstr(kBusyText));
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_THAT(control.log[0],
              HasSubstr("\"GET /large.html HTTP/1.0\" 503 " + std::to_string(answer.size()) + " \"\" \"\""));
  EXPECT_EQ(BodyOf(control.Get("/small.html")), "GET small") << "what has room is served";
  EXPECT_EQ(BodyOf(slow->ReceiveAll(control.loop)).size(), kLargePage + std::string("mm/dd/yyyy").size());
  EXPECT_EQ(BodyOf(control.Get("/large.html")).size(), kLargePage + std::string("mm/dd/yyyy").size())
      << "what has gone gives its room back";
}

TEST_F(PageMemoryTest, WithoutVerboseErrorsThePageThatFindsNoRoomIsAHeaderWithStatus503) {
  tessel.MaxUnsentPageBytes(kLargePage + 1000);
  const auto slow = AskAndWait("/large.html");
  tessel.VerboseErrorsEnable(false);
  control.log.clear();
  const std::string answer = control.Get("/large.html");
  EXPECT_THAT(answer, testing::StartsWith("HTTP/1.0 503 Service Unavailable\r\n"));
  EXPECT_EQ(BodyOf(answer), "");
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_THAT(control.log[0], HasSubstr("\" 503 " + std::to_string(answer.size()) + " "));
}

TEST_F(PageMemoryTest, WhatIsSentInsteadOfAPageCountsAsSent) {
  tessel.MaxUnsentPageBytes(0);
  for (const bool verbose : {true, false}) {
    tessel.VerboseErrorsEnable(verbose);
    const auto before = std::stoll(tessel.Stats_BytesSent());
    std::size_t size = 0;
    for (int i = 0; i < 40; ++i) size += control.Get("/small.html").size();
    const auto sent = std::stoll(tessel.Stats_BytesSent()) - before;
    EXPECT_NEAR(static_cast<double>(sent), static_cast<double>(size) / 1024, 1) << verbose;
  }
}

TEST_F(PageMemoryTest, AClientThatGoesGivesItsRoomBack) {
  tessel.MaxUnsentPageBytes(kLargePage + 1000);
  AskAndWait("/large.html")->Abort();
  Settle(control.loop);
  EXPECT_EQ(BodyOf(control.Get("/large.html")).size(), kLargePage + std::string("mm/dd/yyyy").size());
}

TEST_F(PageMemoryTest, AClientThatReadsNothingKeepsItsRoomForAsLongAsItStays) {
  tessel.MaxUnsentPageBytes(kLargePage + 1000);
  const auto slow = AskAndWait("/large.html");
  for (int i = 0; i < 500; ++i) {
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
  }
  EXPECT_THAT(BodyOf(control.Get("/large.html")), HasSubstr(kBusyText));
  EXPECT_GT(slow->ReceiveAll(control.loop).size(), kLargePage);
}

TEST_F(PageMemoryTest, AListingCountsAndItsRepeatedPathWithIt) {
  const std::size_t usual = BodyOf(control.Get("/folder/")).size();
  tessel.MaxUnsentPageBytes(static_cast<std::int64_t>(usual) + 1000);
  EXPECT_EQ(BodyOf(control.Get("/folder/")).size(), usual);
  std::string detour;
  for (int i = 0; i < 500; ++i) detour += "/.";
  EXPECT_THAT(BodyOf(control.Get(detour + "/folder/")), HasSubstr(kBusyText));
}

TEST_F(PageMemoryTest, FilesAsTheyAreAndTheHostsOwnDataDoNotCount) {
  tessel.MaxUnsentPageBytes(10);
  EXPECT_EQ(BodyOf(control.Get("/plain.txt")).size(), 10'000u);
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    tessel.TrapFileData(index, std::string(500, 'h'), false);
  };
  EXPECT_EQ(BodyOf(control.Get("/any")).size(), 500u);
}

TEST_F(PageMemoryTest, ErrorPagesCount) {
  control.tree.Write("html/errors/http404.html", "<!--#echo var=REQUEST_METHOD-->" + std::string(20'000, 'e'));
  tessel.ApplicationFolder(control.tree.Text());
  tessel.ErrorFilesEnable(true);
  EXPECT_EQ(BodyOf(control.Get("/missing")).size(), 20'000u);
  tessel.MaxUnsentPageBytes(19'999);
  EXPECT_THAT(BodyOf(control.Get("/missing")), HasSubstr(kBusyText));
}

TEST_F(PageMemoryTest, WhatIsPutIntoAPageCountsWhileItIsMade) {
  constexpr int kTags = 20;
  constexpr std::size_t kBytesOfEach = 100'000;
  std::string page;
  for (int i = 0; i < kTags; ++i) page += "<%=Function" + std::to_string(i) + "()%>";
  control.tree.Write("growing.html", page);
  tessel.HTMLFunctionsEnable(true);
  int calls = 0;
  tessel.CallFunction = [&](std::int32_t& index, std::string&) {
    ++calls;
    tessel.ReturnData(index, std::string(kBytesOfEach, 'f'));
  };
  tessel.MaxUnsentPageBytes(5 * kBytesOfEach);
  EXPECT_THAT(BodyOf(control.Get("/growing.html")), HasSubstr(kBusyText));
  EXPECT_LE(calls, 7) << "no more is asked for a page that nobody gets";
  tessel.MaxUnsentPageBytes(2 * kTags * kBytesOfEach);
  EXPECT_EQ(BodyOf(control.Get("/growing.html")).size(), kTags * kBytesOfEach) << "the one before gave its room back";
}

TEST_F(PageMemoryTest, BuiltInErrorPagesCount) {
  const std::size_t usual = BodyOf(control.Get("/missing")).size();
  tessel.MaxUnsentPageBytes(static_cast<std::int64_t>(usual));
  EXPECT_THAT(BodyOf(control.Get("/missing")), HasSubstr("HTTP 404"));
  tessel.MaxUnsentPageBytes(static_cast<std::int64_t>(usual) - 1);
  EXPECT_THAT(BodyOf(control.Get("/missing")), HasSubstr(kBusyText));
}

}  // namespace
}  // namespace TesselServer
