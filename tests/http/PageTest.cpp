#include <gtest/gtest.h>

#include <utility>

#include "http/Page.h"

namespace TesselServer {
namespace {

Page::SharedText SharedCopy(std::string text) { return std::make_shared<const std::string>(std::move(text)); }

TEST(PageTest, BeginsAsOnePieceOfAuthorText) {
  const Page page("<html>");
  ASSERT_EQ(page.Pieces().size(), 1u);
  EXPECT_EQ(page.Pieces()[0].source, Page::Source::kAuthor);
  EXPECT_EQ(page.Pieces()[0].text, "<html>");
  EXPECT_EQ(page.Text(), "<html>");
  EXPECT_TRUE(Page().Pieces().empty());
  EXPECT_TRUE(Page("").Pieces().empty());
  EXPECT_EQ(Page().Text(), "");
}

TEST(PageTest, KeepsInsertedTextApart) {
  Page page("a");
  EXPECT_TRUE(page.AppendInserted(SharedCopy("<%=b%>")));
  EXPECT_TRUE(page.AppendInserted(SharedCopy("")));
  EXPECT_TRUE(page.AppendInserted(SharedCopy("c")));
  ASSERT_EQ(page.Pieces().size(), 3u) << "an empty text is no piece";
  EXPECT_EQ(page.Pieces()[1].source, Page::Source::kInserted);
  EXPECT_EQ(page.Pieces()[1].text, "<%=b%>");
  EXPECT_EQ(page.Text(), "a<%=b%>c");
}

TEST(PageTest, KeepsWhatItsPiecesLookIntoWhenItIsMoved) {
  Page first("a short text");
  first.AppendInserted(SharedCopy("b"));
  Page second(std::move(first));
  EXPECT_EQ(second.Text(), "a short textb");
  Page third;
  third = std::move(second);
  EXPECT_EQ(third.Text(), "a short textb");
}

TEST(PageTest, DoesNotCopyWhatIsPutIn) {
  const Page::SharedText text = SharedCopy("text");
  Page page;
  for (int i = 0; i < 3; ++i) page.AppendInserted(text);
  for (const Page::Piece& piece : page.Pieces()) EXPECT_EQ(piece.text.data(), text->data());
  EXPECT_EQ(page.Text(), "texttexttext");
}

TEST(PageTest, TellsWhatKindsOfTagTheAuthorWrote) {
  const struct {
    const char* text;
    bool directives, scripts;
  } cases[] = {
      {"", false, false},     {"<!-- a % # -->", false, false}, {"<!--#echo -->", true, false},
      {"a<% b", false, true}, {"<!--#<%", true, true},
  };
  for (const auto& c : cases) {
    Page page(c.text);
    page.AppendInserted(SharedCopy("<!--#<%"));
    EXPECT_EQ(page.HoldsDirectives(), c.directives) << c.text;
    EXPECT_EQ(page.HoldsScripts(), c.scripts) << c.text;
  }
  EXPECT_FALSE(Page().HoldsDirectives());
  EXPECT_FALSE(Page().HoldsScripts());
}

TEST(PageTest, ItsResultIsTheAuthorsTextItselfWhileNothingIsInserted) {
  const Page::SharedText text = SharedCopy("the author's");
  Page page(text);
  EXPECT_EQ(page.Result(), text);
  page.AppendInserted(SharedCopy("!"));
  EXPECT_EQ(*page.Result(), "the author's!");
  Page inserted;
  EXPECT_EQ(*inserted.Result(), "");
  inserted.AppendInserted(text);
  EXPECT_EQ(*inserted.Result(), "the author's");
}

TEST(PageTest, TakesInNoMoreThanItsBound) {
  const Page::SharedText half = SharedCopy(std::string(Page::kMaxInsertedBytes / 2, 'x'));
  Page page(std::string(1000, 'a'));  // what the author wrote does not count
  EXPECT_TRUE(page.HasRoomFor(Page::kMaxInsertedBytes));
  EXPECT_FALSE(page.HasRoomFor(Page::kMaxInsertedBytes + 1));
  EXPECT_TRUE(page.AppendInserted(half));
  EXPECT_TRUE(page.AppendInserted(half));
  EXPECT_FALSE(page.AppendInserted(SharedCopy("y")));
  EXPECT_TRUE(page.AppendInserted(SharedCopy(""))) << "nothing always fits";
  EXPECT_TRUE(page.HasRoomFor(0));
  EXPECT_EQ(page.Pieces().size(), 3u);
}

TEST(PageTest, KeepsEveryByte) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_EQ(Page(bytes).Text(), bytes);
  Page page;
  page.AppendInserted(SharedCopy(bytes));
  EXPECT_EQ(page.Text(), bytes);
}

TEST(PageTest, ComesApartIntoABoundedNumberOfPieces) {
  const auto text = std::make_shared<const std::string>("x");
  Page page;
  for (std::size_t i = 0; i < Page::kMaxPieces; ++i) ASSERT_TRUE(page.AppendInserted(text));
  EXPECT_FALSE(page.AppendInserted(text));
  EXPECT_FALSE(page.AppendInserted(std::make_shared<const std::string>()));
  EXPECT_EQ(page.Pieces().size(), Page::kMaxPieces);
}

}  // namespace
}  // namespace TesselServer
