#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include "http/PageRewriter.h"

namespace TesselServer {
namespace {

Page::SharedText Shared(std::string_view text) { return std::make_shared<const std::string>(text); }

// A page in which what stands between bars was put in: "the author's|put in|the author's".
Page Mixed(std::string text) {
  Page page(std::move(text));
  PageRewriter pass(page);
  while (pass.Find("|", "|")) pass.Replace(Shared(pass.Content()));
  return page;
}

// What a page has become, in the same notation.
std::string Show(const Page& page) {
  std::string text;
  for (const Page::Piece& piece : page.Pieces()) {
    const char* const bar = piece.source == Page::Source::kInserted ? "|" : "";
    text.append(bar).append(piece.text).append(bar);
  }
  return text;
}

TEST(PageRewriterTest, FindsTagsInTheAuthorsTextOnly) {
  const struct {
    const char *page, *contents, *why;
  } cases[] = {
      {"", "", "nothing"},
      {"no tag", "", "no tag"},
      {"<%=a%>", "a;", "the whole page is a tag"},
      {"x<%=a%>y<%=b%>z", "a;b;", "two"},
      {"<%=a%><%=b%>", "a;b;", "side by side"},
      {"<%=%>", ";", "no content"},
      {"<%=a", "", "no end"},
      {"<%=a%", "", "half an end"},
      {"a%>", "", "no opener"},
      {"<%", "", "half an opener"},
      {"%><%=a%>", "a;", "an end in front of it"},
      {"<%=a<%=b%>", "a<%=b;", "an opener inside the content belongs to it"},
      {"<%=%%>", "%;", "the first end counts"},
      {"|<%=a%>|", "", "put in"},
      {"x|<%=a%>|<%=b%>", "b;", "put in, then the author's"},
      {"<%|=a%>|b%>", "", "an opener that is half put in"},
      {"<|x|%=a%>", "", "an opener with something put in"},
      {"|<%|=a%>", "", "an opener's first half put in"},
      {"<%=a|%>|", "", "an end that is put in"},
      {"<%=a|%>|b%>", "a%>b;", "the author's end counts"},
      {"<%=a%|>|", "", "an end that is half put in"},
      {"<%=a%|x|>b%>", "a%x>b;", "an end with something put in is none"},
      {"<%=|value|%>", "value;", "a content that was put in"},
      {"<%=a|1|b|2|c%><%=|3|%>", "a1b2c;3;", "a content of several pieces"},
      {"<%=|<%=a%>|%>", "<%=a%>;", "what is put in holds a tag"},
  };
  for (const auto& c : cases) {
    Page page = Mixed(c.page);
    std::string contents;
    {
      PageRewriter pass(page);
      while (pass.Find("<%=", "%>")) {
        contents.append(pass.Content()).append(";");
        pass.Keep();
      }
      EXPECT_FALSE(pass.Find("<%=", "%>")) << c.why;
    }
    EXPECT_EQ(contents, c.contents) << c.why;
    EXPECT_EQ(Show(page), c.page) << c.why << ": kept as it was";
  }
}

TEST(PageRewriterTest, PutsTextInThePlaceOfTags) {
  const struct {
    const char *page, *result;
  } cases[] = {
      {"<%=a%>", "|V|"},
      {"x<%=a%>y", "x|V|y"},
      {"x<%=a%><%=b%>y", "x|V||V|y"},
      {"|1|<%=a%>|2|", "|1||V||2|"},
      {"x<%=a|1|b%>y", "x|V|y"},
      {"x<%=|1|%>|2|y<%=b%>|3|", "x|V||2|y|V||3|"},
  };
  for (const auto& c : cases) {
    Page page = Mixed(c.page);
    {
      PageRewriter pass(page);
      while (pass.Find("<%=", "%>")) pass.Replace(Shared("V"));
    }
    EXPECT_EQ(Show(page), c.result) << c.page;
  }
}

TEST(PageRewriterTest, NothingPutInLeavesTheNeighboursApart) {
  Page page("<%<%=a%>=b%>");
  {
    PageRewriter pass(page);
    ASSERT_TRUE(pass.Find("<%=", "%>"));
    pass.Replace(Shared(""));
  }
  EXPECT_EQ(page.Text(), "<%=b%>");
  PageRewriter pass(page);
  EXPECT_FALSE(pass.Find("<%=", "%>")) << "what two halves make is no tag";
}

TEST(PageRewriterTest, OpenersAreEqualInAnyCaseAndEndsAreNot) {
  Page page("[<!--#Echo=a--x>b--X>][<!--#ECHO=c--X>]");
  std::string seen;
  {
    PageRewriter pass(page);
    while (pass.Find("<!--#echo=", "--X>")) {
      seen.append(pass.Opener()).append(pass.Content()).append(";");
      pass.Keep();
    }
  }
  EXPECT_EQ(seen, "<!--#Echo=a--x>b;<!--#ECHO=c;");
}

TEST(PageRewriterTest, TellsWhatOfTheContentTheAuthorWrote) {
  const struct {
    const char* page;
    bool begins, ends;
  } cases[] = {
      {"<ab-->", true, true},     {"<AB-->", true, true},     {"<aB-x->", true, false},  {"<xab--y>", false, false},
      {"<ab>", true, false},      {"<->", false, false},      {"<>", false, false},      {"<ab|x|-->", true, true},
      {"<|ab--|>", false, false}, {"<a|b|-->", false, true},  {"<ab-|-|>", true, false}, {"<ab|--|>", true, false},
      {"<a|b--|>", false, false}, {"<ab-|x|->", true, false},
  };
  for (const auto& c : cases) {
    Page page = Mixed(c.page);
    PageRewriter pass(page);
    ASSERT_TRUE(pass.Find("<", ">")) << c.page;
    EXPECT_EQ(pass.ContentBeginsWith("ab"), c.begins) << c.page;
    EXPECT_EQ(pass.ContentEndsWith("--"), c.ends) << c.page;
    EXPECT_FALSE(pass.ContentBeginsWith("ab-->")) << c.page << ": the end is no content";
    EXPECT_TRUE(pass.ContentBeginsWith("")) << c.page;
    EXPECT_TRUE(pass.ContentEndsWith("")) << c.page;
  }
}

TEST(PageRewriterTest, APassThatIsLeftEarlyKeepsTheRest) {
  Page page = Mixed("1<a>2<b>3|x|4<c>5");
  {
    PageRewriter pass(page);
    pass.Find("<", ">");
    pass.Replace(Shared("A"));
    pass.Find("<", ">");
  }
  EXPECT_EQ(Show(page), "1|A|2<b>3|x|4<c>5");
}

TEST(PageRewriterTest, AnExceptionCostsNothingThatWasDone) {
  Page page = Mixed("1<a>2|x|<b>3|y|4<c>5");
  try {
    PageRewriter pass(page);
    for (int i = 0; pass.Find("<", ">"); ++i) {
      if (i == 2) throw std::runtime_error("in mid-pass");
      pass.Replace(Shared("V"));
    }
    FAIL() << "there are three tags";
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(Show(page), "1|V|2|x||V|3|y|4<c>5");
}

TEST(PageRewriterTest, ATagForWhichThereIsNoRoomStays) {
  const Page::SharedText most = Shared(std::string(Page::kMaxInsertedBytes - 1, 'x'));
  Page page("<a>1<b>2<c>3<d>");
  {
    PageRewriter pass(page);
    for (const Page::SharedText& text : {most, Shared("yy"), Shared("z"), Shared("w")}) {
      ASSERT_TRUE(pass.Find("<", ">"));
      pass.Replace(text);
    }
    EXPECT_FALSE(pass.Find("<", ">"));
  }
  ASSERT_EQ(page.Pieces().size(), 4u);
  EXPECT_EQ(page.Text().substr(most->size()), "1<b>2z3<d>");
}

TEST(PageRewriterTest, LaterTextCountsForTheRoomToo) {
  Page page("<a>x");
  page.AppendInserted(Shared(std::string(Page::kMaxInsertedBytes, 'x')));
  {
    PageRewriter pass(page);
    ASSERT_TRUE(pass.Find("<", ">"));
    pass.Replace(Shared("y"));
  }
  EXPECT_EQ(page.Text().substr(0, 5), "<a>xx");
}

TEST(PageRewriterTest, KeptTagsLeaveOnePiece) {
  Page page("1<a>2<b>3");
  {
    PageRewriter pass(page);
    while (pass.Find("<", ">")) pass.Keep();
  }
  EXPECT_EQ(page.Pieces().size(), 1u);
  EXPECT_EQ(page.Text(), "1<a>2<b>3");
}

TEST(PageRewriterTest, KeptTagsInFrontOfAReplacedOneStay) {
  Page page = Mixed("1<a>2|x|<b>3<c>4<d>5");
  {
    PageRewriter pass(page);
    for (const char* value : {"", "", "C", ""}) {
      ASSERT_TRUE(pass.Find("<", ">"));
      if (*value == '\0') {
        pass.Keep();
      } else {
        pass.Replace(Shared(value));
      }
    }
  }
  EXPECT_EQ(Show(page), "1<a>2|x|<b>3|C|4<d>5");
}

TEST(PageRewriterTest, APassWithoutAReplacementLeavesThePiecesWhereTheyAre) {
  Page page = Mixed("1<a>2|x|<b>3");
  const Page::Piece* const before = &page.Pieces()[0];
  {
    PageRewriter pass(page);
    while (pass.Find("<", ">")) pass.Keep();
  }
  EXPECT_EQ(&page.Pieces()[0], before);
}

TEST(PageRewriterTest, TwentyThousandTagsAreOneWalk) {
  constexpr int kTags = 20'000;
  std::string text, expected;
  for (int i = 0; i < kTags; ++i) {
    text += "text<%=" + std::to_string(i) + "%>";
    expected += "text" + std::to_string(i) + "!";
  }
  Page page(text);
  for (int walk = 0; walk < 3; ++walk) {  // the second and third go over forty thousand pieces
    PageRewriter pass(page);
    while (pass.Find("<%=", "%>")) pass.Replace(Shared(std::string(pass.Content()) + "!"));
  }
  EXPECT_EQ(page.Pieces().size(), 2u * kTags);
  EXPECT_EQ(page.Text(), expected);
}

TEST(PageRewriterTest, OpenersWithoutAnEndEndThePass) {
  std::string text;
  for (int i = 0; i < 20'000; ++i) text += "<%=";
  Page page = Mixed(text + "|%>|");
  {
    PageRewriter pass(page);
    EXPECT_FALSE(pass.Find("<%=", "%>"));
  }
  EXPECT_EQ(page.Text(), text + "%>");
}

}  // namespace
}  // namespace TesselServer
