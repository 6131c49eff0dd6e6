#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/modern/HostFields.h"

namespace TesselServer::Modern {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(HostFieldsTest, GoodLinesPassInTheirOrder) {
  const struct {
    std::string_view given, lines;
    const char* why;
  } cases[] = {
      {"", "", "nothing"},
      {"X-One: 1\r\n", "X-One: 1\r\n", "one line"},
      {"X-One: 1", "X-One: 1\r\n", "the last end may lack"},
      {"B: 2\r\nA: 1\r\n", "B: 2\r\nA: 1\r\n", "not sorted"},
      {"A: 1\r\nA: 2\r\n", "A: 1\r\nA: 2\r\n", "twice: perhaps cookies"},
      {"A:1\r\nb:\r\nC: \r\n", "A:1\r\nb:\r\nC: \r\n", "without a blank, without a value"},
      {"A: b: c\r\n", "A: b: c\r\n", "the first colon ends the name"},
      {"A: caf\xC3\xA9\tx\r\n", "A: caf\xC3\xA9\tx\r\n", "bytes from 0x80 and tabs in a value"},
      {"\r\nA: 1\r\n\r\n \t\r\nB: 2\r\n\r\n", "A: 1\r\nB: 2\r\n", "empty lines do not end the header"},
      {"ETag: \"x\"\r\nVary: *\r\nSet-Cookie: a=b\r\n", "ETag: \"x\"\r\nVary: *\r\nSet-Cookie: a=b\r\n", "usual ones"},
  };
  for (const auto& c : cases) {
    const HostFields fields(c.given);
    EXPECT_EQ(fields.Lines(), c.lines) << c.why;
    EXPECT_THAT(fields.Refused(), IsEmpty()) << c.why;
  }
}

TEST(HostFieldsTest, BadLinesAreRefusedAndListed) {
  const struct {
    std::string_view line;
    const char* why;
  } cases[] = {
      {"no colon", "no colon"},
      {": 1", "no name"},
      {"A : 1", "a blank between name and colon"},
      {" A: 1", "a line that would be folded into the one before"},
      {"\tA: 1", "likewise"},
      {"A B: 1", "a blank in the name"},
      {"A(: 1", "what no token has"},
      {"A\"B: 1", "likewise"},
      {"\xC3\xA9: 1", "a name beyond ASCII"},
      {"A: 1\nB: 2", "a line feed alone"},
      {"A: 1\rB: 2", "a carriage return alone"},
      {"A: 1\r", "likewise, at the end"},
      {"A: 1\n", "likewise"},
      {std::string_view("A: 1\0", 5), "a NUL"},
      {"A: \x1B[2J", "another control"},
      {"A: \x7F", "a delete"},
      {"HTTP/1.1 200 OK", "a status line"},
  };
  for (const auto& c : cases) {
    std::string text = "X-Before: 1\r\n";
    text.append(c.line).append("\r\nX-After: 2\r\n");
    const HostFields fields(text);
    EXPECT_EQ(fields.Lines(), "X-Before: 1\r\nX-After: 2\r\n") << c.why;
    EXPECT_THAT(fields.Refused(), ElementsAre(c.line)) << c.why;
  }
}

TEST(HostFieldsTest, WhatBelongsToTheConnectionIsDropped) {
  for (const std::string_view name :
       {"Content-Length", "content-length", "CONTENT-LENGTH", "Connection", "Keep-Alive", "Proxy-Connection", "TE",
        "Trailer", "Transfer-Encoding", "transfer-encoding", "Upgrade"}) {
    std::string text = "A: 1\r\n";
    text.append(name).append(": 5\r\nB: 2\r\n");
    const HostFields fields(text);
    EXPECT_EQ(fields.Lines(), "A: 1\r\nB: 2\r\n") << name;
    EXPECT_THAT(fields.Refused(), IsEmpty()) << name;
    EXPECT_FALSE(fields.Has(name)) << name;
  }
  EXPECT_EQ(HostFields("Content-Lengths: 5\r\n").Lines(), "Content-Lengths: 5\r\n") << "a longer name is another";
  EXPECT_EQ(HostFields("TEA: 5\r\n").Lines(), "TEA: 5\r\n") << "likewise";
}

TEST(HostFieldsTest, SaysWhatItReplaces) {
  const struct {
    const char* line;
    bool contentType, server, date, cacheControl;
  } cases[] = {
      {"X: 1", false, false, false, false},
      {"Content-Type: a/b", true, false, false, false},
      {"CONTENT-TYPE: a/b", true, false, false, false},
      {"server: x", false, true, false, false},
      {"Date: Sun, 06 Nov 1994 08:49:37 GMT", false, false, true, false},
      {"cache-Control: no-store", false, false, false, true},
      {"Content-Types: a/b", false, false, false, false},
      {"Servers: x", false, false, false, false},
  };
  for (const auto& c : cases) {
    const HostFields fields(c.line);
    EXPECT_EQ(fields.Lines(), std::string(c.line) + "\r\n");
    EXPECT_EQ(fields.ReplacesContentType(), c.contentType) << c.line;
    EXPECT_EQ(fields.ReplacesServer(), c.server) << c.line;
    EXPECT_EQ(fields.ReplacesDate(), c.date) << c.line;
    EXPECT_EQ(fields.ReplacesCacheControl(), c.cacheControl) << c.line;
  }
}

TEST(HostFieldsTest, WhatMayBeThereOnceIsTakenOnce) {
  const HostFields fields(
      "Content-Type: a/b\r\nServer: x\r\nDate: then\r\nCache-Control: private\r\n"
      "content-type: c/d\r\nserver: y\r\ndate: now\r\nCache-Control: no-store\r\n");
  EXPECT_EQ(fields.Lines(),
            "Content-Type: a/b\r\nServer: x\r\nDate: then\r\nCache-Control: private\r\nCache-Control: no-store\r\n");
  EXPECT_THAT(fields.Refused(), ElementsAre("content-type: c/d", "server: y", "date: now"));
}

TEST(HostFieldsTest, KnowsItsNames) {
  const HostFields fields("X-One: 1\r\nVary: Accept\r\n");
  EXPECT_TRUE(fields.Has("vary"));
  EXPECT_TRUE(fields.Has("X-ONE"));
  EXPECT_FALSE(fields.Has("X"));
  EXPECT_FALSE(fields.Has("Accept"));
  EXPECT_FALSE(fields.Has(""));
  EXPECT_FALSE(HostFields().Has("X"));
}

TEST(HostFieldsTest, AReportStaysShort) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) text += std::string(1000, 'x') + "\r\n";
  const HostFields fields(text);
  EXPECT_EQ(fields.Lines(), "");
  ASSERT_EQ(fields.Refused().size(), HostFields::kMaxRefused);
  EXPECT_EQ(fields.Refused().back(), std::string(HostFields::kMaxRefusedBytes, 'x'));
}

}  // namespace
}  // namespace TesselServer::Modern
