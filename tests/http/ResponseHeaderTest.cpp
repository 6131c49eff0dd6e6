#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "http/ResponseHeader.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kMoment = 1794766805;  // Sunday, 15 November 2026, 18:20:05 UTC

HeaderFields Fields(std::string_view code) {
  HeaderFields fields;
  fields.statusCode = code;
  fields.software = "Orvane Tessel/1.1";
  fields.utcSeconds = kMoment;
  return fields;
}

// The lines that every header of these tests has between its status line and the rest.
const std::string kCommon = "Server: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\n";

TEST(ResponseHeaderTest, KnowsFifteenReasonPhrases) {
  const struct {
    const char *code, *phrase;
  } cases[] = {
      {"200", "OK"},
      {"201", "Created"},
      {"202", "Accepted"},
      {"204", "No Content"},
      {"301", "Moved Permanently"},
      {"302", "Moved Temporarily"},
      {"304", "Not Modified"},
      {"400", "Bad Request"},
      {"401", "Unauthorized"},
      {"403", "Forbidden"},
      {"404", "Not Found"},
      {"500", "Internal Server Error"},
      {"501", "Not Implemented"},
      {"502", "Bad Gateway"},
      {"503", "Service Unavailable"},
      {"418", "Undefined Status Code"},
      {" 200", "Undefined Status Code"},
      {"0200", "Undefined Status Code"},
      {"200 ", "Undefined Status Code"},
      {"20", "Undefined Status Code"},
      {"", "Undefined Status Code"},
  };
  for (const auto& c : cases) EXPECT_EQ(ReasonPhrase(c.code), c.phrase) << c.code;
}

TEST(ResponseHeaderTest, AnErrorWithoutABodyHasNoLength) {
  HeaderFields fields = Fields("404");
  fields.contentType = "text/html";
  EXPECT_EQ(HeaderText(fields), "HTTP/1.0 404 Not Found\r\n" + kCommon + "Content-Type: text/html\r\n\r\n");
}

TEST(ResponseHeaderTest, NeitherTypeNorEndAppearUnlessAskedFor) {
  HeaderFields fields = Fields("200");
  fields.contentLength = 1234;
  fields.endHeader = false;
  EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon + "Content-Length: 1234\r\n");
}

TEST(ResponseHeaderTest, AnUnknownCodeIsSentAsGiven) {
  EXPECT_EQ(HeaderText(Fields("418")), "HTTP/1.0 418 Undefined Status Code\r\n" + kCommon + "\r\n");
}

TEST(ResponseHeaderTest, AllLinesStandInTheirOrder) {
  HeaderFields fields = Fields("200");
  fields.contentType = " text/plain ";
  fields.extraHeaders = "  X-One: 1\r\nX-Two: 2\r\n ";
  fields.contentLength = 5'368'709'120;
  EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon +
                                    "Content-Type:  text/plain \r\n"
                                    "X-One: 1\r\nX-Two: 2\r\n"
                                    "Content-Length: 5368709120\r\n"
                                    "\r\n");
}

TEST(ResponseHeaderTest, BlankTypeAndBlankExtraHeadersAreLeftOut) {
  HeaderFields fields = Fields("200");
  fields.contentType = "   ";
  fields.extraHeaders = "   ";
  EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon + "\r\n");
}

TEST(ResponseHeaderTest, TheDateFollowsTheClockOverYearEnds) {
  const struct {
    std::int64_t seconds;
    const char* date;
  } cases[] = {
      {1798761599, "Thu, 31 Dec 2026 23:59:59 GMT"}, {1798761600, "Fri, 01 Jan 2027 00:00:00 GMT"},
      {1798761599, "Thu, 31 Dec 2026 23:59:59 GMT"}, {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
      {1709164800, "Thu, 29 Feb 2024 00:00:00 GMT"},
  };
  for (const auto& c : cases) {
    HeaderFields fields = Fields("200");
    fields.utcSeconds = c.seconds;
    EXPECT_EQ(HeaderText(fields),
              "HTTP/1.0 200 OK\r\nServer: Orvane Tessel/1.1\r\nDate: " + std::string(c.date) + "\r\n\r\n");
  }
}

TEST(ResponseHeaderTest, SettingsAreCutAtTheirFirstLineEnd) {
  const char* const ends[] = {"\r\n", "\r", "\n", "\r\n\r\n", "\n\n"};
  for (const std::string end : ends) {
    const std::string attempt = end + "X-Injected: 1\r\n\r\n<html>";
    const std::string code = "200" + attempt;
    const std::string software = "Orvane Tessel/1.1" + attempt;
    const std::string type = "text/html" + attempt;
    HeaderFields fields = Fields(code);
    fields.software = software;
    fields.contentType = type;
    EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon + "Content-Type: text/html\r\n\r\n");
  }
  HeaderFields fields = Fields("200");
  fields.contentType = "\r\nX-Injected: 1";
  EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon + "\r\n") << "nothing left of the type: no line";
}

TEST(ResponseHeaderTest, ExtraHeadersCannotEndTheHeaderEarly) {
  const struct {
    const char *given, *sent, *why;
  } cases[] = {
      {"X: 1\r\n", "X: 1\r\n", "as it should be"},
      {"X: 1\r\nY: 2\r\n", "X: 1\r\nY: 2\r\n", "two lines"},
      {"X: 1\nY: 2\n", "X: 1\nY: 2\n", "other line ends are the caller's choice"},
      {"X: 1", "X: 1", "nothing is added"},
      {"X: 1\r\n\r\n", "X: 1\r\n", "an empty line at the end"},
      {"X: 1\r\n\r\n\r\nY: 2\r\n", "X: 1\r\nY: 2\r\n", "empty lines within"},
      {"\r\nX: 1\r\n", "X: 1\r\n", "an empty line in front"},
      {"\r\n", "", "nothing but an empty line"},
      {"X: 1\n\nY: 2\n", "X: 1\r\nY: 2\r\n", "bare line feeds"},
      {"X: 1\r\rY: 2\r\n", "X: 1\r\nY: 2\r\n", "bare carriage returns"},
      {"X: 1\r\r\n", "X: 1\r\n", "a carriage return too many"},
      {"X: 1\r\n \t\r\nY: 2\r\n", "X: 1\r\nY: 2\r\n", "a line of blanks and tabs"},
      {"X: 1\r\n\r\nY: 2", "X: 1\r\nY: 2", "the last line has no end here either"},
  };
  for (const auto& c : cases) {
    HeaderFields fields = Fields("200");
    fields.extraHeaders = c.given;
    EXPECT_EQ(HeaderText(fields), "HTTP/1.0 200 OK\r\n" + kCommon + c.sent + "\r\n") << c.why;
  }
}

TEST(ResponseHeaderTest, ManyLinesWithBareCarriageReturnsAreSentAsTheyAre) {
  constexpr std::size_t kLines = 512 * 1024;
  std::string given, asLines;
  for (std::size_t i = 0; i < kLines; ++i) {
    given += "a\r";
    asLines += "a\r\n";
  }
  HeaderFields fields = Fields("200");
  fields.extraHeaders = given;
  EXPECT_TRUE(HeaderText(fields) == "HTTP/1.0 200 OK\r\n" + kCommon + given + "\r\n");
  const std::string withBlankLine = given + "\r";
  fields.extraHeaders = withBlankLine;
  EXPECT_TRUE(HeaderText(fields) == "HTTP/1.0 200 OK\r\n" + kCommon + asLines + "\r\n") << "a blank line at the end";
}

// Whether `text`, cut at CR LF, CR or LF as a lenient client may do it, holds a line of nothing but blanks and tabs.
bool HasBlankLine(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    if (text.substr(0, end).find_first_not_of(" \t") == std::string_view::npos) return true;
    text.remove_prefix(end);
    text.remove_prefix(text.starts_with("\r\n") ? 2 : text.empty() ? 0 : 1);
  }
  return false;
}

TEST(ResponseHeaderTest, NoTextOfUpToSevenBytesEndsTheHeaderEarly) {
  constexpr std::string_view kBytes = "x\r\n \t";
  std::size_t texts = 0;
  for (std::size_t length = 1; length <= 7; ++length) {
    std::string extra(length, kBytes[0]);
    std::vector<std::size_t> digits(length, 0);
    for (bool more = true; more;) {
      HeaderFields fields = Fields("200");
      fields.extraHeaders = extra;
      fields.endHeader = false;
      const std::string header = HeaderText(fields);
      ASSERT_FALSE(HasBlankLine(header)) << testing::PrintToString(extra) << testing::PrintToString(header);
      ++texts;
      more = false;
      for (std::size_t i = 0; i < length && !more; ++i) {
        digits[i] = (digits[i] + 1) % kBytes.size();
        extra[i] = kBytes[digits[i]];
        more = digits[i] != 0;
      }
    }
  }
  EXPECT_EQ(texts, 97655u) << "5 + 25 + ... + 78125";
}

}  // namespace
}  // namespace TesselServer
