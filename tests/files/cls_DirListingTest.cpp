#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "files/cls_DirListing.h"
#include "platform/files/FolderCache.h"
#include "platform/world/Error.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/FileMarks.h"
#include "tests/kit/Limits.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::int64_t kListedAt = 1794766805;  // Sunday, 15 November 2026, 18:20:05 UTC

// The page of the folder "/docs/" with one folder and one file, written by hand.
constexpr char kWholePage[] =
    "<html>\r\n"
    "<head>\r\n"
    "   <meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\">\r\n"
    "   <title>Directory Listing: My server - /docs/</title>\r\n"
    "   <STYLE TYPE=\"text/css\">\r\n"
    "       H2 {font-size: larger; font-family:Verdana,Arial,Helvetica; color: #3366CC; text-decoration: none;}\r\n"
    "       .TH0 {font-size: 16px; font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #6699CC; "
    "color: #FFFFFF; text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       .TH1 {font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #003399; color: #FFFFFF; "
    "text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       .TH2 {font-family:Verdana,Arial,Helvetica; font-weight: bold; background-color: #003399; color: #FFFFFF; "
    "text-decoration: none; padding-bottom : 2px; padding-top : 2px;}\r\n"
    "       TD {font-family:Verdana,Arial,Helvetica; color: #003399; text-decoration: none;}\r\n"
    "       TR {font-family:Verdana,Arial,Helvetica; color: #003399; text-decoration: none;}\r\n"
    "       A {text-decoration: underline; color: blue;}\r\n"
    "       A:Hover {text-decoration: underline; color: red;}\r\n"
    "   </STYLE>\r\n"
    "</head>\r\n"
    "\r\n"
    "<body bgcolor=\"#FFFFFF\" leftmargin=\"1\" topmargin=\"1\" MARGINHEIGHT=\"1\" MARGINWIDTH=\"1\">\r\n"
    "\r\n"
    "<table border=\"0\" bordercolor=\"#DDDDDD\" width=\"100%\" bgcolor=\"#FFFFFF\" style=\"font-family: Arial; "
    "font-size: 9pt; border-style: solid; border-color: #FFFFFF\" cellpadding=\"0\">\r\n"
    "   <tr>\r\n"
    "       <td colspan=3 class=th0>&nbsp;My server - /docs/</td>\r\n"
    "   </tr>\r\n"
    "   <tr>\r\n"
    "       <td class=th1>&nbsp;Name</td>\r\n"
    "       <td align=right width = 25% class=th2>&nbsp;File Size (KB)&nbsp;</td>\r\n"
    "       <td align=right width = 25% class=th2>&nbsp;Date&nbsp;</td>\r\n"
    "   </tr>\r\n"
    "   <tr><td><a href = />[Parent Directory]</a></td><td></td><td></td></tr>\r\n"
    "   <tr>\r\n"
    "       <td>&nbsp;<a href = /docs/my%2Ddir%20a>my-dir a</a></td>\r\n"
    "       <td align=\"right\">&lt;dir&gt;&nbsp;</td>\r\n"
    "       <td align=\"right\">2026/07/01&nbsp;&nbsp;&nbsp;02:00:00&nbsp;</td>\r\n"
    "   </tr>\r\n"
    "   <tr>\r\n"
    "       <td>&nbsp;<a href = /docs/my-file a.txt>my-file a.txt</a></td>\r\n"
    "       <td align=\"right\">1.50KB&nbsp;</td>"
    "       <td align=\"right\">2026/11/15&nbsp;&nbsp;&nbsp;19:20:05&nbsp;</td>\r\n"
    "   </tr>\r\n"
    "</table>\r\n"
    "</html>\r\n";

// Whatever stands between each `before` and the next `behind`.
std::vector<std::string> AllBetween(const std::string& text, std::string_view before, std::string_view behind) {
  std::vector<std::string> found;
  for (std::size_t at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
    at += before.size();
    found.push_back(text.substr(at, text.find(behind, at) - at));
  }
  return found;
}

class cls_DirListingTest : public testing::Test {
 protected:
  cls_DirListingTest() { fs::create_directory(folder_); }

  std::string At(std::string_view name) const { return folder_ + "/" + std::string(name); }
  void Write(std::string_view name, std::string_view bytes = "x") { tree_.Write("folder/" + std::string(name), bytes); }
  void MakeFolder(std::string_view name) { tree_.MakeFolder("folder/" + std::string(name)); }

  std::string Page(std::string urlPath, const std::string& serverName = "My server") {
    const OpenFile folder = OpenPath(folder_);
    cls_DirListing listing(world_, folder, rules_);
    std::string localDir = folder_;
    return listing.GetDirListing(localDir, urlPath, serverName);
  }

  // "address>name" of each row.
  std::vector<std::string> Links(const std::string& page) const { return AllBetween(page, "&nbsp;<a href = ", "</a>"); }
  std::vector<std::string> LinksOfRoot() { return Links(Page("/")); }

  Kit::TemporaryTree tree_;
  std::string folder_ = tree_.Text() + "/folder";
  Kit::FakeWorld world_;
  ListingRules rules_{"htaccess.txt", {}, {}};
};

TEST_F(cls_DirListingTest, WritesTheWholePage) {
  world_.bias = [](std::int64_t time) { return time < 1792890000 ? -120 : -60; };
  MakeFolder("my-dir a");
  Write("my-file a.txt", std::string(1536, 'x'));
  Kit::SetModified(At("my-dir a"), 1782864000);
  Kit::SetModified(At("my-file a.txt"), kListedAt);
  EXPECT_EQ(Page("/docs/"), kWholePage);
}

TEST_F(cls_DirListingTest, ChangesItsArguments) {
  struct {
    std::string localDir, urlPath, localDirAfter, urlPathAfter;
  } const cases[] = {
      {"/srv/www", "/docs/", "/srv/www\\", "/docs"},
      {"/srv/www\\", "/docs", "/srv/www\\", "/docs"},
      {"/srv/www/", "/", "/srv/www/\\", ""},
      {"", "", "\\", ""},
      {"a", "/docs//", "a\\", "/docs/"},
  };
  const OpenFile folder = OpenPath(folder_);
  for (const auto& c : cases) {
    cls_DirListing listing(world_, folder, rules_);
    std::string localDir = c.localDir, urlPath = c.urlPath;
    listing.GetDirListing(localDir, urlPath, "");
    EXPECT_EQ(localDir, c.localDirAfter);
    EXPECT_EQ(urlPath, c.urlPathAfter);
  }
}

TEST_F(cls_DirListingTest, TitlesAndLinksFollowFromTheUrlPath) {
  MakeFolder("sub");
  Write("file");
  struct {
    std::string urlPath, heading, parent, folder, file;
    const char* why;
  } const cases[] = {
      {"/", "My server - /", "", "/sub>sub", "/file>file", "the root has no parent"},
      {"/a/b/", "My server - /a/b/", "/a/", "/a/b/sub>sub", "/a/b/file>file", "with its slash"},
      {"/a/b", "My server - /a/b", "/a/", "/a/b/sub>sub", "/a/b/file>file", "without"},
      {"/docs/", "My server - /docs/", "/", "/docs/sub>sub", "/docs/file>file", "one level down"},
      {"/x", "My server - /x", "/", "/x/sub>sub", "/x/file>file", "the shortest with a parent"},
      {"//", "My server - //", "", "//sub>sub", "//file>file", "a single slash is left of it"},
      {"/ /", "My server - / /", "", "/ /sub>sub", "/ /file>file", "blanks at the end do not count"},
      {"  ", "My server -   ", "", "  /sub>sub", "  /file>file", "nothing but blanks"},
      {"/a%20b/", "My server - /a%20b/", "/", "/a%20b/sub>sub", "/a%20b/file>file", "as the client sent it"},
      {"docs", "My server - docs", "", "docs/sub>sub", "docs/file>file", "no slash, no parent"},
  };
  for (const auto& c : cases) {
    const std::string page = Page(c.urlPath);
    EXPECT_THAT(page, HasSubstr("<title>Directory Listing: " + c.heading + "</title>\r\n")) << c.why;
    EXPECT_THAT(page, HasSubstr("class=th0>&nbsp;" + c.heading + "</td>\r\n")) << c.why;
    const auto parents = AllBetween(page, "<td><a href = ", ">[Parent Directory]</a>");
    if (c.parent.empty()) {
      EXPECT_THAT(parents, IsEmpty()) << c.why;
    } else {
      EXPECT_THAT(parents, ElementsAre(c.parent)) << c.why;
    }
    EXPECT_THAT(Links(page), ElementsAre(c.folder, c.file)) << c.why;
  }
}

TEST_F(cls_DirListingTest, TheServerNameMayBeEmpty) {
  EXPECT_THAT(Page("/", ""), HasSubstr("<title>Directory Listing:  - /</title>"));
}

TEST_F(cls_DirListingTest, OnlyTheLinksOfFoldersAreEncoded) {
  const std::string name = "a b%c#d?e\"f'g<h\xC3\xA9\n.-_";
  MakeFolder(name);
  const std::string encoded = "/a%20b%25c%23d%3Fe%22f%27g%3Ch%C3%A9%A%2E%2D%5F>" + name;
  EXPECT_THAT(LinksOfRoot(), ElementsAre(encoded));
  fs::remove(At(name));
  Write(name);
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/" + name + ">" + name));
}

TEST_F(cls_DirListingTest, TheLongestNameIsListedWhole) {
  const std::string name(255, 'n');
  Write(name);
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/" + name + ">" + name));
}

TEST_F(cls_DirListingTest, FoldersWithADotInFrontAreNotListedAndFilesAre) {
  MakeFolder(".folder");
  MakeFolder("..folder");
  MakeFolder("folder.");
  Write(".file");
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/folder%2E>folder.", "/.file>.file"));
}

TEST_F(cls_DirListingTest, HiddenFilesAreNotListedAndHiddenFoldersAre) {
  MakeFolder("folder");
  Write("hidden");
  Write("system");
  Write("plain");
  if (!Kit::SetDosAttributes(At("hidden"), "0x2")) GTEST_SKIP() << Kit::kNoExtendedAttributes;
  ASSERT_TRUE(Kit::SetDosAttributes(At("folder"), "0x2"));
  ASSERT_TRUE(Kit::SetDosAttributes(At("system"), "0x4"));
  EXPECT_THAT(LinksOfRoot(), UnorderedElementsAre("/folder>folder", "/plain>plain", "/system>system"));
}

TEST_F(cls_DirListingTest, ThePasswordFileIsNotListedByItsExactName) {
  Write("htaccess.txt");
  Write("HTACCESS.TXT");
  Write("htaccess.txt.old");
  EXPECT_THAT(LinksOfRoot(), UnorderedElementsAre("/HTACCESS.TXT>HTACCESS.TXT", "/htaccess.txt.old>htaccess.txt.old"));
  rules_.authFileName = "";
  EXPECT_EQ(LinksOfRoot().size(), 3U);
}

TEST_F(cls_DirListingTest, AFolderNamedLikeThePasswordFileIsListed) {
  MakeFolder("htaccess.txt");
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/htaccess%2Etxt>htaccess.txt"));
}

TEST_F(cls_DirListingTest, OneFileIsNeverListedWhateverItsName) {
  Write("users");
  Write("other");
  fs::create_hard_link(At("users"), At("second name"));
  rules_.neverListed = OpenPath(At("users")).Identity();
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/other>other"));
}

TEST_F(cls_DirListingTest, LinksAreListedAsTheirTargetWhenTheyAreServed) {
  tree_.Write("target", std::string(1536, 'x'));
  tree_.MakeFolder("target folder");
  Kit::SetModified(tree_.Text() + "/target", kListedAt);
  fs::create_symlink("../target", At("file"));
  fs::create_symlink("../target folder", At("folder"));
  fs::create_symlink("../nowhere", At("broken"));
  fs::create_symlink("/etc/passwd", At("outside"));
  EXPECT_THAT(LinksOfRoot(), IsEmpty()) << "nobody says that they are";
  std::vector<std::string> asked;
  rules_.linkIsServed = [&asked](std::string name, FileIdentity) -> Task<bool> {
    asked.push_back(name);
    co_return name != "outside";
  };
  const std::string page = Page("/");
  EXPECT_THAT(Links(page), ElementsAre("/folder>folder", "/file>file"));
  EXPECT_THAT(page, HasSubstr(">1.50KB&nbsp;</td>"));
  EXPECT_THAT(page, HasSubstr(">2026/11/15&nbsp;&nbsp;&nbsp;18:20:05&nbsp;</td>"));
  EXPECT_THAT(asked, UnorderedElementsAre("file", "folder", "outside"));
}

TEST_F(cls_DirListingTest, ALinkToTheFileThatIsNeverListedIsNotListed) {
  const std::string users = tree_.Write("users", "a:b");
  fs::create_symlink("../users", At("link"));
  rules_.linkIsServed = [](std::string, FileIdentity) -> Task<bool> { co_return true; };
  rules_.neverListed = OpenPath(users).Identity();
  EXPECT_THAT(LinksOfRoot(), IsEmpty());
}

TEST_F(cls_DirListingTest, ALinkThatCannotBeFollowedForWantOfDescriptorsIsLeftOut) {
  Write("file");
  fs::create_symlink("file", At("link"));
  rules_.linkIsServed = [](std::string, FileIdentity) -> Task<bool> {
    throw Error(10024, "Too many open files.");
    co_return true;
  };
  EXPECT_THAT(LinksOfRoot(), ElementsAre("/file>file"));
}

TEST_F(cls_DirListingTest, PipesAreNotListed) {
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  EXPECT_THAT(LinksOfRoot(), IsEmpty());
}

TEST_F(cls_DirListingTest, SizesAreShownInTheirUnit) {
  struct {
    std::size_t size;
    std::string shown;
  } const cases[] = {{0, "0 bytes"}, {500, "500 bytes"}, {1023, "1,023 bytes"}, {1536, "1.50KB"}, {2411725, "2.30MB"}};
  for (const auto& c : cases) {
    Write("file", std::string(c.size, 'x'));
    EXPECT_THAT(Page("/"),
                HasSubstr("       <td align=\"right\">" + c.shown + "&nbsp;</td>       <td align=\"right\">"));
  }
}

TEST_F(cls_DirListingTest, ALargeFileShowsTheLow32BitsOfItsSize) {
  Write("sparse");
  fs::resize_file(At("sparse"), 2147483648);
  EXPECT_THAT(Page("/"), HasSubstr(">-2,147,483,648 bytes&nbsp;</td>"));
}

TEST_F(cls_DirListingTest, DatesAreLocalTimeAcrossTheChangeToSummerTime) {
  constexpr std::int64_t kSummerBegins = 1774746000;  // 29 March 2026, 01:00 UTC
  world_.bias = [](std::int64_t time) { return time >= kSummerBegins ? -120 : -60; };
  Write("file");
  Kit::SetModified(At("file"), kSummerBegins - 1);
  EXPECT_THAT(Page("/"), HasSubstr(">2026/03/29&nbsp;&nbsp;&nbsp;01:59:59&nbsp;<"));
  Kit::SetModified(At("file"), kSummerBegins);
  EXPECT_THAT(Page("/"), HasSubstr(">2026/03/29&nbsp;&nbsp;&nbsp;03:00:00&nbsp;<"));
}

TEST_F(cls_DirListingTest, DatesBeyondTheCalendarAreItsEnds) {
  constexpr std::int32_t kFarAway = std::numeric_limits<std::int32_t>::max();  // more than 4000 years in minutes
  world_.bias = [](std::int64_t) { return kFarAway; };
  Write("file");
  Kit::SetModified(At("file"), kListedAt - kFarAway);
  EXPECT_THAT(Page("/"), HasSubstr(">0100/01/01&nbsp;&nbsp;&nbsp;00:00:00&nbsp;<"));
  const Kit::TemporaryTree memory("/dev/shm");  // where it is one, any time can be kept
  constexpr std::int64_t kTooFar = 400'000'000'000;
  Kit::SetModified(memory.Write("file", ""), kTooFar);
  folder_ = memory.Text();
  if (FactsOfPath(At("file")).facts.modified != kTooFar) GTEST_SKIP() << "a file system that keeps no such time";
  EXPECT_THAT(Page("/"), HasSubstr(">10000/01/01&nbsp;&nbsp;&nbsp;00:00:00&nbsp;<"));
}

TEST_F(cls_DirListingTest, TheTwoKindsOfRowsCanBeHadAlone) {
  MakeFolder("sub");
  Write("file");
  Kit::SetModified(At("sub"), kListedAt);
  Kit::SetModified(At("file"), kListedAt);
  const OpenFile folder = OpenPath(folder_);
  cls_DirListing listing(world_, folder, rules_);
  std::string localDir = folder_ + "\\", urlPath = "/a/";
  EXPECT_EQ(listing.ListSubDirectories(localDir, urlPath, "ignored"),
            "   <tr>\r\n"
            "       <td>&nbsp;<a href = /a//sub>sub</a></td>\r\n"
            "       <td align=\"right\">&lt;dir&gt;&nbsp;</td>\r\n"
            "       <td align=\"right\">2026/11/15&nbsp;&nbsp;&nbsp;18:20:05&nbsp;</td>\r\n"
            "   </tr>\r\n");
  EXPECT_EQ(
      listing.ListFiles(localDir, urlPath, "ignored"),
      "   <tr>\r\n"
      "       <td>&nbsp;<a href = /a//file>file</a></td>\r\n"
      "       <td align=\"right\">1 bytes&nbsp;</td>       <td align=\"right\">2026/11/15&nbsp;&nbsp;&nbsp;18:20:05"
      "&nbsp;</td>\r\n"
      "   </tr>\r\n");
  EXPECT_EQ(localDir, folder_ + "\\");
  EXPECT_EQ(urlPath, "/a/") << "taken as they are, and left so";
}

TEST_F(cls_DirListingTest, RowsKeepTheOrderOfTheSystem) {
  for (int i = 0; i < 60; ++i) i % 3 == 0 ? MakeFolder(std::to_string(i)) : Write(std::to_string(i));
  std::vector<std::string> folders, files;
  for (const auto& entry : fs::directory_iterator(folder_)) {
    const std::string name = entry.path().filename();
    (entry.is_directory() ? folders : files).push_back("/" + name + ">" + name);
  }
  folders.insert(folders.end(), files.begin(), files.end());
  EXPECT_EQ(LinksOfRoot(), folders);
}

TEST_F(cls_DirListingTest, OneObjectListsAgainWhatIsThereNow) {
  const OpenFile folder = OpenPath(folder_);
  cls_DirListing listing(world_, folder, rules_);
  std::string localDir = folder_, urlPath = "/";
  Write("a");
  EXPECT_THAT(Links(listing.GetDirListing(localDir, urlPath, "")), ElementsAre("/a>a"));
  fs::rename(At("a"), At("b"));
  EXPECT_THAT(Links(listing.GetDirListing(localDir, urlPath, "")), ElementsAre("/b>b"));
}

TEST_F(cls_DirListingTest, FromRememberedNamesThePageIsTheSame) {
  MakeFolder("sub");
  Write("a", "12345");
  Write("htaccess.txt");
  if (Kit::SetDosAttributes(At("a"), "0x0")) Kit::SetDosAttributes(At("htaccess.txt"), "0x2");
  fs::create_symlink("a", At("link"));
  rules_.linkIsServed = [](std::string, FileIdentity) -> Task<bool> { co_return true; };
  world_.LetFilesSettle();
  FolderCache cache(folder_, world_);
  cache.NamesOf("", OpenPath(folder_).Descriptor());
  const auto remembered = [&] {
    const OpenFile folder = OpenPath(folder_);
    auto names = cache.NamesOf("", folder.Descriptor());
    EXPECT_NE(names, nullptr);
    cls_DirListing listing(world_, folder, rules_, std::move(names));
    std::string localDir = folder_, urlPath = "/docs/";
    return listing.GetDirListing(localDir, urlPath, "My server");
  };
  for (int i = 0; i < 3; ++i) EXPECT_EQ(remembered(), Page("/docs/"));
  Kit::SetDosAttributes(At("a"), "0x2");
  EXPECT_EQ(remembered(), Page("/docs/")) << "hidden";
  Kit::SetModified(At("a"), kListedAt);
  EXPECT_EQ(remembered(), Page("/docs/")) << "another time";
  fs::rename(At("a"), At("b"));
  EXPECT_EQ(remembered(), Page("/docs/")) << "another name";
}

TEST_F(cls_DirListingTest, AFolderThatIsGoneHasNoRows) {
  Write("a");
  const std::string empty = [this] {
    Kit::TemporaryTree other;
    const OpenFile folder = OpenPath(other.Text());
    cls_DirListing listing(world_, folder, rules_);
    std::string localDir, urlPath = "/x/";
    return listing.GetDirListing(localDir, urlPath, "S");
  }();
  const OpenFile folder = OpenPath(folder_);
  fs::remove_all(folder_);
  const OpenFile nothing;
  for (const OpenFile* each : {&folder, &nothing}) {
    cls_DirListing listing(world_, *each, rules_);
    std::string localDir, urlPath = "/x/";
    const std::string page = listing.GetDirListing(localDir, urlPath, "S");
    EXPECT_EQ(page, empty);
    EXPECT_THAT(page, HasSubstr("[Parent Directory]"));
    EXPECT_THAT(page, EndsWith("</tr>\r\n</table>\r\n</html>\r\n"));
  }
}

TEST_F(cls_DirListingTest, WithoutADescriptorThereAreNoRows) {
  Write("a");
  const OpenFile folder = OpenPath(folder_);
  cls_DirListing listing(world_, folder, rules_);
  std::string localDir, urlPath = "/", page;
  {
    const Kit::DescriptorFamine famine;
    page = listing.GetDirListing(localDir, urlPath, "");
  }
  EXPECT_THAT(Links(page), IsEmpty());
  EXPECT_THAT(page, EndsWith("</html>\r\n"));
}

TEST_F(cls_DirListingTest, FilesThatMayNotBeReadAreListedAllTheSame) {
  Write("closed", "12345");
  fs::permissions(tree_.Path(), fs::perms(0755));
  fs::permissions(folder_, fs::perms(0755));
  fs::permissions(At("closed"), fs::perms(0));
  const int status = Kit::InUnprivilegedChild([this] { return LinksOfRoot().size() == 1 ? 0 : 1; });
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
}

TEST_F(cls_DirListingTest, APageEndsAtItsLimitWithWholeRows) {
  constexpr int kEntries = 700;
  for (int i = 0; i < kEntries; ++i) i % 2 == 0 ? MakeFolder(std::to_string(i)) : Write(std::to_string(i));
  const std::string urlPath = "/" + std::string(200'000, 'p');
  const std::string page = Page(urlPath);
  EXPECT_LE(page.size(), cls_DirListing::kMaxListingBytes);
  EXPECT_GT(page.size(), cls_DirListing::kMaxListingBytes - 201'000) << "the next row would not have fitted";
  EXPECT_TRUE(page.ends_with("&nbsp;</td>\r\n   </tr>\r\n</table>\r\n</html>\r\n"));
  const OpenFile folder = OpenPath(folder_);
  cls_DirListing listing(world_, folder, rules_);
  std::string localDir, path = urlPath + urlPath;
  EXPECT_LE(listing.ListFiles(localDir, path, "").size(), cls_DirListing::kMaxListingBytes);
  EXPECT_LE(listing.ListSubDirectories(localDir, path, "").size(), cls_DirListing::kMaxListingBytes);
}

TEST_F(cls_DirListingTest, APageOfExactlyTheLimitIsWhole) {
  constexpr std::size_t kRows = 333;  // odd, so that a URL path one byte longer makes an odd number more
  std::string urlPath = "/" + std::string(199'000, 'p');
  const std::size_t before = Page(urlPath, "").size();
  Write("100");
  std::size_t row = Page(urlPath, "").size() - before;
  std::size_t whole = before + kRows * row;
  if (whole % 2 != 0) {
    urlPath += 'p';
    row += 1;
    whole += 2 + kRows;
  }
  ASSERT_LT(whole, cls_DirListing::kMaxListingBytes);
  for (std::size_t i = 1; i <= kRows; ++i) Write(std::to_string(100 + i));            // one more than fits
  const std::string serverName((cls_DirListing::kMaxListingBytes - whole) / 2, 's');  // it stands there twice
  EXPECT_EQ(Page(urlPath, serverName).size(), cls_DirListing::kMaxListingBytes);
  EXPECT_EQ(Page(urlPath, serverName + "s").size(), cls_DirListing::kMaxListingBytes + 2 - row) << "a row less";
}

TEST_F(cls_DirListingTest, LeavesNoDescriptorOpen) {
  Write("a");
  const std::size_t before = Kit::CountDescriptors();
  for (int i = 0; i < 5; ++i) Page("/");
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

}  // namespace
}  // namespace TesselServer
