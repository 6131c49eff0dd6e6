#include <gtest/gtest.h>

#include "http/modern/FieldTexts.h"

namespace TesselServer::Modern {
namespace {

TEST(FieldTextsTest, ACharsetIsAddedToTextsWithoutOne) {
  const struct {
    const char *type, *charset, *text, *why;
  } cases[] = {
      {"text/html", "utf-8", "text/html; charset=utf-8", "a text"},
      {"TEXT/HTML", "utf-8", "TEXT/HTML; charset=utf-8", "types have no case"},
      {"text/x-odd", "iso-8859-1", "text/x-odd; charset=iso-8859-1", "any text, any charset"},
      {"text/html", "", "text/html", "no charset is wanted"},
      {"text/html; charset=latin1", "utf-8", "text/html; charset=latin1", "it has one"},
      {"text/html;charset=latin1", "utf-8", "text/html;charset=latin1", "without a blank"},
      {"text/html; level=1; CharSet=\"x\"", "utf-8", "text/html; level=1; CharSet=\"x\"", "in any case, later"},
      {"text/html; level=1", "utf-8", "text/html; level=1; charset=utf-8", "it has something else"},
      {"image/png", "utf-8", "image/png", "no text"},
      {"application/json", "utf-8", "application/json", "JSON has no such parameter (RFC 8259)"},
      {"application/text/html", "utf-8", "application/text/html", "not at its beginning"},
      {"text", "utf-8", "text", "no type at all"},
      {"", "utf-8", "", "nothing"},
      {"text/html", "utf 8", "text/html", "no name of a charset"},
      {"text/html", "utf-8\r\nX: 1", "text/html", "a setting cannot add lines"},
      {"text/html", "\"utf-8\"", "text/html", "nor quotes"},
  };
  for (const auto& c : cases) EXPECT_EQ(WithCharset(c.type, c.charset), c.text) << c.why;
}

TEST(FieldTextsTest, QuotedStringsKeepTheirEnds) {
  const struct {
    std::string_view text, quoted;
    const char* why;
  } cases[] = {
      {"Den", "\"Den\"", "nothing to do"},
      {"", "\"\"", "nothing at all"},
      {"a b\tc", "\"a b\tc\"", "blanks and tabs may be"},
      {"a\"b", "\"a\\\"b\"", "a quote"},
      {"a\\", "\"a\\\\\"", "a backslash at the end does not take the quote"},
      {"\\\"", "\"\\\\\\\"\"", "both"},
      {"Caf\xC3\xA9", "\"Caf\xC3\xA9\"", "bytes from 0x80 may be"},
      {"a\r\nX: 1\x7F\x01", "\"aX: 1\"", "controls cannot be quoted"},
      {std::string_view("a\0b", 3), "\"ab\"", "a NUL neither"},
  };
  for (const auto& c : cases) EXPECT_EQ(QuotedString(c.text), c.quoted) << c.why;
}

TEST(FieldTextsTest, APasswordIsAskedForWithItsRealm) {
  EXPECT_EQ(BasicChallenge("Den"), "Basic realm=\"Den\", charset=\"UTF-8\"");
  EXPECT_EQ(BasicChallenge("\"Den\", Digest realm=\"x"),
            "Basic realm=\"\\\"Den\\\", Digest realm=\\\"x\", charset=\"UTF-8\"")
      << "a realm asks for nothing else";
}

}  // namespace
}  // namespace TesselServer::Modern
