#include <gtest/gtest.h>

#include <random>
#include <string>

#include "http/TagSearch.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::size_t kNoTag = std::string_view::npos;

TEST(TagSearchTest, FindsAnOpenerInAnyCase) {
  const struct {
    const char *text, *opener;
    std::size_t from, found;
    const char* why;
  } cases[] = {
      {"", "<!--#", 0, kNoTag, "nothing"},
      {"<!--#", "<!--#", 0, 0, "the whole text"},
      {"<!--", "<!--#", 0, kNoTag, "a text that is too short"},
      {"x<!--#ECHOvar=", "<!--#echoVAR=", 0, 1, "letters in any case"},
      {"<%=a<%=b", "<%=", 0, 0, "the first"},
      {"<%=a<%=b", "<%=", 1, 4, "the first behind a place"},
      {"<%=a<%=b", "<%=", 5, kNoTag, "none behind a place"},
      {"<%=", "<%=", 4, kNoTag, "a place behind the end"},
      {"%%<%%<%=", "<%=", 0, 5, "signs that begin nothing"},
      {"###<!--##", "<!--#", 0, 3, "signs that begin nothing"},
      {"%=", "<%=", 0, kNoTag, "a sign whose opener would begin in front of the text"},
      {"x%=<%", "<%=", 0, kNoTag, "an opener that would end behind the text"},
      {"<!--#<!--#a", "<!--#a", 0, 5, "half an opener in front of it"},
      {"abc", "B", 0, 1, "an opener without a sign"},
      {"abc", "", 2, 2, "an opener of nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(FindOpener(c.text, c.opener, c.from), c.found) << c.text << ": " << c.why;
}

TEST(TagSearchTest, FindsWhatAPlainSearchFinds) {
  constexpr std::string_view kBytes = "<!-#%=eEx";
  const std::string_view openers[] = {"<!--#", "<%", "<%=", "<!--#e", "<%=ee", "#", "%", "##", "e", "<"};
  std::mt19937 random(1);
  for (int round = 0; round < 2'000; ++round) {
    std::string text;
    for (std::size_t size = random() % 40; size > 0; --size) text += kBytes[random() % kBytes.size()];
    for (const std::string_view opener : openers) {
      for (std::size_t from = 0; from <= text.size() + 1; ++from) {
        ASSERT_EQ(FindOpener(text, opener, from), FindNoCase(text, opener, from)) << text << " " << opener << from;
      }
    }
  }
}

TEST(TagSearchTest, TellsWhetherATagMayBegin) {
  for (const char* text : {"", "<p style=\"color:#fff;width:100%\">", "<!-- # -->", "< %", "<!--", "<"}) {
    EXPECT_FALSE(HoldsTags(text)) << text;
  }
  for (const char* text : {"<%", "<!--#", "a<% b", "<!-- <!--# -->", "%<%"}) EXPECT_TRUE(HoldsTags(text)) << text;
}

TEST(TagSearchTest, ManySignsAreOneWalk) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  EXPECT_EQ(FindOpener(std::string(kMebibyte, '#') + "<!--#", "<!--#"), kMebibyte);
  EXPECT_EQ(FindOpener(std::string(kMebibyte, '%'), "<%="), kNoTag);
}

}  // namespace
}  // namespace TesselServer
