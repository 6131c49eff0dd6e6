#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/http/modern/ReadRequests.h"

namespace TesselServer::Modern {
namespace {

using State = RequestReader::State;

constexpr std::string_view kGet = "GET /x HTTP/1.1\r\nHost: a\r\n\r\n";

std::string Times(std::size_t count, std::string_view text) {
  std::string all;
  while (count-- > 0) all += text;
  return all;
}

// A block whose lines have `bytes` bytes together, without the blank line.
std::string HeadOf(std::size_t bytes) {
  std::string head = "GET / HTTP/1.1\r\nHost: a\r\nX: ";
  head.append(bytes - head.size() - 2, 'x');
  return head + "\r\n";
}

TEST(ModernRequestReaderTest, SaysWhatItTookAndWhatComesNext) {
  RequestReader reader;
  Request request;
  reader.Begin({});
  const std::string text = "POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc" + std::string(kGet);
  std::string_view rest = text;
  const auto next = [&] {
    const auto step = reader.Next(rest, request);
    rest.remove_prefix(step.used);
    return step;
  };
  EXPECT_FALSE(reader.HasBegun());
  EXPECT_EQ(next().state, State::kHead);
  EXPECT_TRUE(reader.HasBegun());
  EXPECT_EQ(reader.BodyReceived(), 0);
  EXPECT_TRUE(rest.starts_with("abc")) << "nothing of the body is taken with the head";
  const auto step = next();
  EXPECT_EQ(step.state, State::kBody);
  EXPECT_EQ(step.body.data(), text.data() + text.find("abc")) << "a piece is no copy";
  EXPECT_EQ(step.body, "abc");
  EXPECT_EQ(reader.BodyReceived(), 3);
  EXPECT_EQ(next().state, State::kEnd);
  EXPECT_EQ(next().state, State::kEnd) << "until the next one is begun";
  EXPECT_EQ(rest, kGet) << "what follows is of the next request";
  reader.Begin({});
  EXPECT_FALSE(reader.HasBegun());
  EXPECT_EQ(reader.BodyReceived(), 0);
  EXPECT_EQ(next().state, State::kHead);
  EXPECT_EQ(next().state, State::kEnd);
  EXPECT_EQ(request.Target(), "/x");
  reader.Begin({});
  EXPECT_EQ(next().state, State::kMore);
}

TEST(ModernRequestReaderTest, EmptyLinesBeginNothing) {
  RequestReader reader;
  Request request;
  reader.Begin({});
  for (const std::string_view bytes : {"", "\r", "\n", "\r\n", "\r"}) {
    EXPECT_EQ(reader.Next(bytes, request).state, State::kMore);
    EXPECT_FALSE(reader.HasBegun());
  }
  EXPECT_EQ(reader.Next("G", request).state, State::kMore);
  EXPECT_TRUE(reader.HasBegun());
  reader.Begin({});
  reader.Next("\n\n\n\n\r", request);
  reader.Begin({});
  EXPECT_EQ(reader.Next("\r\n" + std::string(kGet), request).state, State::kHead)
      << "those of another connection count not";
}

TEST(ModernRequestReaderTest, ARefusalStays) {
  RequestReader reader;
  Request request;
  reader.Begin({});
  EXPECT_EQ(reader.Next("GET / HTTP/3.0\r\n\r\n", request).state, State::kRefused);
  EXPECT_EQ(reader.RefusalStatus(), 505);
  const auto step = reader.Next(kGet, request);
  EXPECT_EQ(step.state, State::kRefused);
  EXPECT_EQ(step.used, 0u);
  EXPECT_EQ(reader.RefusalStatus(), 505);
  reader.Begin({});
  EXPECT_EQ(reader.Next(kGet, request).state, State::kHead) << "a slot is used for another connection";
}

TEST(ModernRequestReaderTest, ARefusedRequestKeepsWhatTheLogNeeds) {
  const struct {
    std::string text;
    int status;
    const char *line, *method, *why;
  } cases[] = {
      {"GET / HTTP/2.0\r\n\r\n", 505, "GET / HTTP/2.0", "GET", "a version"},
      {"HEAD /< HTTP/1.1\r\n\r\n", 400, "HEAD /< HTTP/1.1", "HEAD", "a target: its answer has no body all the same"},
      {"HEAD / HTTP/1.1\r\nX\r\n\r\n", 400, "HEAD / HTTP/1.1", "HEAD", "a field"},
      {"HEAD / HTTP/1.1\r\n" + Times(201, "X: y\r\n"), 431, "HEAD / HTTP/1.1", "HEAD", "too many fields"},
      {"(\r\n\r\n", 400, "(", "", "no method"},
      {"GET /" + std::string(9000, 'x'), 414, "", "", "a line that is not whole"},
      {"\n\n\n\n\n", 400, "", "", "empty lines"},
      {"POST / HTTP/1.1\r\nHost: a\r\nContent-Length: 999999999\r\n\r\n", 413, "POST / HTTP/1.1", "POST", "a body"},
  };
  for (const auto& c : cases) {
    RequestReader reader;
    Request request;
    reader.Begin({});
    reader.Next(kGet, request);  // something that must not be left
    reader.Begin({});
    EXPECT_EQ(reader.Next(c.text, request).state, State::kRefused) << c.why;
    EXPECT_EQ(reader.RefusalStatus(), c.status) << c.why;
    EXPECT_EQ(request.Line(), c.line) << c.why;
    EXPECT_EQ(request.Method(), c.method) << c.why;
  }
}

TEST(ModernRequestReaderTest, LimitsAreJudgedByAPart) {
  constexpr RequestReader::Limits kLimits = {.headerBytes = 1024, .bodyBytes = 10};
  constexpr RequestReader::Limits kLarge = {.headerBytes = 65536, .bodyBytes = 10};
  const std::string target(8192, 'x');
  const struct {
    std::string text, outcome;
    RequestReader::Limits limits;
    const char* why;
  } cases[] = {
      {HeadOf(1024) + "\r\n", "GET /", kLimits, "a block at the limit, whose blank line does not count"},
      {HeadOf(1024) + "\n", "GET /", kLimits, "nor does it as an LF alone"},
      {HeadOf(1025), "431", kLimits, "one byte more, and no blank line"},
      {HeadOf(1024) + "X", "431", kLimits, "the first byte of another field"},
      {HeadOf(1024) + "\r\r", "431", kLimits, "a CR that is of no blank line"},
      {"GET / HTTP/1.1\r\nX: " + std::string(1005, 'x'), "...", kLimits, "a field that may go on"},
      {"GET / HTTP/1.1\r\nX: " + std::string(1006, 'x'), "431", kLimits, "a field without an end"},
      {"GET / HTTP/1.1\r\n(bad" + std::string(1010, 'x'), "431", kLimits, "before it is seen that it is bad"},
      {std::string(1024, 'G'), "...", kLimits, "a method that may go on"},
      {std::string(1025, 'G'), "414", kLimits, "a request line without an end"},
      {"GET /" + std::string(1020, 'x'), "414", kLimits, "a target longer than the block may be"},
      {"GET / " + std::string(1020, 'x'), "414", kLimits, "a version without an end"},
      {"GET " + target, "...", kLarge, "a target at its limit"},
      {"GET " + target + "x", "414", kLarge, "one byte more"},
      {"GET /" + target.substr(1) + " HTTP/1.1\r\nHost: a\r\n\r\n", "GET /" + target.substr(1), kLarge, "whole"},
      {"GET /" + target + " HTTP/1.1\r\nHost: a\r\n\r\n", "414", kLarge, "whole, one byte more"},
      {"GET / HTTP/1.1\r\nHost: a\r\n" + Times(199, "X:\r\n") + "\r\n", "GET /", kLarge, "200 fields"},
      {"GET / HTTP/1.1\r\nHost: a\r\n" + Times(200, "X:\r\n"), "431", kLarge, "201 fields, and no blank line"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 10\r\n\r\n", "PUT / [...", kLimits, "a body at the limit"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 11\r\n\r\n", "413", kLimits, "before any of the body"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 11\r\nX\r\n\r\n", "400", kLimits, "a request that is bad besides"},
  };
  for (const auto& c : cases) {
    std::string outcome = c.outcome;
    if (outcome.ends_with("[...")) outcome.replace(outcome.size() - 3, 3, " | ...");
    const auto whole = ReadWhole(c.text, c.limits);
    EXPECT_EQ(whole.text, outcome) << c.why;
    EXPECT_EQ(ReadPieces(Kit::ByteByByte(c.text), c.limits).text, outcome) << c.why;
    const std::string_view text = c.text;
    for (const std::size_t behind : {1u, 2u, 3u, 4u}) {
      const Kit::Pieces pieces = {text.substr(0, text.size() - behind), text.substr(text.size() - behind)};
      EXPECT_EQ(ReadPieces(pieces, c.limits).details, whole.details)
          << c.why << ", cut " << behind << " before its end";
    }
  }
}

TEST(ModernRequestReaderTest, PipelinedRequestsAreReadAsOneByOne) {
  const std::vector<std::string> requests = {
      std::string(kGet),
      "POST /a?b HTTP/1.1\r\nHost: a\r\nContent-Length: 5\r\n\r\nGET /",
      "PUT /c HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n3;x\r\nabc\r\n1\r\n\n\r\n0\r\nX: y\r\n\r\n",
      "\r\nGET http://b HTTP/1.0\r\n\r\n",
      "OPTIONS * HTTP/1.1\nHost: a\n\n",
      "DELETE /%2e%2e HTTP/1.1\r\nHost: a\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: a\r\nCookie: " + std::string(2000, 'x') + "\r\n\r\n",
  };
  std::mt19937 random(20260911);
  for (int round = 0; round < 200; ++round) {
    std::string text, outcomes, details;
    for (auto count = 1 + random() % 6; count > 0; --count) {
      const auto& request = requests[random() % requests.size()];
      const auto alone = ReadWhole(request);
      text += request;
      outcomes += (outcomes.empty() ? "" : " | ") + alone.text;
      details += alone.details;
    }
    const auto together = ReadWhole(text);
    ASSERT_EQ(together.text, outcomes);
    ASSERT_EQ(together.details, details);
    Kit::Pieces pieces;
    for (std::string_view rest = text; !rest.empty();) {
      pieces.push_back(rest.substr(0, 1 + random() % 90));
      rest.remove_prefix(pieces.back().size());
    }
    const auto cut = ReadPieces(pieces);
    ASSERT_EQ(cut.text, outcomes);
    ASSERT_EQ(cut.details, details);
  }
}

// The largest of Request::HeldBytes while `text` is read in pieces of `pieceBytes`.
std::size_t MostHeld(std::string_view text, std::size_t pieceBytes, Request& request) {
  RequestReader reader;
  reader.Begin({});
  std::size_t most = 0;
  while (!text.empty()) {
    const auto step = reader.Next(text.substr(0, pieceBytes), request);
    most = std::max(most, request.HeldBytes());
    text.remove_prefix(step.used);
    if (step.state == State::kRefused) break;
    if (step.state == State::kEnd) reader.Begin({});
  }
  return most;
}

TEST(ModernRequestReaderTest, MemoryIsBoundedByTheHeaderBlock) {
  const std::size_t headBytes = RequestReader::Limits().headerBytes;
  const std::size_t bound = 2 * headBytes + 200 * 16 + 8192 + 1024;
  const struct {
    std::string text;
    const char* why;
  } cases[] = {
      {HeadOf(headBytes) + "\r\n", "a long field"},
      {"GET /" + Times(2700, "%41") + " HTTP/1.1\r\nHost: a\r\n" + Times(199, "X:\n") + "\n",
       "a long path, many fields"},
      {std::string(1000000, 'x'), "no line"},
      {"GET / HTTP/1.1\r\n" + std::string(1000000, 'x'), "no second line"},
      {"GET / HTTP/1.1\r\n" + Times(500000, "X\n"), "many lines"},
      {Times(100000, "\r\n"), "no request"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nContent-Length: 1000000\r\n\r\n" + std::string(1000000, 'x'), "a body"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n" + Times(100000, "1;a=b\r\nx\r\n"), "chunks"},
      {"PUT / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n" + Times(9000, "X: y\r\n"), "trailers"},
  };
  for (const auto& c : cases) {
    for (const std::size_t pieceBytes : {std::size_t{1}, std::size_t{4096}, std::size_t{65536}}) {
      Request request;
      EXPECT_LE(MostHeld(c.text, pieceBytes, request), bound) << c.why << ", in pieces of " << pieceBytes;
      request.Reset();
      EXPECT_LE(request.HeldBytes(), 600u) << "what waits for the next request is small";
    }
  }
}

TEST(ModernRequestReaderTest, UsualRequestsUseTheSameMemoryAgain) {
  const std::string text =
      "GET /a/b.html?c HTTP/1.1\r\nHost: example.com\r\n" + Times(10, "X-Name: a value\r\n") + "\r\n";
  ASSERT_LT(text.size(), Request::kMostKeptText);
  Request request;
  RequestReader reader;
  reader.Begin({});
  reader.Next(text, request);
  const auto* const first = request.Head().data();
  const auto held = request.HeldBytes();
  EXPECT_LE(held, 600u);
  for (int i = 0; i < 3; ++i) {
    request.Reset();
    reader.Begin({});
    EXPECT_EQ(reader.Next(text, request).state, State::kHead);
    EXPECT_EQ(static_cast<const void*>(request.Head().data()), static_cast<const void*>(first));
    EXPECT_EQ(request.HeldBytes(), held);
  }
}

TEST(ModernRequestReaderTest, NothingIsReadBehindARefusal) {
  const std::string text = std::string(kGet) + "GET / HTTP/1.1\r\n\r\n" + std::string(kGet);
  ExpectRead(text, "GET /x | 400", "the connection ends with it");
}

}  // namespace
}  // namespace TesselServer::Modern
