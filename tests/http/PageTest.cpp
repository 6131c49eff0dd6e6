#include <gtest/gtest.h>

#include <utility>

#include "http/Page.h"

namespace TesselServer {
namespace {

TEST(PageTest, BeginsAsOnePieceOfAuthorText) {
  const Page page("<html>");
  ASSERT_EQ(page.Pieces().size(), 1u);
  EXPECT_EQ(page.Pieces()[0].source, Page::Source::kAuthor);
  EXPECT_EQ(page.Text(), "<html>");
  EXPECT_TRUE(Page().Pieces().empty());
  EXPECT_TRUE(Page("").Pieces().empty());
  EXPECT_EQ(Page().Text(), "");
}

TEST(PageTest, KeepsInsertedTextApartFromAuthorText) {
  Page page("a");
  page.AppendInserted("<%=b%>");
  page.AppendAuthor("c");
  ASSERT_EQ(page.Pieces().size(), 3u);
  EXPECT_EQ(page.Pieces()[1].source, Page::Source::kInserted);
  EXPECT_EQ(page.Pieces()[1].text, "<%=b%>");
  EXPECT_EQ(page.Text(), "a<%=b%>c");
  EXPECT_EQ(std::move(page).Text(), "a<%=b%>c");
}

TEST(PageTest, JoinsNeighboursOfOneSourceAndDropsEmptyText) {
  Page page("a");
  page.AppendInserted("");
  page.AppendAuthor("b");
  page.AppendInserted("c");
  page.AppendAuthor("");
  page.AppendInserted("d");
  ASSERT_EQ(page.Pieces().size(), 2u);
  EXPECT_EQ(page.Pieces()[0].text, "ab");
  EXPECT_EQ(page.Pieces()[1].text, "cd");
  EXPECT_EQ(page.Text(), "abcd");
}

TEST(PageTest, KeepsEveryByte) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_EQ(Page(bytes).Text(), bytes);
}

}  // namespace
}  // namespace TesselServer
