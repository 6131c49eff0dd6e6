#include <gtest/gtest.h>

#include "http/modern/HtmlText.h"

namespace TesselServer::Modern {
namespace {

TEST(HtmlTextTest, EscapesWhatHasAMeaning) {
  const struct {
    std::string_view text, html;
  } cases[] = {
      {"", ""},
      {"plain text", "plain text"},
      {"<script>", "&lt;script&gt;"},
      {"a & b", "a &amp; b"},
      {"&amp;", "&amp;amp;"},
      {"\" onclick='x'", "&quot; onclick=&#39;x&#39;"},
      {"<<>>&&\"\"''", "&lt;&lt;&gt;&gt;&amp;&amp;&quot;&quot;&#39;&#39;"},
      {"a/b=c`;\xC3\xA9\n", "a/b=c`;\xC3\xA9\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(HtmlText(c.text), c.html);
  std::string page = "<p>";
  AppendHtmlText(page, "<");
  EXPECT_EQ(page, "<p>&lt;");
  EXPECT_EQ(HtmlText(std::string_view("a\0<", 3)), std::string("a\0&lt;", 6));
}

TEST(HtmlTextTest, EveryByteIsOneOrAnEntity) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    const bool hasMeaning = byte != 0 && std::string_view("&<>\"'").find(text) != std::string_view::npos;
    const std::string html = HtmlText(text);
    if (hasMeaning) {
      EXPECT_EQ(html.front(), '&') << byte;
      EXPECT_EQ(html.back(), ';') << byte;
    } else {
      EXPECT_EQ(html, text) << byte;
    }
  }
}

// U+FFFD as often as "?" is in `text`.
std::string Replaced(std::string_view text) {
  std::string replaced;
  for (const char c : text) c == '?' ? replaced += "\xEF\xBF\xBD" : replaced += c;
  return replaced;
}

TEST(HtmlTextTest, WhatIsNoUtf8IsReplacedByItsParts) {
  const struct {
    std::string_view text, shown;
    const char* why;
  } cases[] = {
      {"", "", "nothing"},
      {"abc", "abc", "ASCII"},
      {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "two, three and four bytes"},
      {"\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF", "the first and the last of two"},
      {"\xE0\xA0\x80\xEF\xBF\xBF", "\xE0\xA0\x80\xEF\xBF\xBF", "of three"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", "of four"},
      {"a\xFF"
       "b",
       "a?b", "a byte that is in no character"},
      {"\x80", "?", "a later byte alone"},
      {"\x80\xBF", "??", "two of them"},
      {"\xC3", "?", "a character broken off"},
      {"\xC3"
       "a",
       "?a", "likewise, before a letter"},
      {"\xE2\x82", "?", "two of three bytes are one beginning"},
      {"\xE2\x82\xE2\x82\xAC", "?\xE2\x82\xAC", "the next character stays"},
      {"\xF0\x9F\x98", "?", "three of four bytes"},
      {"\xC0\xAF", "??", "a longer form than is needed: no beginning at all"},
      {"\xE0\x80\xAF", "???", "likewise of three"},
      {"\xF0\x80\x80\xAF", "????", "likewise of four"},
      {"\xED\xA0\x80", "???", "a half of a pair"},
      {"\xF4\x90\x80\x80", "????", "above U+10FFFF"},
      {"\xF5\x80", "??", "likewise"},
      // The examples of the Unicode standard, tables 3-8 to 3-11.
      {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", "????????A", "forms that are not the shortest"},
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", "????????A", "halves of pairs"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", "?????A??B", "other bad sequences"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", "????A", "characters broken off"},
      {"caf\xE9.txt", "caf?.txt", "a name in Latin 1"},
  };
  for (const auto& c : cases) EXPECT_EQ(Utf8OrReplacement(c.text), Replaced(c.shown)) << c.why;
}

TEST(HtmlTextTest, WhatWasReplacedIsValid) {
  // Every pair of bytes, between letters: what comes out is valid, so a second time changes nothing.
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string text = {'a', static_cast<char>(first), static_cast<char>(second), 'b'};
      const std::string shown = Utf8OrReplacement(text);
      ASSERT_EQ(Utf8OrReplacement(shown), shown) << first << " " << second;
      ASSERT_EQ(shown.front(), 'a');
      ASSERT_EQ(shown.back(), 'b') << "what comes after is never taken away";
    }
  }
}

}  // namespace
}  // namespace TesselServer::Modern
