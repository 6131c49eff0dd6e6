#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/modern/HtmlListing.h"

namespace TesselServer::Modern {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string HtmlOf(HtmlListing::Place place, const std::vector<ListedEntry>& entries = {}, bool isWhole = true) {
  HtmlListing page(std::move(place));
  std::string text;
  page.Begin(text);
  for (const ListedEntry& entry : entries) page.AppendRow(text, entry);
  page.End(text, isWhole);
  return text;
}

std::string HtmlRowOf(const ListedEntry& entry) {
  HtmlListing page({"/", ""});
  std::string text;
  page.AppendRow(text, entry);
  return text;
}

// What is between two texts.
std::string PartBetween(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  if (from == std::string::npos) return "no " + begin;
  const std::size_t start = from + begin.size();
  return text.substr(start, text.find(end, start) - start);
}

TEST(HtmlListingTest, IsAPageForEveryScreen) {
  const std::string page = HtmlOf({"/", "Den"});
  EXPECT_EQ(HtmlListing({"/", ""}).Type(), "text/html; charset=utf-8");
  EXPECT_THAT(page, StartsWith("<!DOCTYPE html>\n<html lang=\"en\">\n"));
  EXPECT_THAT(page, HasSubstr("<meta charset=\"utf-8\">"));
  EXPECT_THAT(page, HasSubstr("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"));
  EXPECT_THAT(page, HasSubstr("<meta name=\"color-scheme\" content=\"light dark\">"));
  EXPECT_THAT(page, HasSubstr("@media (prefers-color-scheme:dark)"));
  EXPECT_THAT(page, HasSubstr("<title>/ - Den</title>"));
  EXPECT_THAT(page, EndsWith("</body>\n</html>\n"));
  for (const char* never : {"<script", "<link", "<img", " style=", "@import", "url("}) {
    EXPECT_THAT(page, Not(HasSubstr(never)));
  }
}

TEST(HtmlListingTest, RowsShowNameSizeAndTime) {
  EXPECT_EQ(HtmlRowOf({"a b.txt", false, 12345, 1795367109}),
            "<tr><th scope=\"row\"><a href=\"a%20b.txt\"><bdi>a b.txt</bdi></a></th>"
            "<td>12,345 <small>12.1 KiB</small></td>"
            "<td><time datetime=\"2026-11-22T17:05:09Z\">2026-11-22 17:05</time></td></tr>\n");
  EXPECT_EQ(HtmlRowOf({"music", true, 0, 0}),
            "<tr class=\"d\"><th scope=\"row\"><a href=\"music/\"><bdi>music</bdi>/</a></th>"
            "<td></td>"
            "<td><time datetime=\"1970-01-01T00:00:00Z\">1970-01-01 00:00</time></td></tr>\n");
}

TEST(HtmlListingTest, NamesAreTextAndLinksAreEncoded) {
  const struct {
    std::string_view name;
    const char *shown, *link, *why;
  } cases[] = {
      {"plain-._~1A", "plain-._~1A", "plain-._~1A", "the unreserved bytes"},
      {"a<b", "a&lt;b", "a%3Cb", "no tag"},
      {"<script>alert(1)</script>", "&lt;script&gt;alert(1)&lt;/script&gt;", "%3Cscript%3Ealert%281%29%3C/script%3E",
       "no script (and no name has a slash)"},
      {"a&b&amp;c", "a&amp;b&amp;amp;c", "a%26b%26amp%3Bc", "no character of another name"},
      {"\"a' onclick='x", "&quot;a&#39; onclick=&#39;x", "%22a%27%20onclick%3D%27x", "no attribute"},
      {"50%", "50%", "50%25", "no code"},
      {"%41", "%41", "%2541", "that looks like one"},
      {"a#b?c;d", "a#b?c;d", "a%23b%3Fc%3Bd", "no place in a page, no query"},
      {" a  ", " a  ", "%20a%20%20", "blanks at both ends"},
      {"a+b", "a+b", "a%2Bb", "a plus"},
      {"javascript:x", "javascript:x", "javascript%3Ax", "no scheme"},
      {"c:", "c:", "c%3A", "no drive"},
      {"//host", "//host", "//host", "no name has a slash"},
      {"~", "~", "~", "a tilde"},
      {"\xC3\xA4\xE2\x82\xAC", "\xC3\xA4\xE2\x82\xAC", "%C3%A4%E2%82%AC", "UTF-8"},
      {"\xF0\x9F\x8E\xB5", "\xF0\x9F\x8E\xB5", "%F0%9F%8E%B5", "beyond 16 bits"},
      {"\xD7\xA9\xD7\x9C", "\xD7\xA9\xD7\x9C", "%D7%A9%D7%9C", "from right to left: kept in by bdi"},
      {"a\xE2\x80\xAEtxt.exe", "a\xE2\x80\xAEtxt.exe", "a%E2%80%AEtxt.exe", "turned round: kept in by bdi"},
      {"\xE4-\xF6", "\xEF\xBF\xBD-\xEF\xBF\xBD", "%E4-%F6", "no UTF-8: the link has the true bytes"},
      {"\xE2\x82<", "\xEF\xBF\xBD&lt;", "%E2%82%3C", "half a character swallows nothing"},
      {"\xC2\x9B"
       "31m",
       "\xEF\xBF\xBD"
       "31m",
       "%C2%9B31m", "a control of 16 bits can be asked for"},
  };
  for (const auto& c : cases) {
    const std::string row = HtmlRowOf({c.name, false, 0, 0});
    EXPECT_EQ(PartBetween(row, "<bdi>", "</bdi>"), c.shown) << c.why;
    EXPECT_EQ(PartBetween(row, "<a href=\"", "\""), c.link) << c.why;
  }
}

TEST(HtmlListingTest, NamesThatNoRequestLeadsToHaveNoLink) {
  const struct {
    std::string_view name;
    const char *shown, *why;
  } cases[] = {
      {"a\nb",
       "a\xEF\xBF\xBD"
       "b",
       "a line end"},
      {"\t\r\x01\x1F\x7F", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD", "controls"},
      {"a\\b", "a\\b", "what other systems divide paths with"},
      {"<\x1B>", "&lt;\xEF\xBF\xBD&gt;", "with others"},
  };
  for (const auto& c : cases) {
    for (const bool isFolder : {false, true}) {
      const std::string row = HtmlRowOf({c.name, isFolder, 0, 0});
      EXPECT_EQ(PartBetween(row, "<span><bdi>", "</bdi>"), c.shown) << c.why;
      EXPECT_THAT(row, Not(HasSubstr("href"))) << c.why;
    }
  }
}

TEST(HtmlListingTest, NoRowIsLongerThanTheMost) {
  for (const char c : {'x', '"', '&', '\x01', '\xE4', '\\'}) {
    const std::string row = HtmlRowOf({std::string(255, c), false, INT64_MAX, INT64_MIN});
    EXPECT_LE(row.size(), ListingPage::kMaxRowBytes) << int{c};
  }
}

TEST(HtmlListingTest, SizesAreExactAndReadable) {
  const struct {
    std::int64_t bytes;
    const char *exact, *readable, *why;
  } cases[] = {
      {0, "0", "", "nothing"},
      {999, "999", "", "no group"},
      {1000, "1,000", "", "a group; short enough"},
      {1023, "1,023", "", "the last short one"},
      {1024, "1,024", "1.0 KiB", "the first unit"},
      {12'345, "12,345", "12.1 KiB", "rounded"},
      {1'048'524, "1,048,524", "1023.9 KiB", "just below"},
      {1'048'525, "1,048,525", "1.0 MiB", "what would be 1024.0 KiB"},
      {1'048'576, "1,048,576", "1.0 MiB", "the next unit"},
      {4'812'345'678, "4,812,345,678", "4.5 GiB", "beyond 32 bits"},
      {INT64_MAX, "9,223,372,036,854,775,807", "8.0 EiB", "the largest"},
  };
  for (const auto& c : cases) {
    std::string exact, readable;
    AppendGrouped(exact, c.bytes);
    AppendReadableSize(readable, c.bytes);
    EXPECT_EQ(exact, c.exact) << c.why;
    EXPECT_EQ(readable, c.readable) << c.why;
  }
}

// The links in the heading, each as "link=text".
std::string PathLinksOf(const HtmlListing::Place& place) {
  std::string heading = PartBetween(HtmlOf(place), "<h1>", "</h1>");
  std::string links;
  for (std::size_t at; (at = heading.find("<a href=\"")) != std::string::npos;) {
    heading.erase(0, at);
    links += PartBetween(heading, "<a href=\"", "\"") + "=" + PartBetween(heading, "<bdi>", "</bdi>") + " ";
    heading.erase(0, 1);
  }
  return links;
}

TEST(HtmlListingTest, PartsOfThePathAreLinks) {
  const struct {
    HtmlListing::Place place;
    const char *links, *why;
  } cases[] = {
      {{"/", ""}, "./=Root ", "the root has a name"},
      {{"/", "Den <1>"}, "./=Den &lt;1&gt; ", "that the host chooses"},
      {{"/a/", ""}, "../=Root ./=a ", "one below"},
      {{"/a/b c/d/", "x"}, "../../../=x ../../=a ../=b c ./=d ", "the address counts upwards"},
      {{"/a/b c/", "x", false}, "/=x /a/=a /a/b%20c/=b c ", "where it has other parts, from the root"},
      {{"/<&>/\xE4/", "x"}, "../../=x ../=&lt;&amp;&gt; ./=\xEF\xBF\xBD ", "names as in rows"},
      {{"/<&>/\xE4:/", "x", false}, "/=x /%3C%26%3E/=&lt;&amp;&gt; /%3C%26%3E/%E4%3A/=\xEF\xBF\xBD: ", "encoded"},
  };
  for (const auto& c : cases) EXPECT_EQ(PathLinksOf(c.place), c.links) << c.why;
}

TEST(HtmlListingTest, AFolderVeryFarDownShowsItsLastPartsOnly) {
  std::string path = "/";
  for (int i = 0; i < 2000; ++i) path += "a/";
  const std::string page = HtmlOf({path, "x"});
  EXPECT_THAT(page, HasSubstr("</a> / \xE2\x80\xA6 / <a href"));
  EXPECT_LT(page.size(), 32u * 1024);
}

TEST(HtmlListingTest, AllButTheRootHaveALinkToTheFolderAbove) {
  const std::string before = "<tbody>\n<tr class=\"d\"><th scope=\"row\"><a href=\"";
  const std::string after = "\">../ (parent folder)</a></th><td></td><td></td></tr>\n";
  EXPECT_THAT(HtmlOf({"/", ""}), Not(HasSubstr("parent folder")));
  EXPECT_THAT(HtmlOf({"/a/", ""}), HasSubstr(before + "../" + after));
  EXPECT_THAT(HtmlOf({"/a/b/", ""}), HasSubstr(before + "../" + after));
  EXPECT_THAT(HtmlOf({"/a/", "", false}), HasSubstr(before + "/" + after));
  EXPECT_THAT(HtmlOf({"/a b/c/", "", false}), HasSubstr(before + "/a%20b/" + after));
}

TEST(HtmlListingTest, HeadsOfColumnsSort) {
  const std::string asc = "<span aria-hidden=\"true\">\xE2\x96\xB2</span>";
  const std::string desc = "<span aria-hidden=\"true\">\xE2\x96\xBC</span>";
  const std::string byName = HtmlOf({"/", ""});
  EXPECT_THAT(byName,
              HasSubstr("<th scope=\"col\" aria-sort=\"ascending\"><a href=\"?sort=name&amp;order=desc\">Name " + asc +
                        "</a></th>\n"));
  EXPECT_THAT(byName,
              HasSubstr("<th scope=\"col\"><a href=\"?sort=size&amp;order=asc\">Size <small>bytes</small></a>"));
  EXPECT_THAT(byName,
              HasSubstr("<th scope=\"col\"><a href=\"?sort=time&amp;order=asc\">Modified <small>UTC</small></a>"));
  const std::string bySize = HtmlOf({"/", "", true, {ListingKey::kSize, true}});
  EXPECT_THAT(bySize, HasSubstr("<th scope=\"col\"><a href=\"?sort=name&amp;order=asc\">Name</a></th>\n"));
  EXPECT_THAT(bySize,
              HasSubstr("<th scope=\"col\" aria-sort=\"descending\"><a href=\"?sort=size&amp;order=asc\">Size " + desc +
                        " <small>bytes</small></a></th>\n"));
}

TEST(HtmlListingTest, SaysWhenThereIsNothingOrNotAll) {
  const std::vector<ListedEntry> one = {{"a", false, 0, 0}};
  EXPECT_THAT(HtmlOf({"/a/", ""}), HasSubstr("This folder is empty."));
  EXPECT_THAT(HtmlOf({"/a/", ""}, one), Not(HasSubstr("This folder is empty.")));
  EXPECT_THAT(HtmlOf({"/a/", ""}, one), Not(HasSubstr("more entries")));
  EXPECT_THAT(HtmlOf({"/a/", ""}, one, false), HasSubstr("The folder has more entries than this page can show."));
}

}  // namespace
}  // namespace TesselServer::Modern
