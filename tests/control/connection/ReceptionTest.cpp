#include <gtest/gtest.h>

#include <random>
#include <string>

#include "control/connection/Reception.h"
#include "support/Text.h"
#include "tests/kit/Receptions.h"

namespace TesselServer {
namespace {

using Kit::Outcome;
using namespace std::string_view_literals;

TEST(ReceptionTest, ReadsAGetWithAllItsFields) {
  const std::string lines =
      "GET http://host/docs/a%20b.htm?x=1&y HTTP/1.0\r\n"
      "Accept: text/html\r\n"
      "Accept: */*\r\n"
      "REFERER: http://host/\r\n"
      "User-Agent: Tester/1 (x)\r\n"
      "Content-Type: text/plain\r\n"
      "Authorization: Basic dXNlcjpwYXNz\r\n";
  Reception reception;
  EXPECT_EQ(reception.Data(lines + "\r\n"), Outcome::kComplete);
  RequestFields expected;
  expected.RequestLine = "GET http://host/docs/a%20b.htm?x=1&y HTTP/1.0";
  expected.DocumentURI = "/docs/a%20b.htm";
  expected.RequestPath = "docs/a%20b.htm";
  expected.RequestQuery = "x=1&y";
  expected.RequestMethod = "GET";
  expected.RequestHeader = lines;
  expected.RequestAccept = "text/html, */*";
  expected.RequestReferer = "http://host/";
  expected.RequestUserAgent = "Tester/1 (x)";
  expected.RequestContentType = "text/plain";
  expected.AuthUser = "user";
  expected.AuthPassword = "pass";
  EXPECT_EQ(Kit::Describe(reception.Fields()), Kit::Describe(expected));
  EXPECT_FALSE(reception.InputMayCome());
}

TEST(ReceptionTest, ReadsAPostWithItsBody) {
  const std::string lines = "POST /form?a=b HTTP/1.0\r\nContent-Type: x/y\r\nContent-Length: 12abc\r\n";
  Reception reception;
  EXPECT_EQ(reception.Data(lines + "\r\nname=value&z"), Outcome::kComplete);
  RequestFields expected;
  expected.RequestLine = "POST /form?a=b HTTP/1.0";
  expected.DocumentURI = "/form";
  expected.RequestPath = "form";
  expected.RequestQuery = "a=b";
  expected.RequestMethod = "POST";
  expected.RequestHeader = lines;
  expected.RequestContentType = "x/y";
  expected.ContentLengthText = "12";
  expected.RequestBody = "name=value&z";
  expected.BodyWritePos = 13;
  expected.HeaderEndPos = static_cast<std::int64_t>(lines.size()) - 1;
  EXPECT_EQ(Kit::Describe(reception.Fields()), Kit::Describe(expected));
  EXPECT_FALSE(reception.InputMayCome());
}

TEST(ReceptionTest, StartsWithTheValuesOfAnAcceptedConnection) {
  Reception reception;
  EXPECT_EQ(Kit::Describe(reception.Fields()), Kit::Describe(RequestFields()));
  EXPECT_EQ(reception.Fields().BodyWritePos, 1);
  EXPECT_EQ(reception.Fields().HeaderEndPos, 1);
  EXPECT_TRUE(reception.InputMayCome());
}

TEST(ReceptionTest, AnswersEveryKindOfStart) {
  struct {
    std::string_view raw;
    Outcome outcome;
    std::string_view path, method, lengthText;
    const char* why;
  } const cases[] = {
      {"GET / HTTP/1.0\r\n\r\n", Outcome::kComplete, "/", "GET", "", "a plain one"},
      {"GET /a HTTP/1.0\r\nHost: b", Outcome::kComplete, "a", "GET", "", "the blank line is not awaited"},
      {"GET /a ", Outcome::kComplete, "a", "GET", "", "nor is the line's end"},
      {"GET /a\r", Outcome::kComplete, "a", "GET", "", "a CR ends the URL"},
      {"GET /a\n", Outcome::kComplete, "a", "GET", "", "an LF too"},
      {"   GET /a HTTP/1.0\r\n\r\n", Outcome::kComplete, "a", "GET", "", "leading blanks"},
      {"GET  HTTP/1.0\r\n\r\n", Outcome::kComplete, "", "GET", "", "no URL"},
      {"GET  ", Outcome::kComplete, "", "GET", "", "no URL, known as soon as can be"},
      {"GET \r\n\r\n", Outcome::kComplete, "", "GET", "", "no URL"},
      {"GET /a HTTP/1.0\r\nContent-Length: 5\r\n\r\n", Outcome::kComplete, "a", "GET", "", "a GET awaits no body"},
      {"", Outcome::kWaiting, "", "", "", "nothing"},
      {"G", Outcome::kWaiting, "", "", "", "may become a GET"},
      {"  GE", Outcome::kWaiting, "", "", "", "may become a GET"},
      {"GET", Outcome::kWaiting, "", "", "", "may become a GET"},
      {"GET ", Outcome::kWaiting, "", "", "", "the URL has not begun"},
      {"GET /a", Outcome::kWaiting, "", "", "", "the URL may go on"},
      {"GET\r\n\r\n", Outcome::kBad, "/", "POST", "", "no GET without its blank"},
      {"GETX / HTTP/1.0\r\n\r\n", Outcome::kBad, "/", "POST", "", "another method"},
      {"get /a HTTP/1.0\r\n\r\n", Outcome::kBad, "a", "POST", "", "lower case is not recognised"},
      {"get /a HTTP/1.0\r\nContent-Length: 0\r\n\r\n", Outcome::kComplete, "a", "GET", "", "unless it has no body"},
      {"\r\nGET / HTTP/1.0\r\n\r\n", Outcome::kBad, "/", "POST", "", "a line end before it"},
      {"\tGET / HTTP/1.0\r\n\r\n", Outcome::kBad, "/", "POST", "", "a tab before it"},
      {"HEAD /a HTTP/1.0\r\n\r\n", Outcome::kBad, "a", "POST", "", "HEAD is no GET"},
      {"OPTIONS * HTTP/1.0\r\n\r\n", Outcome::kBad, "*", "POST", "", "nor is OPTIONS"},
      {"DELETE /a HTTP/1.0\r\nContent-Length: 0\r\n\r\n", Outcome::kComplete, "a", "GET", "",
       "any method without body"},
      {"POST /a HTTP/1.0\r\nContent-Length: 0", Outcome::kComplete, "a", "GET", "", "at once, blank line or not"},
      {"POST /a HTTP/1.0\r\ncontent-length: 0\r\n\r\n", Outcome::kComplete, "a", "GET", "", "in any case"},
      {"POST /a HTTP/1.0\r\nContent-Length: 05\r\n\r\n12345", Outcome::kComplete, "a", "GET", "",
       "a plain text search"},
      {"POST /a HTTP/1.0\r\nX-Content-Length: 0\r\n\r\n", Outcome::kComplete, "a", "GET", "", "a plain text search"},
      {"POST /a HTTP/1.0\r\nContent-Length: 17\r\n\r\nContent-Length: 0", Outcome::kComplete, "a", "GET", "",
       "a plain text search, in a body that came along too"},
      {"POST /a HTTP/1.0\r\nContent-Length:0\r\n\r\n", Outcome::kComplete, "a", "POST", "0", "without its blank"},
      {"POST /a HTTP/1.0\r\nContent-Length:00\r\n\r\n", Outcome::kComplete, "a", "POST", "0", "two zeros"},
      {"PUT /a HTTP/1.0\r\nContent-Length: 3\r\n\r\nabc", Outcome::kComplete, "a", "POST", "3", "like a POST"},
      {"POST /a HTTP/1.0\r\n\r\n", Outcome::kBad, "a", "POST", "", "no length"},
      {"POST  HTTP/1.0\r\n\r\n", Outcome::kBad, "/", "POST", "", "a refused request has a path"},
      {"POST /a HTTP/1.0\r\nContent-Length: \r\n\r\n", Outcome::kBad, "a", "POST", "", "an empty length"},
      {"POST /a HTTP/1.0\r\nContent-Length: abc\r\n\r\n", Outcome::kBad, "a", "POST", "", "no number"},
      {"POST /a HTTP/1.0\r\nContent-Length: -5\r\n\r\n", Outcome::kBad, "a", "POST", "", "negative"},
      {"POST /a HTTP/1.0\r\nContent-Length: 5\0\r\n\r\n12345"sv, Outcome::kBad, "a", "POST", "", "a NUL"},
      {"POST /a HTTP/1.0\r\nContent-Length: 2147483648\r\n\r\n", Outcome::kBad, "a", "POST", "", "beyond 32 bits"},
      {"POST /a HTTP/1.0\r\nContent-Length: 99999999999999999999\r\n\r\n", Outcome::kBad, "a", "POST", "", "beyond 64"},
      {"POST /a HTTP/1.0\r\nContent-Length: 67108865\r\n\r\n", Outcome::kBad, "a", "POST", "", "beyond the limit"},
      {"POST /a HTTP/1.0\r\nContent-Length: 67108864\r\n\r\n", Outcome::kWaiting, "a", "POST", "67108864", "at it"},
      {"POST /a HTTP/1.0\r\nContent-Length: 20\r\n", Outcome::kHolding, "", "", "", "no blank line"},
      {"HEAD", Outcome::kHolding, "", "", "", "no line end"},
      {"\x16\x03\x01\x02", Outcome::kHolding, "", "", "", "no HTTP at all"},
  };
  for (const auto& c : cases) {
    Reception reception;
    EXPECT_EQ(reception.Data(c.raw), c.outcome) << c.raw << ": " << c.why;
    EXPECT_EQ(reception.Fields().RequestPath, c.path) << c.raw << ": " << c.why;
    EXPECT_EQ(reception.Fields().RequestMethod, c.method) << c.raw << ": " << c.why;
    EXPECT_EQ(reception.Fields().ContentLengthText, c.lengthText) << c.raw << ": " << c.why;
    EXPECT_EQ(reception.Fields().BodyPending, c.outcome == Outcome::kWaiting && !c.lengthText.empty()) << c.why;
  }
}

TEST(ReceptionTest, TheMarkOfAnEmptyBodyIsFoundWhereverAPlainSearchFindsIt) {
  constexpr std::string_view kParts[] = {"Content-Length: 0",
                                         "content-LENGTH: 0",
                                         "Content-Length:",
                                         "Content-Length",
                                         ": 0",
                                         ":",
                                         " ",
                                         "0",
                                         "h: 0",
                                         "\r\n.",
                                         "Content-",
                                         "Length: 0",
                                         "x",
                                         "X-"};
  std::minstd_rand random(20261115);
  for (int round = 0; round < 5000; ++round) {
    std::string text = "PUT /";
    for (auto left = random() % 12; left > 0; --left) text += kParts[random() % std::size(kParts)];
    const bool isMarked = FindNoCase(text, "Content-Length: 0") != std::string::npos;
    for (const std::size_t cut : {std::size_t{5}, text.size() / 2, text.size()}) {
      Reception reception;
      const auto first = reception.Data(std::string_view(text).substr(0, cut));
      const auto last = first == Outcome::kHolding ? reception.Data(std::string_view(text).substr(cut)) : first;
      EXPECT_EQ(last == Outcome::kComplete && reception.Fields().RequestMethod == "GET", isMarked) << text;
    }
  }
}

TEST(ReceptionTest, TakesALimitForBodies) {
  struct {
    std::int64_t limit;
    const char* length;
    Outcome outcome;
  } const cases[] = {
      {100, "100", Outcome::kWaiting},
      {100, "101", Outcome::kBad},
      {0, "1", Outcome::kBad},
      {std::int64_t{1} << 40, "2147483647", Outcome::kWaiting},
      {std::int64_t{1} << 40, "2147483648", Outcome::kBad},
  };
  for (const auto& c : cases) {
    Reception reception(c.limit);
    EXPECT_EQ(reception.Data("POST / HTTP/1.0\r\nContent-Length: " + std::string(c.length) + "\r\n\r\n"), c.outcome);
    reception.Reset();
    EXPECT_EQ(reception.Data("POST / HTTP/1.0\r\nContent-Length: " + std::string(c.length) + "\r\n\r\n"), c.outcome)
        << "a reset keeps the limit";
  }
}

TEST(ReceptionTest, DropsWhatComesAfterTheRequest) {
  for (const std::string first : {"GET /a HTTP/1.0\r\n\r\n", "POST /a HTTP/1.0\r\n\r\n"}) {
    Reception reception;
    const auto answer = reception.Data(first);
    ASSERT_TRUE(Kit::IsFinal(answer));
    const auto fields = Kit::Describe(reception.Fields());
    EXPECT_EQ(reception.Data("Accept: late\r\n\r\n"), Outcome::kIgnored);
    EXPECT_EQ(reception.Data("GET /b HTTP/1.0\r\n\r\n"), Outcome::kIgnored);
    EXPECT_EQ(reception.TimeUp(), Outcome::kIgnored);
    EXPECT_EQ(reception.EndOfInput(), Outcome::kIgnored);
    EXPECT_EQ(Kit::Describe(reception.Fields()), fields);
  }
}

TEST(ReceptionTest, DoesNotSeeAGetsLaterHeaderFields) {
  Reception reception;
  EXPECT_EQ(reception.Data("GET /a HTTP/1.0\r\nReferer: r\r\nUser-"), Outcome::kComplete);
  EXPECT_EQ(reception.Data("Agent: u\r\nAccept: a\r\n\r\n"), Outcome::kIgnored);
  EXPECT_EQ(reception.Fields().RequestReferer, "r");
  EXPECT_EQ(reception.Fields().RequestUserAgent, "");
  EXPECT_EQ(reception.Fields().RequestAccept, "");
  EXPECT_EQ(reception.Fields().RequestHeader, "") << "the block's end was not seen";
}

TEST(ReceptionTest, KnowsWhetherInputMayCome) {
  struct {
    std::vector<std::string_view> chunks;
    bool mayCome;
    const char* why;
  } const cases[] = {
      {{"GET / HTTP/1.0\r\n\r\n"}, false, "all read"},
      {{"GET / HTTP/1.0\r\n"}, true, "no blank line yet"},
      {{"GET / HTTP/1.0\r\n", "\r\n"}, true, "its end was dropped"},
      {{"GET / HTTP/1.0\r\n\r\nx"}, true, "something behind it"},
      {{"GET / HTTP/1.0\r\n\r\n", "x"}, true, "something after it"},
      {{"GET / HTTP/1.0\r\n\r\n", ""}, false, "nothing after it"},
      {{"GET / HTTP/1.0\r\nContent-Length: 5\r\n\r\n"}, true, "a body was announced"},
      {{"GET / HTTP/1.0\r\nContent-Length: 5\r\n\r\n12345"}, false, "and came along"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 0\r\n\r\n"}, false, "an empty body"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 0"}, true, "its blank line is to come"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 05\r\n\r\n"}, true, "five bytes are to come"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 9\r\n\r\n123456789"}, false, "body complete"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 9\r\n\r\n", "123456789"}, false, "body complete"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 9\r\n\r\n", "123456789x"}, true, "more than announced"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 9\r\n\r\n", "123456789", "x"}, true, "more than announced, later"},
      {{"PUT / HTTP/1.0\r\nContent-Length: 9\r\n\r\n", "12"}, true, "body not complete"},
      {{"POST / HTTP/1.0\r\n\r\n"}, true, "refused: who knows what it sends"},
      {{}, true, "nothing has come"},
  };
  for (const auto& c : cases) {
    Reception reception;
    Kit::Bring(reception, c.chunks);
    EXPECT_EQ(reception.InputMayCome(), c.mayCome) << c.why;
  }
}

TEST(ReceptionTest, ShortBodiesLeaveInputToCome) {
  Reception reception;
  EXPECT_EQ(reception.Data("PUT / HTTP/1.0\r\nContent-Length: 5\r\n\r\n1234"), Outcome::kGrace);
  EXPECT_EQ(reception.TimeUp(), Outcome::kComplete);
  EXPECT_TRUE(reception.InputMayCome());
}

TEST(ReceptionTest, EndOfInputDecides) {
  struct {
    std::string_view raw;
    Outcome outcome;
    std::string_view path, body;
    const char* why;
  } const cases[] = {
      {"", Outcome::kIgnored, "", "", "nothing came"},
      {"   ", Outcome::kIgnored, "", "", "blanks"},
      {"G", Outcome::kIgnored, "", "", "no request"},
      {"GET", Outcome::kIgnored, "", "", "no request"},
      {"GET ", Outcome::kIgnored, "", "", "no URL"},
      {"GET /", Outcome::kComplete, "/", "", "a URL's end is the end of the text"},
      {" GET /a?b", Outcome::kComplete, "a", "", "a URL's end is the end of the text"},
      {"HEAD /a HTTP/1.0\r\n", Outcome::kBad, "a", "", "no length"},
      {"POST /a HTTP/1.0\r\nContent-Length: 9\r\n", Outcome::kIgnored, "a", "", "9 of 9 missing"},
      {"POST /a HTTP/1.0\r\nContent-Length: 8\r\n", Outcome::kComplete, "a", "", "8 missing: within the tolerance"},
      {"POST /a HTTP/1.0\r\nContent-Length: 20\r\n\r\n12345678901", Outcome::kIgnored, "a", "12345678901", "9 missing"},
      {"POST /a HTTP/1.0\r\nContent-Length: 20\r\n\r\n123456789012", Outcome::kComplete, "a", "123456789012",
       "8 missing"},
  };
  for (const auto& c : cases) {
    for (const auto& pieces : Kit::AllCuts(c.raw)) {
      Reception reception;
      for (const auto outcome : Kit::Bring(reception, pieces)) ASSERT_FALSE(Kit::IsFinal(outcome)) << c.raw;
      EXPECT_EQ(reception.EndOfInput(), c.outcome) << c.raw << ": " << c.why;
      EXPECT_EQ(reception.Fields().RequestPath, c.path) << c.raw << ": " << c.why;
      EXPECT_EQ(reception.Fields().RequestBody, c.body) << c.raw << ": " << c.why;
      EXPECT_FALSE(reception.Fields().BodyPending) << c.raw;
      EXPECT_EQ(reception.Data("GET / HTTP/1.0\r\n\r\n"), Outcome::kIgnored) << c.raw;
      EXPECT_EQ(reception.EndOfInput(), Outcome::kIgnored) << c.raw;
    }
  }
}

TEST(ReceptionTest, HeldHeaderBlocksAreTakenAsTheyStandWhenTimeIsUp) {
  struct {
    std::string_view raw;
    Outcome outcome;
    std::string_view path, lengthText;
    const char* why;
  } const cases[] = {
      {"HEAD /a HTTP/1.0\r\n", Outcome::kBad, "a", "", "no length"},
      {"xyz", Outcome::kBad, "/", "", "nothing of use"},
      {"POST /a HTTP/1.0\r\nContent-Length: x", Outcome::kBad, "a", "", "no number"},
      {"POST /a HTTP/1.0\r\nContent-Length: 20", Outcome::kWaiting, "a", "20", "a body is awaited"},
      {"POST /a HTTP/1.0\r\nContent-Length: 5", Outcome::kLateBody, "a", "5", "a short one for a while"},
      {"POST /a HTTP/1.0\r\nContent-Length:0\r\n", Outcome::kComplete, "a", "0", "an empty body is there"},
  };
  for (const auto& c : cases) {
    Reception reception;
    ASSERT_EQ(reception.Data(c.raw), Outcome::kHolding);
    EXPECT_EQ(reception.TimeUp(), c.outcome) << c.why;
    EXPECT_EQ(reception.Fields().RequestPath, c.path) << c.why;
    EXPECT_EQ(reception.Fields().ContentLengthText, c.lengthText) << c.why;
    EXPECT_EQ(reception.Fields().RequestHeader, "") << c.why;
    EXPECT_EQ(reception.Fields().HeaderEndPos, 0) << c.why;
    EXPECT_TRUE(reception.InputMayCome()) << c.why;
  }
}

TEST(ReceptionTest, TimeUpMeansNothingWhereNoTimeRuns) {
  for (const std::string raw : {"", "GE", "GET /a", "POST / HTTP/1.0\r\nContent-Length: 20\r\n\r\n"}) {
    Reception reception;
    EXPECT_EQ(reception.Data(raw), Outcome::kWaiting) << raw;
    EXPECT_EQ(reception.TimeUp(), Outcome::kIgnored) << raw;
    const auto rest = raw.starts_with("POST") ? std::string(20, 'b') : std::string("GET /a ").substr(raw.size());
    EXPECT_EQ(reception.Data(rest), Outcome::kComplete) << raw << ": it is still awaited";
  }
}

TEST(ReceptionTest, ResetForgetsEverything) {
  for (const std::string raw :
       {"GET /a?b HTTP/1.0\r\nAccept: c\r\n\r\n", "  GET /unfin", "POST / HTTP/1.0\r\nA: b\r\n\r",
        "POST / HTTP/1.0\r\nContent-Length: 20\r\n\r\nabc", "HEAD / HTTP/1.0\r\n\r\n"}) {
    Reception reception;
    reception.Data(raw);
    reception.Reset();
    EXPECT_EQ(Kit::Describe(reception.Fields()), Kit::Describe(RequestFields())) << raw;
    EXPECT_TRUE(reception.InputMayCome()) << raw;
    EXPECT_EQ(reception.Data("POST /p HTTP/1.0\r\nContent-Length: 3\r\n\r\nxyz"), Outcome::kComplete) << raw;
    EXPECT_EQ(reception.Fields().RequestBody, "xyz") << raw;
  }
}

}  // namespace
}  // namespace TesselServer
