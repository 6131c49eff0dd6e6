// The same request in every cut.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "control/connection/Reception.h"
#include "tests/kit/Receptions.h"

namespace TesselServer {
namespace {

using Kit::Outcome;

// Brings the bytes in pieces and says whether the end of input was needed for an answer.
Outcome AnswerTo(Reception& reception, const Kit::Pieces& pieces) {
  const auto answer = Kit::Answer(Kit::Bring(reception, pieces));
  return Kit::IsFinal(answer) ? answer : reception.EndOfInput();
}

// Requests that are complete with their last byte or later: no cut may change anything.
TEST(ReceptionCutTest, BodiesAndRefusalsAreTheSameInEveryCut) {
  struct {
    std::string_view raw;
    Outcome outcome;
    std::string_view path, method, agent, body;
    const char* why;
  } const cases[] = {
      {"POST /form?a=1 HTTP/1.0\r\nUser-Agent: u\r\nContent-Length: 12\r\n\r\nabcdefghijkl", Outcome::kComplete, "form",
       "POST", "u", "abcdefghijkl", "a form"},
      {"POST /form HTTP/1.0\r\nContent-Length: 5\r\nUser-Agent: u\r\n\r\nabcde", Outcome::kComplete, "form", "POST",
       "u", "abcde", "all within the tolerance"},
      {"POST /form HTTP/1.0\r\nContent-Length: 20\r\n\r\nabc\r\n\r\ndef\r\n\r\nGET / x", Outcome::kComplete, "form",
       "POST", "", "abc\r\n\r\ndef\r\n\r\nGET / ", "blank lines and a GET in the body, and a byte too many"},
      {"POST /form HTTP/1.0\r\nContent-Length: 20\r\n\r\nabcdefghijklmno", Outcome::kComplete, "form", "POST", "",
       "abcdefghijklmno", "five short: complete at the end of input"},
      {"POST /form HTTP/1.0\r\nContent-Length: 20\r\n\r\nabc", Outcome::kIgnored, "form", "POST", "", "abc",
       "far too short: no request"},
      {"PUT http://host/a HTTP/1.0\r\ncontent-length:3\r\nUser-Agent: u\r\n\r\n  z", Outcome::kComplete, "a", "POST",
       "u", "  z", "another method, blanks in the body"},
      {"POST /a HTTP/1.0\r\nContent-Length:0\r\nUser-Agent: u\r\n\r\n", Outcome::kComplete, "a", "POST", "u", "",
       "an empty body without its blank"},
      {"POST /a HTTP/1.0\nUser-Agent: u\r\nContent-Length: 3\r\n\r\nxyz", Outcome::kComplete, "a", "POST", "u", "xyz",
       "a bare LF behind the request line"},
      {"HEAD /a HTTP/1.0\r\nUser-Agent: u\r\n\r\n", Outcome::kBad, "a", "POST", "u", "", "HEAD"},
      {"get /a HTTP/1.0\r\nUser-Agent: u\r\n\r\n", Outcome::kBad, "a", "POST", "u", "", "lower case"},
      {"GEX /a HTTP/1.0\r\nUser-Agent: u\r\n\r\n", Outcome::kBad, "a", "POST", "u", "", "nearly a GET"},
      {"GET\t/a HTTP/1.0\r\nUser-Agent: u\r\n\r\n", Outcome::kBad, "HTTP/1.0", "POST", "u", "", "a tab is no blank"},
      {"   POST /a HTTP/1.0\r\nContent-Length: x\r\nUser-Agent: u\r\n\r\n", Outcome::kBad, "a", "POST", "u", "",
       "no number, and blanks before it"},
      {"POST /a HTTP/1.0\r\nContent-Length: 3000000000\r\n\r\nabc", Outcome::kBad, "a", "POST", "", "", "too long"},
      {"HEAD /a HTTP/1.0\r\nUser-Agent: u\r\n", Outcome::kBad, "a", "POST", "u", "", "no blank line at all"},
      {"POST /a HTTP/1.0\r\nContent-Length: 8\r\n\r", Outcome::kComplete, "a", "POST", "", "",
       "no blank line, 8 missing"},
  };
  for (const auto& c : cases) {
    Reception whole;
    EXPECT_EQ(AnswerTo(whole, {c.raw}), c.outcome) << c.why;
    EXPECT_EQ(whole.Fields().RequestPath, c.path) << c.why;
    EXPECT_EQ(whole.Fields().RequestMethod, c.method) << c.why;
    EXPECT_EQ(whole.Fields().RequestUserAgent, c.agent) << c.why;
    EXPECT_EQ(whole.Fields().RequestBody, c.body) << c.why;
    for (const auto& pieces : Kit::AllCuts(c.raw)) {
      Reception cut;
      EXPECT_EQ(AnswerTo(cut, pieces), c.outcome) << c.why << ", first piece " << pieces.front().size();
      EXPECT_EQ(Kit::Describe(cut.Fields()), Kit::Describe(whole.Fields()))
          << c.why << ", first piece " << pieces.front().size();
    }
  }
}

// Requests that are complete before their last byte: what came later is not seen. `decided` is how many bytes it takes.
TEST(ReceptionCutTest, GetsAreTakenAsFarAsTheyCame) {
  struct {
    std::string_view raw;
    std::size_t decided;
    std::string_view uri, path, query;
    const char* why;
  } const cases[] = {
      {"GET /a.htm HTTP/1.0\r\nAccept: b\r\nUser-Agent: u\r\n\r\n", 11, "/a.htm", "a.htm", "", "plain"},
      {"GET / HTTP/1.0\r\nReferer: r\r\nAccept: b\r\nAccept: c\r\n\r\n", 6, "/", "/", "", "the root"},
      {"GET /a?b=c&d HTTP/1.0\r\nAuthorization: Basic dXNlcjpwYXNz\r\n\r\n", 13, "/a", "a", "b=c&d", "a query"},
      {"GET http://host/a HTTP/1.0\r\nAccept: b\r\n\r\n", 18, "/a", "a", "", "an absolute URL"},
      {"GET HTTPS://host?x HTTP/1.0\r\nAccept: b\r\n\r\n", 19, "/", "/", "x", "an absolute URL without a path"},
      {"   GET /a HTTP/1.0\r\nAccept: b\r\n\r\n", 10, "/a", "a", "", "blanks before it"},
      {"GET /a\r\nAccept: b\r\n\r\n", 7, "/a", "a", "", "no version"},
      {"GET /a\nAccept: b\r\n\r\n", 7, "/a", "a", "", "a bare LF"},
      {"GET  HTTP/1.0\r\nAccept: b\r\n\r\n", 5, "", "", "", "no URL"},
      {"GET /a HTTP/1.0\r\nContent-Length: 5\r\n\r\nabcde", 7, "/a", "a", "", "a body that nobody asked for"},
      {"GET /a HTTP/1.0\r\n\r\nGET /b HTTP/1.0\r\n\r\n", 7, "/a", "a", "", "a second request behind it"},
      {"PUT /a HTTP/1.0\r\nUser-Agent: u\r\nContent-Length: 0\r\nReferer: r\r\n\r\n", 49, "/a", "a", "",
       "another method without a body"},
      {"PUT /a HTTP/1.0\r\nCONTENT-LENGTH: 05\r\nReferer: r\r\n\r\nabcde", 34, "/a", "a", "", "the text search again"},
  };
  for (const auto& c : cases) {
    for (const auto& pieces : Kit::AllCuts(c.raw)) {
      Reception cut;
      EXPECT_EQ(Kit::Answer(Kit::Bring(cut, pieces)), Outcome::kComplete) << c.why;
      EXPECT_EQ(cut.Fields().RequestMethod, "GET") << c.why;
      EXPECT_EQ(cut.Fields().DocumentURI, c.uri) << c.why;
      EXPECT_EQ(cut.Fields().RequestPath, c.path) << c.why;
      EXPECT_EQ(cut.Fields().RequestQuery, c.query) << c.why;
      EXPECT_EQ(cut.Fields().ContentLengthText, "") << c.why;
      EXPECT_EQ(cut.Fields().RequestBody, "") << c.why;
      // The header fields are those of the pieces up to the one that decided, and no others.
      std::size_t seen = 0;
      for (std::size_t i = 0; seen < c.decided; ++i) seen += pieces[i].size();
      Reception part;
      ASSERT_EQ(part.Data(c.raw.substr(0, seen)), Outcome::kComplete) << c.why;
      EXPECT_EQ(Kit::Describe(cut.Fields()), Kit::Describe(part.Fields())) << c.why;
    }
  }
}

TEST(ReceptionCutTest, AGetByteByByteHasNoHeaderFields) {
  constexpr std::string_view kRaw = "GET /a HTTP/1.0\r\nAccept: b\r\nReferer: c\r\nUser-Agent: d\r\n\r\n";
  Reception reception;
  EXPECT_EQ(Kit::Answer(Kit::Bring(reception, Kit::ByteByByte(kRaw))), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestLine, "GET /a");
  EXPECT_EQ(reception.Fields().RequestPath, "a");
  EXPECT_EQ(reception.Fields().RequestHeader, "");
  EXPECT_EQ(reception.Fields().RequestAccept, "");
  EXPECT_EQ(reception.Fields().RequestReferer, "");
  EXPECT_EQ(reception.Fields().RequestUserAgent, "");
  EXPECT_TRUE(reception.InputMayCome());
}

TEST(ReceptionCutTest, OutcomesOnTheWay) {
  struct {
    std::string_view raw, outcomes;
    const char* why;
  } const cases[] = {
      // One letter a byte: w waiting, h holding, g grace, l late body, C complete, B bad, i ignored.
      {"GET /a HTTP", "wwwwwwCiiii", "a GET is waited for as long as it takes"},
      {"  GET  x", "wwwwwwCi", "leading blanks"},
      {"GEX / H\r\n\r\n", "wwhhhhhhhhB", "held from where it is no GET"},
      {"PUT / H\r\nContent-Length: 1\r\n\r\nab", "hhhhhhhhhhhhhhhhhhhhhhhhhhhhhlCi", "a body of one byte"},
      {"PUT / H\r\nContent-Length: 9\r\n\r\n123456789", "hhhhhhhhhhhhhhhhhhhhhhhhhhhhhwggggggggC", "and of nine"},
      {"PUT / H\r\nContent-Length: 0\r\n\r\n", "hhhhhhhhhhhhhhhhhhhhhhhhhCiiii", "no body"},
  };
  for (const auto& c : cases) {
    Reception reception;
    std::string outcomes;
    for (const auto outcome : Kit::Bring(reception, Kit::ByteByByte(c.raw))) {
      outcomes += "whglCBi"[static_cast<std::size_t>(outcome)];
    }
    EXPECT_EQ(outcomes, c.outcomes) << c.why;
  }
}

}  // namespace
}  // namespace TesselServer
