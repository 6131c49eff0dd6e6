#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "http/TagReplacement.h"

namespace TesselServer {
namespace {

Page::SharedText SharedBytes(std::string_view text) { return std::make_shared<const std::string>(text); }

void ReplaceTags(Page& page, const TagForm& form, const std::function<Page::SharedText(std::string_view)>& valueOf,
                 const std::function<bool(std::string_view)>& admit = nullptr) {
  TagReplacement tags(page, form);
  while (tags.Find()) {
    if (!tags.IsKnown()) tags.Value(valueOf(tags.Content()));
    if (tags.Value() && (!admit || admit(*tags.Value()))) {
      tags.Replace();
    } else {
      tags.Keep();
    }
  }
}

TEST(TagReplacementTest, ATagHasItsOpenerItsBeginAndItsEnd) {
  const struct {
    const char *page, *result, *why;
  } cases[] = {
      {"a<%=do:x%>b", "a(x)b", "a tag"},
      {"<%=DO:X%>", "(X)", "in any case, the content as it is written"},
      {"<%=do:%>", "()", "no content"},
      {"<%=do%>", "<%=do%>", "half its begin"},
      {"<%=do:>", "<%=do:>", "no end"},
      {"<%=do:x>y%>", "<%=do:x>y%>", "the first \">\" counts"},
      {"<%=do:x%", "<%=do:x%", "no \">\""},
      {"<%=no:x%><%=do:x%>", "<%=no:x%>(x)", "another one in front of it"},
      {"<%=<%=do:x%>", "<%=<%=do:x%>", "another one around it"},
      {"<%=do:<%=do:x%>", "(<%=do:x)", "itself around it"},
  };
  for (const auto& c : cases) {
    Page page(c.page);
    ReplaceTags(page, {"<%=", "do:", "%"},
                [](std::string_view content) { return SharedBytes("(" + std::string(content) + ")"); });
    EXPECT_EQ(page.Text(), c.result) << c.why;
  }
}

TEST(TagReplacementTest, BeginAndEndMayNotShareText) {
  Page page("<--><---><---->");
  ReplaceTags(page, {"<", "--", "--"},
              [](std::string_view content) { return SharedBytes("(" + std::string(content) + ")"); });
  EXPECT_EQ(page.Text(), "<--><--->()");
}

TEST(TagReplacementTest, EqualContentsAreAskedForOnce) {
  std::vector<std::string> asked;
  Page page("<a><B><A><b><c>");
  ReplaceTags(page, {"<", "", ""}, [&](std::string_view content) -> Page::SharedText {
    asked.emplace_back(content);
    return content == "c" ? nullptr : SharedBytes("(" + std::string(content) + ")");
  });
  EXPECT_EQ(page.Text(), "(a)(B)(a)(B)<c>");
  EXPECT_EQ(asked, (std::vector<std::string>{"a", "B", "c"}));
}

TEST(TagReplacementTest, EachTagNeedsItsOwnPermission) {
  int asked = 0;
  Page page("<a><a><a><none>");
  ReplaceTags(
      page, {"<", "", ""}, [](std::string_view content) { return content == "none" ? nullptr : SharedBytes("text"); },
      [&](std::string_view text) {
        EXPECT_EQ(text, "text");
        return ++asked != 2;
      });
  EXPECT_EQ(page.Text(), "text<a>text<none>");
  EXPECT_EQ(asked, 3) << "not for a tag without a value";
}

TEST(TagReplacementTest, WhatFailsKeepsWhatWasDone) {
  Page page("<a><b><a>");
  EXPECT_THROW(ReplaceTags(page, {"<", "", ""},
                           [](std::string_view content) {
                             if (content == "b") throw std::runtime_error("failed");
                             return SharedBytes("A");
                           }),
               std::runtime_error);
  EXPECT_EQ(page.Text(), "A<b><a>");
}

}  // namespace
}  // namespace TesselServer
