#include <gtest/gtest.h>

#include "host/Echo.h"

namespace TesselServer {
namespace {

TEST(EchoTest, TheValueIsThatOfTheLastTag) {
  struct {
    const char *query, *text, *why;
  } const cases[] = {
      {"text=x", "x", "one tag"},
      {"text=xtext=y", "y", "two tags, nothing in between"},
      {"x=1text=atext=&y=2", "", "the last has an empty text"},
      {"TEXT=a", "a", "the name in capitals"},
      {"tExT=a&b=text", "a", "up to the next &"},
      {"text", "", "no ="},
      {"text=", "", "nothing behind it"},
      {"", "", "nothing at all"},
      {"a=1", "", "another name"},
      {"text=xother=1", "xother=1", "a tag without a text behind one that has it"},
      {"text=a%20b", "a b", "a blank as an author writes it"},
      {"text=%41%7a%7A", "Azz", "digits in both cases"},
      {"text=100%", "100%", "a lone %"},
      {"text=%4", "%4", "one digit"},
      {"text=%4g%-1", "%4g%-1", "no digits"},
      {"text=%2541", "%41", "decoded once"},
      {"text=a%26b&c", "a&amp;b", "an encoded & does not end it"},
      {"text=a+b", "a+b", "a plus is a plus"},
      {"text=<b>\"'&", "&lt;b&gt;&quot;&#39;", "no markup"},
      {"text=%3Cscript%3E", "&lt;script&gt;", "no markup by a detour"},
  };
  for (const auto& c : cases) EXPECT_EQ(EchoText(c.query, "GET /page.html HTTP/1.0\r\n"), c.text) << c.why;
}

TEST(EchoTest, WhatTheClientWroteIsNoArgument) {
  const char* const header = "GET /page.html?a=1&text=client HTTP/1.0\r\nHost: x\r\n";
  EXPECT_EQ(EchoText("a=1&text=client", header), "");
  EXPECT_EQ(EchoText("a=1&text=clienttext=author", header), "author");
  EXPECT_EQ(EchoText("a=1&text=clientx=1", header), "");
}

TEST(EchoTest, TheClientCannotReachIntoTheArgument) {
  EXPECT_EQ(EchoText("a=1tetext=author", "GET /?a=1te HTTP/1.0\r\n"), "author");
  EXPECT_EQ(EchoText("texttext=author", "GET /?text HTTP/1.0\r\n"), "author");
}

TEST(EchoTest, WithoutAHeaderWhatTheClientWroteIsShownAsText) {
  EXPECT_EQ(EchoText("text=<i>client", ""), "&lt;i&gt;client");
  EXPECT_EQ(EchoText("text=clienttext=author", ""), "author");
}

TEST(EchoTest, OddHeadersEndNowhereElse) {
  for (const char* header :
       {"GET", "GET ", " ", "\r\n", "GET /x?", "GET /x? HTTP/1.0", "GET ?", "?", "GET /x?other y"}) {
    EXPECT_EQ(EchoText("text=author", header), "author") << header;
  }
}

TEST(EscapeHtmlTest, LeavesAllButFiveCharacters) {
  EXPECT_EQ(EscapeHtml("&<>\"'"), "&amp;&lt;&gt;&quot;&#39;");
  EXPECT_EQ(EscapeHtml("&amp;"), "&amp;amp;");
  EXPECT_EQ(EscapeHtml("\xC3\xBC %20;\n"), "\xC3\xBC %20;\n");
  EXPECT_EQ(EscapeHtml(std::string_view("\0", 1)), std::string(1, '\0'));
}

}  // namespace
}  // namespace TesselServer
