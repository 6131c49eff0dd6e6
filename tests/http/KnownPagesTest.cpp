// Pages and includes whose files are remembered: no copies are made, and every change on disk is seen at once.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

// The files are written before the first test and have settled by then; each test changes its own only.
class KnownPagesTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    site_ = std::make_unique<Kit::PageSite>();
    site_->record.SSIEnable(true);
    site_->tree.Write("plain.htm", "<p>plain</p>");
    site_->tree.Write("changed.htm", "<p>first</p>");
    site_->tree.Write("outer.htm", "[<!--#include = \"inner.txt\" -->|<!--#include = \"inner.htm\" -->]");
    site_->tree.Write("inner.txt", "<%= SERVER_PROTOCOL %>");
    site_->tree.Write("inner.htm", "<%= SERVER_PROTOCOL %>");
    site_->world.LetFilesSettle();
  }
  static void TearDownTestSuite() { site_.reset(); }

  // What a request does whose answer is that file.
  static FoundEntry Ask(const char* name) {
    FoundEntry found = RunNow(site_->record.FindFile(site_->record.VirtualPath(), name));
    site_->record.Root()->Remember(found);
    return found;
  }

  static std::unique_ptr<Kit::PageSite> site_;
};

std::unique_ptr<Kit::PageSite> KnownPagesTest::site_;

TEST_F(KnownPagesTest, APageWithoutTagsIsSentFromWhereItIsRemembered) {
  Ask("plain.htm");  // it is remembered at the second request
  FoundEntry found = Ask("plain.htm");
  const auto contents = found.file.Contents();
  if (!contents) GTEST_SKIP() << "a temporary folder of which nothing is remembered";
  const Answer answer =
      RunNow(site_->record.ProcessFile(std::move(found), "/plain.htm", "200", false, "", site_->request, ""));
  ASSERT_TRUE(std::holds_alternative<Answer::SharedBytes>(answer.body));
  EXPECT_EQ(std::get<Answer::SharedBytes>(answer.body), contents);
}

TEST_F(KnownPagesTest, APageIsWhatItsFileIsNow) {
  for (int i = 0; i < 2; ++i) EXPECT_EQ(site_->Get("changed.htm"), "<p>first</p>");
  site_->tree.Write("changed.htm", "<p>other</p>");
  EXPECT_EQ(site_->Get("changed.htm"), "<p>other</p>");
  site_->tree.Write("changed.htm", "<%= SERVER_PROTOCOL %>");
  EXPECT_EQ(site_->Get("changed.htm"), "HTTP/1.0");
}

TEST_F(KnownPagesTest, RememberedTextsStayAsTheyAreOnDisk) {
  for (int i = 0; i < 3; ++i) EXPECT_EQ(site_->Get("outer.htm"), "[<%= SERVER_PROTOCOL %>|HTTP/1.0]");
  site_->record.SSIEnable(false);
  EXPECT_EQ(site_->Get("outer.htm"), "[<!--#include=inner.txt-->|<!--#include=inner.htm-->]");
  site_->record.SSIEnable(true);
  site_->tree.Write("inner.txt", "text");
  site_->tree.Write("inner.htm", "page");
  EXPECT_EQ(site_->Get("outer.htm"), "[text|page]");
}

}  // namespace
}  // namespace TesselServer
