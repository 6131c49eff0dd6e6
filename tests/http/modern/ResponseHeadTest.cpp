#include <gtest/gtest.h>

#include <limits>

#include "http/modern/EntityTag.h"
#include "http/modern/FieldTexts.h"
#include "http/modern/HostFields.h"
#include "http/modern/ResponseHead.h"
#include "http/modern/StatusText.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kHeadMoment = 1795300128;  // Saturday, 21 November 2026, 22:28:48 UTC
const std::string kHeadBegin = "Server: Orvane Tessel/1.1\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\n";

ResponseHead PlainHead(int status) {
  return {.status = status, .utcSeconds = kHeadMoment, .server = "Orvane Tessel/1.1"};
}

ResponseHead FileHead(int status) {
  ResponseHead head = PlainHead(status);
  head.contentType = "text/html";
  head.charset = "utf-8";
  head.framing = ResponseFraming::kLength;
  head.contentLength = 1024;
  head.lastModified = 784111777;
  head.entityTag = "\"x\"";
  head.acceptsRanges = true;
  head.noSniff = true;
  return head;
}

std::string TextOf(const ResponseHead& head) {
  std::string text;
  AppendResponseHead(text, head);
  return text;
}

TEST(ResponseHeadTest, OfAFileSaysAllThatIsKnown) {
  EXPECT_EQ(TextOf(FileHead(200)), "HTTP/1.1 200 OK\r\n" + kHeadBegin +
                                       "Content-Type: text/html; charset=utf-8\r\n"
                                       "Content-Length: 1024\r\n"
                                       "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                                       "ETag: \"x\"\r\n"
                                       "Accept-Ranges: bytes\r\n"
                                       "X-Content-Type-Options: nosniff\r\n"
                                       "\r\n");
}

TEST(ResponseHeadTest, HasNoLineThatWasNotGiven) {
  EXPECT_EQ(TextOf(PlainHead(200)), "HTTP/1.1 200 OK\r\n" + kHeadBegin + "\r\n");
  EXPECT_EQ(TextOf({.status = 404, .utcSeconds = kHeadMoment}),
            "HTTP/1.1 404 Not Found\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\n\r\n")
      << "a date always";
}

TEST(ResponseHeadTest, EachLineHasItsPlace) {
  const std::string challenge = BasicChallenge("Den");
  const HostFields host("X-One: 1\r\nX-Two: 2\r\n");
  ResponseHead head = FileHead(206);
  head.contentEncoding = "gzip";
  head.contentRange = "bytes 0-1023/4096";
  head.cacheControl = "no-cache";
  head.vary = "Accept";
  head.location = "/a/";
  head.allow = "GET, HEAD";
  head.authenticate = challenge;
  head.contentSecurityPolicy = "default-src 'none'";
  head.hostFields = &host;
  head.connection = ConnectionNotice::kClose;
  EXPECT_EQ(TextOf(head), "HTTP/1.1 206 Partial Content\r\n" + kHeadBegin +
                              "Content-Type: text/html; charset=utf-8\r\n"
                              "Content-Length: 1024\r\n"
                              "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                              "ETag: \"x\"\r\n"
                              "Content-Encoding: gzip\r\n"
                              "Accept-Ranges: bytes\r\n"
                              "Content-Range: bytes 0-1023/4096\r\n"
                              "Cache-Control: no-cache\r\n"
                              "Vary: Accept\r\n"
                              "Location: /a/\r\n"
                              "Allow: GET, HEAD\r\n"
                              "WWW-Authenticate: Basic realm=\"Den\", charset=\"UTF-8\"\r\n"
                              "X-Content-Type-Options: nosniff\r\n"
                              "Content-Security-Policy: default-src 'none'\r\n"
                              "Connection: close\r\n"
                              "X-One: 1\r\n"
                              "X-Two: 2\r\n"
                              "\r\n");
}

TEST(ResponseHeadTest, IsAppendedToWhatIsThere) {
  std::string text = "before";
  AppendResponseHead(text, PlainHead(200));
  AppendResponseHead(text, PlainHead(404));
  EXPECT_EQ(text, "before" + TextOf(PlainHead(200)) + TextOf(PlainHead(404)));
}

TEST(ResponseHeadTest, SaysHowTheBodyEnds) {
  const struct {
    int status;
    ResponseFraming framing;
    std::int64_t length;
    const char *line, *why;
  } cases[] = {
      {200, ResponseFraming::kLength, 0, "Content-Length: 0\r\n", "an empty file has a length, too"},
      {200, ResponseFraming::kLength, 5'368'709'120, "Content-Length: 5368709120\r\n", "a large one"},
      {200, ResponseFraming::kLength, std::numeric_limits<std::int64_t>::max(),
       "Content-Length: 9223372036854775807\r\n", "the largest"},
      {200, ResponseFraming::kLength, -1, "Content-Length: 0\r\n", "no length is negative"},
      {200, ResponseFraming::kChunked, 7, "Transfer-Encoding: chunked\r\n", "chunks and no length"},
      {200, ResponseFraming::kUntilClose, 7, "", "neither"},
      {404, ResponseFraming::kLength, 9, "Content-Length: 9\r\n", "an error"},
      {100, ResponseFraming::kLength, 9, "", "RFC 9110 section 8.6: none in 1xx"},
      {199, ResponseFraming::kChunked, 9, "", "nor chunks (RFC 9112 section 6.1)"},
      {204, ResponseFraming::kLength, 0, "", "none in 204"},
      {204, ResponseFraming::kChunked, 0, "", "nor chunks"},
      {205, ResponseFraming::kUntilClose, 0, "Content-Length: 0\r\n",
       "RFC 9110 section 15.3.6: 205 says that it is empty"},
      {205, ResponseFraming::kLength, 9, "Content-Length: 0\r\n", "whatever is given"},
      {205, ResponseFraming::kChunked, 9, "Content-Length: 0\r\n", "likewise"},
      {304, ResponseFraming::kLength, 9, "", "304 has no body"},
      {304, ResponseFraming::kChunked, 9, "", "likewise"},
  };
  for (const auto& c : cases) {
    ResponseHead head = PlainHead(c.status);
    head.framing = c.framing;
    head.contentLength = c.length;
    const std::string line = "HTTP/1.1 " + std::to_string(c.status) + " " + std::string(StatusText(c.status)) + "\r\n";
    EXPECT_EQ(TextOf(head), line + kHeadBegin + c.line + "\r\n") << c.status << ": " << c.why;
  }
}

TEST(ResponseHeadTest, OfNotModifiedHasOnlyWhatACacheGoesBy) {
  ResponseHead head = FileHead(304);
  head.contentEncoding = "gzip";
  head.contentRange = "bytes 0-1/2";
  head.cacheControl = "no-cache";
  head.vary = "Accept";
  EXPECT_EQ(TextOf(head), "HTTP/1.1 304 Not Modified\r\n" + kHeadBegin +
                              "ETag: \"x\"\r\nCache-Control: no-cache\r\nVary: Accept\r\n"
                              "X-Content-Type-Options: nosniff\r\n\r\n");
  head = FileHead(304);
  head.entityTag = {};
  EXPECT_EQ(TextOf(head), "HTTP/1.1 304 Not Modified\r\n" + kHeadBegin +
                              "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
                              "X-Content-Type-Options: nosniff\r\n\r\n")
      << "without a tag the date is what it goes by";
}

TEST(ResponseHeadTest, SaysWhetherTheConnectionStays) {
  ResponseHead head = PlainHead(200);
  head.connection = ConnectionNotice::kKeepAlive;
  EXPECT_EQ(TextOf(head), "HTTP/1.1 200 OK\r\n" + kHeadBegin + "Connection: keep-alive\r\n\r\n");
  head.connection = ConnectionNotice::kClose;
  EXPECT_EQ(TextOf(head), "HTTP/1.1 200 OK\r\n" + kHeadBegin + "Connection: close\r\n\r\n");
}

TEST(ResponseHeadTest, DatesFollowTheClockAndNoFileIsFromTheFuture) {
  const struct {
    std::int64_t now, modified;
    const char *date, *lastModified;
  } cases[] = {
      {kHeadMoment, kHeadMoment, "Sat, 21 Nov 2026 22:28:48 GMT", "Sat, 21 Nov 2026 22:28:48 GMT"},
      {kHeadMoment, kHeadMoment + 1, "Sat, 21 Nov 2026 22:28:48 GMT", "Sat, 21 Nov 2026 22:28:48 GMT"},
      {kHeadMoment + 1, kHeadMoment, "Sat, 21 Nov 2026 22:28:49 GMT", "Sat, 21 Nov 2026 22:28:48 GMT"},
      {kHeadMoment, std::numeric_limits<std::int64_t>::max(), "Sat, 21 Nov 2026 22:28:48 GMT",
       "Sat, 21 Nov 2026 22:28:48 GMT"},
      {0, -1, "Thu, 01 Jan 1970 00:00:00 GMT", "Wed, 31 Dec 1969 23:59:59 GMT"},
      {std::numeric_limits<std::int64_t>::min(), 0, "Sat, 01 Jan 0000 00:00:00 GMT", "Sat, 01 Jan 0000 00:00:00 GMT"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TextOf({.utcSeconds = c.now, .lastModified = c.modified}),
              std::string("HTTP/1.1 200 OK\r\nDate: ") + c.date + "\r\nLast-Modified: " + c.lastModified + "\r\n\r\n");
  }
}

TEST(ResponseHeadTest, AHostsLinesReplaceFourOfOurs) {
  const struct {
    const char *lines, *sent, *why;
  } cases[] = {
      {"X: 1\r\n",
       "Server: Orvane Tessel/1.1\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Type: text/html; charset=utf-8\r\n"
       "Content-Length: 5\r\nCache-Control: no-cache\r\nX: 1\r\n",
       "another line replaces none"},
      {"content-type: a/b\r\n",
       "Server: Orvane Tessel/1.1\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Length: 5\r\n"
       "Cache-Control: no-cache\r\ncontent-type: a/b\r\n",
       "with its charset"},
      {"Server: S\r\n",
       "Date: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: 5\r\n"
       "Cache-Control: no-cache\r\nServer: S\r\n",
       "the name of the server"},
      {"Date: D\r\n",
       "Server: Orvane Tessel/1.1\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: 5\r\n"
       "Cache-Control: no-cache\r\nDate: D\r\n",
       "the date"},
      {"Cache-Control: no-store\r\n",
       "Server: Orvane Tessel/1.1\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Type: text/html; charset=utf-8\r\n"
       "Content-Length: 5\r\nCache-Control: no-store\r\n",
       "what caches may do"},
      {"Content-Length: 7\r\nTransfer-Encoding: chunked\r\nConnection: keep-alive\r\n",
       "Server: Orvane Tessel/1.1\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Type: text/html; charset=utf-8\r\n"
       "Content-Length: 5\r\nCache-Control: no-cache\r\n",
       "but not where the body ends"},
  };
  for (const auto& c : cases) {
    const HostFields host(c.lines);
    ResponseHead head = PlainHead(200);
    head.contentType = "text/html";
    head.charset = "utf-8";
    head.framing = ResponseFraming::kLength;
    head.contentLength = 5;
    head.cacheControl = "no-cache";
    head.hostFields = &host;
    EXPECT_EQ(TextOf(head), std::string("HTTP/1.1 200 OK\r\n") + c.sent + "\r\n") << c.why;
  }
}

TEST(ResponseHeadTest, ATextThatCouldEndItsLineIsLeftOut) {
  std::string_view ResponseHead::*const texts[] = {&ResponseHead::server,
                                                   &ResponseHead::contentType,
                                                   &ResponseHead::contentEncoding,
                                                   &ResponseHead::entityTag,
                                                   &ResponseHead::contentRange,
                                                   &ResponseHead::cacheControl,
                                                   &ResponseHead::vary,
                                                   &ResponseHead::location,
                                                   &ResponseHead::allow,
                                                   &ResponseHead::authenticate,
                                                   &ResponseHead::contentSecurityPolicy};
  for (const auto text : texts) {
    for (const std::string_view bad :
         {std::string_view("a\r\nX-Injected: 1"), std::string_view("a\nX-Injected: 1"), std::string_view("a\rb"),
          std::string_view("a\0b", 3), std::string_view("\r\n\r\n<html>"), std::string_view("a\x7F")}) {
      ResponseHead head{.utcSeconds = kHeadMoment};
      head.*text = bad;
      EXPECT_EQ(TextOf(head), "HTTP/1.1 200 OK\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\n\r\n") << bad;
    }
  }
  ResponseHead head{.utcSeconds = kHeadMoment, .contentType = "text/html", .charset = "utf-8\r\nX-Injected: 1"};
  EXPECT_EQ(TextOf(head), "HTTP/1.1 200 OK\r\nDate: Sat, 21 Nov 2026 22:28:48 GMT\r\nContent-Type: text/html\r\n\r\n");
}

TEST(ResponseHeadTest, AStatusHasThreeDigits) {
  const struct {
    int given;
    const char* line;
  } cases[] = {{99, "HTTP/1.1 100 Continue\r\n"},
               {0, "HTTP/1.1 100 Continue\r\n"},
               {-5, "HTTP/1.1 100 Continue\r\n"},
               {299, "HTTP/1.1 299 OK\r\n"},
               {600, "HTTP/1.1 599 Internal Server Error\r\n"},
               {1000, "HTTP/1.1 599 Internal Server Error\r\n"}};
  for (const auto& c : cases) {
    EXPECT_EQ(TextOf({.status = c.given, .utcSeconds = kHeadMoment}),
              std::string(c.line) + "Date: Sat, 21 Nov 2026 22:28:48 GMT\r\n\r\n");
  }
  EXPECT_EQ(kContinueResponse, "HTTP/1.1 100 Continue\r\n\r\n");
}

}  // namespace
}  // namespace TesselServer::Modern
