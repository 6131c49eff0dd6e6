#include <gtest/gtest.h>

#include <filesystem>

#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

constexpr std::size_t kOneMebibyte = 1024 * 1024;

std::size_t CountOf(std::string_view text, std::string_view what) {
  std::size_t count = 0;
  for (auto at = text.find(what); at != std::string_view::npos; at = text.find(what, at + what.size())) ++count;
  return count;
}

class FileInclusionTest : public testing::Test {
 protected:
  FileInclusionTest() {
    site_.record.SSIEnable(true);
    site_.tree.Write("part.htm", "part");
    site_.tree.Write("docs/part.htm", "docs part");
  }

  // What the page docs/page.htm of that text becomes.
  std::string DocsPage(std::string_view text) {
    site_.tree.Write("docs/page.htm", text);
    return site_.Get("docs/page.htm");
  }

  Kit::PageSite site_;
};

TEST_F(FileInclusionTest, EachDirectiveHasItsFolder) {
  site_.tree.Write("docs/sub/a b.txt", "not found by a name that lost its blank");
  site_.tree.Write("docs/sub/ab.txt", "ab");
  const struct {
    const char *page, *result, *why;
  } cases[] = {
      {"<!--#include file=\"part.htm\" -->", "docs part", "beside the page"},
      {"<!--#include virtual=\"part.htm\" -->", "part", "below the root"},
      {"<!--#include=\"part.htm\" -->", "part", "below the root"},
      {"<!--#INCLUDE File=part.htm-->", "docs part", "in any case"},
      {"<!--#include file=PART.HTM-->", "docs part", "a name in any case"},
      {"<!--#include file=/part.htm-->", "docs part", "one leading separator"},
      {"<!--#include file=//part.htm-->", "docs part", "two"},
      {"<!--#include virtual=/docs/part.htm-->", "docs part", "one leading separator"},
      {"<!--#include virtual=docs\\part.htm-->", "docs part", "the other separator"},
      {"<!--#include file=sub/a b.txt-->", "ab", "blanks in names are lost"},
      {"<!--#include file=../part.htm-->", "part", "up, but inside the root"},
      {"<!--#include file=..\\part.htm-->", "part", "up, but inside the root"},
      {"<!--#include file=./part.htm-->", "docs part", "this folder"},
      {"<!--#include virtual=../../part.htm-->", "part", "\"../\" is taken out"},
      {"<!--#include virtual=./docs/./part.htm-->", "docs part", "\"./\" is taken out"},
      {"<!--#include virtual=docs/../part.htm-->", "docs part", "\"../\" is taken out, not obeyed"},
      {"[<!--#include=part.htm-->|<!--#include=part.htm-->]", "[part|part]", "twice"},
      {"<!--#include=part.htm--><!--#includefile=part.htm-->", "partdocs part", "side by side"},
      {"<!--#include virtual=<%=SERVER_PROTOCOL%>.htm-->", "<!--#includevirtual=HTTP/1.0.htm-->",
       "a name with a value"},
  };
  for (const auto& c : cases) EXPECT_EQ(DocsPage(c.page), c.result) << c.page << ": " << c.why;
}

TEST_F(FileInclusionTest, WhatCannotBeIncludedStays) {
  std::filesystem::create_symlink(site_.tree.Path() / "docs", site_.tree.Path() / "link");
  for (const char* page : {
           "<!--#includefile=missing.htm-->",
           "<!--#includevirtual=missing.htm-->",
           "<!--#include=missing.htm-->",
           "<!--#includefile=-->",
           "<!--#include=-->",
           "<!--#include=/-->",
           "<!--#include=../-->",
           "<!--#include=docs-->",
           "<!--#includefile=.-->",
           "<!--#include=link-->",
           "<!--#include=part.htm/-->",
           "<!--#include=part.htm>",
           "<!--#include=part.htm->",
           "<!--#include=part.htm",
           "<!--#include=>",
           "<!--#include=->",
           "<!--#includevirtual=docs/page.htm-->",
           "<!--#includefile=page.htm-->",
           "<!--#includefile=PAGE.HTM-->",
       }) {
    EXPECT_EQ(DocsPage(page), page);
  }
  EXPECT_EQ(DocsPage(std::string("<!--#include=part.htm\0-->", 25)), std::string("<!--#include=part.htm\0-->", 25));
}

TEST_F(FileInclusionTest, NothingIsIncludedWithoutItsSwitch) {
  site_.AllSwitchesOn();
  site_.record.SSIEnable(false);
  EXPECT_EQ(DocsPage("<!--#include=part.htm-->"), "<!--#include=part.htm-->");
}

TEST_F(FileInclusionTest, ADirectiveWithoutEndEndsItsKindOnly) {
  EXPECT_EQ(DocsPage("<!--#include=part.htm--> <!--#includefile=part.htm--> <!--#includefile=part.htm--"),
            "part docs part <!--#includefile=part.htm--");
  EXPECT_EQ(DocsPage("<!--#includefile=part.htm <!--#include=part.htm-->"), "<!--#includefile=part.htmpart")
      << "the end of the first is that of the second, and no such file is there; then comes the second's kind";
}

TEST_F(FileInclusionTest, NoNameLeavesTheRoot) {
  const Kit::TemporaryTree outside;
  const std::string secret = outside.Write("secret.htm", "SECRET");
  const std::string folder = outside.Path().filename().string();
  std::filesystem::create_symlink(secret, site_.tree.Path() / "docs/linked.htm");
  std::filesystem::create_symlink(outside.Path(), site_.tree.Path() / "docs/linked");
  std::filesystem::create_symlink("../../" + folder + "/secret.htm", site_.tree.Path() / "docs/climbing.htm");
  for (const std::string& name :
       {"../../" + folder + "/secret.htm", "..\\..\\" + folder + "\\secret.htm", "/../../" + folder + "/secret.htm",
        ".../...//" + folder + "/secret.htm", "...././/...././/" + folder + "/secret.htm", secret, "/" + secret,
        "C:" + secret, std::string("linked.htm"), std::string("docs/linked.htm"), std::string("linked/secret.htm"),
        std::string("docs/linked/secret.htm"), std::string("climbing.htm"), std::string("docs/climbing.htm"),
        "sub/../../../" + folder + "/secret.htm", "%2e%2e/%2e%2e/" + folder + "/secret.htm",
        "..%2f..%2f" + folder + "/secret.htm"}) {
    for (const char* directive : {"<!--#includefile=", "<!--#includevirtual=", "<!--#include="}) {
      const std::string tag = directive + name + "-->";
      EXPECT_EQ(DocsPage(tag), tag);
    }
  }
}

TEST_F(FileInclusionTest, NamesThatClimbAreReadBelowTheRoot) {
  site_.tree.Write("secret.htm", "the root's");
  EXPECT_EQ(DocsPage("<!--#include virtual=../../secret.htm-->"), "the root's");
  EXPECT_EQ(DocsPage("<!--#include virtual=\"/../../secret.htm\"-->"), "the root's");
  EXPECT_EQ(DocsPage("<!--#include=...././/secret.htm-->"), "<!--#include=...././/secret.htm-->")
      << "\"../secret.htm\" is left, which would climb";
  EXPECT_EQ(DocsPage("<!--#include=docs/...././/secret.htm-->"), "the root's") << "the same, but inside the root";
}

TEST_F(FileInclusionTest, LinksInsideTheRootAreFollowed) {
  std::filesystem::create_symlink("../part.htm", site_.tree.Path() / "docs/up.htm");
  std::filesystem::create_symlink("docs", site_.tree.Path() / "papers");
  EXPECT_EQ(DocsPage("<!--#include file=up.htm-->"), "part");
  EXPECT_EQ(DocsPage("<!--#include=papers/part.htm-->"), "docs part");
}

TEST_F(FileInclusionTest, NothingIsFoundWithoutARootOrADocument) {
  const std::string tag = "<!--#includevirtual=part.htm-->";
  const std::string path = site_.tree.Write("page.htm", tag);
  EXPECT_EQ(Kit::BodyText(RunNow(site_.record.ProcessFile(FoundEntry(), path, "200", false, "", {}, ""))), tag)
      << "a file that was not found below the root has no folder there";
  site_.record.Root(nullptr);
  EXPECT_EQ(site_.Page(tag), "part") << "the root is opened when it is needed";
  FoundEntry found = RootFolder(site_.tree.Text()).Find("page.htm");
  site_.record.VirtualPath("");
  EXPECT_EQ(Kit::BodyText(RunNow(site_.record.ProcessFile(std::move(found), path, "200", false, "", {}, ""))), tag);
}

TEST_F(FileInclusionTest, EqualDirectivesReadTheirFileOnce) {
  site_.record.HTMLFunctionsEnable(true);
  site_.host.answer = [this](const auto&) { return std::to_string(site_.host.calls.size()); };
  site_.tree.Write("counted.htm", "<%=FunctionCount()%>");
  EXPECT_EQ(site_.Page("<!--#include=counted.htm-->|<!--#include = \"counted.htm\"-->|<!--#INCLUDE=Counted.HTM-->"),
            "1|1|1");
  EXPECT_EQ(site_.Page("<!--#include=counted.htm-->|<!--#includevirtual=counted.htm-->"), "3|2")
      << "each kind reads for itself, includevirtual first";
}

TEST_F(FileInclusionTest, AFileOfAnotherTypeIsPutInAsItIs) {
  std::string bytes = "<%= SERVER_PORT %> \"<!--#include=part.htm-->\"";
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  site_.tree.Write("raw.txt", bytes);
  site_.tree.Write("raw", bytes);
  site_.tree.Write("empty.txt", "");
  EXPECT_EQ(site_.Page("[<!--#include=raw.txt-->]"), "[" + bytes + "]");
  EXPECT_EQ(site_.Page("[<!--#include=raw-->]"), "[" + bytes + "]");
  EXPECT_EQ(site_.Page("[<!--#include=empty.txt-->]"), "[]");
}

TEST_F(FileInclusionTest, AnIncludedPageIsAPageLikeTheOneAroundIt) {
  site_.record.HTMLFunctionsEnable(true);
  site_.record.ServerPort("8080");
  site_.request.QueryString = "a=1";
  site_.host.answer = [](const auto& call) { return call.name + "(" + call.params + ")"; };
  site_.tree.Write("docs/all.htm",
                   "<%= SERVER_PORT %> <%= Request.QueryString(\"a\") %> <%= FunctionF(\"x y\") %> "
                   "<!--#include file=part.htm--> <!--#exec cgi=a.exe--> <%=FunctionF(\"x y\") %>");
  EXPECT_EQ(site_.Page("<!--#include=docs/all.htm-->"), "8080 1 F(xy) docs part <!--#execcgi=a.exe--> F(xy)");
  ASSERT_EQ(site_.host.calls.size(), 1u);
  EXPECT_EQ(site_.host.calls[0].index, 7);
  site_.record.HTMLFunctionsEnable(false);
  site_.record.CGIEnable(true);
  site_.record.CGITimeout(30);
  site_.cgi.Write("a.exe", "");
  EXPECT_EQ(site_.Page("<!--#include=docs/all.htm-->"),
            "8080 1 <%=FunctionF(xy)%> docs part output <%=FunctionF(xy)%>");
  ASSERT_EQ(site_.programs.starts.size(), 1u);
  EXPECT_EQ(site_.programs.starts[0].waitMilliseconds, 30'000);
}

TEST_F(FileInclusionTest, WhatAnIncludeHasPutInIsNeverLookedAtAgain) {
  site_.AllSwitchesOn();
  const std::string hostile = "<%=FunctionF()%><!--#include=part.htm--><!--#execcgi=a.exe-->";
  site_.tree.Write("raw.txt", hostile);
  site_.tree.Write("echo.htm", "<!--#echovar=HTTP_REFERER-->");
  site_.request.Referer = hostile;
  EXPECT_EQ(site_.Page("<!--#includefile=raw.txt-->|<!--#includefile=echo.htm-->"), hostile + "|" + hostile);
  EXPECT_TRUE(site_.host.calls.empty());
  EXPECT_TRUE(site_.programs.starts.empty());
}

TEST_F(FileInclusionTest, AValueMayChooseTheFileButNotLeaveTheRoot) {
  const std::string page = "<!--#includefile=<%=Request.QueryString(p)%>-->";
  const auto chosen = [&](const std::string& name) {
    site_.request.QueryString = "p=" + name;
    return DocsPage(page);
  };
  EXPECT_EQ(chosen("part.htm"), "docs part");
  EXPECT_EQ(chosen(" part.htm "), "docs part") << "blanks around a name do not count";
  EXPECT_EQ(chosen("../part.htm"), "part");
  EXPECT_EQ(chosen("../../etc/passwd"), "<!--#includefile=../../etc/passwd-->");
  EXPECT_EQ(chosen("part.htm--><!--#includefile=part.htm"), "<!--#includefile=part.htm--><!--#includefile=part.htm-->");
}

TEST_F(FileInclusionTest, AProgramIsRunOnlyWithCGI) {
  const std::string path = site_.tree.Write("docs/test.exe", "program bytes");
  EXPECT_EQ(site_.Page("[<!--#include=docs/test.exe-->]"), "[]");
  EXPECT_TRUE(site_.programs.starts.empty());
  site_.record.CGIEnable(true);
  site_.programs.output = "<%=SERVER_PORT%>";
  EXPECT_EQ(site_.Page("[<!--#include=docs/TEST.EXE-->]"), "[<%=SERVER_PORT%>]");
  ASSERT_EQ(site_.programs.starts.size(), 1u);
  EXPECT_EQ(site_.programs.starts[0].file, path);
}

TEST_F(FileInclusionTest, PasswordFilesAreNotThere) {
  const std::string passwords = site_.tree.Write("docs/users.txt", "user:password");
  site_.tree.Write("docs/htaccess.txt", "user:password");
  std::filesystem::create_symlink("htaccess.txt", site_.tree.Path() / "docs/link.txt");
  std::filesystem::create_symlink("users.txt", site_.tree.Path() / "docs/others.txt");
  std::filesystem::create_hard_link(passwords, site_.tree.Path() / "docs/same.txt");
  site_.record.Secrets(std::make_shared<const SecretFiles>("htaccess.txt", e_AuthSource::GolbalFile, passwords));
  for (const char* name : {"htaccess.txt", "HTACCESS.TXT", "link.txt", "users.txt", "others.txt", "same.txt"}) {
    const std::string tag = "<!--#includefile=" + std::string(name) + "-->";
    EXPECT_EQ(DocsPage(tag), tag);
    const std::string fromRoot = "<!--#include=docs/" + std::string(name) + "-->";
    EXPECT_EQ(DocsPage(fromRoot), fromRoot);
  }
  EXPECT_EQ(DocsPage("<!--#includefile=part.htm-->"), "docs part");
}

TEST_F(FileInclusionTest, AChainThatClosesOnItselfEnds) {
  site_.tree.Write("a.htm", "a<!--#include=b.htm-->");
  site_.tree.Write("b.htm", "b<!--#include=a.htm-->");
  EXPECT_EQ(site_.Get("a.htm"), "ab<!--#include=a.htm-->");
  EXPECT_EQ(site_.Get("b.htm"), "ba<!--#include=b.htm-->");
  std::filesystem::create_symlink("a.htm", site_.tree.Path() / "c.htm");
  site_.tree.Write("b.htm", "b<!--#include=c.htm--><!--#include=docs/../A.HTM-->");
  EXPECT_EQ(site_.Get("a.htm"), "ab<!--#include=c.htm--><!--#include=docs/../A.HTM-->") << "by another name";
  EXPECT_EQ(site_.Page("<!--#include=part.htm--><!--#includevirtual=part.htm--><!--#includefile=part.htm-->"),
            "partpartpart")
      << "side by side is no chain";
}

TEST_F(FileInclusionTest, IncludesNestToTheirDepth) {
  for (int i = 0; i < 12; ++i) {
    site_.tree.Write("p" + std::to_string(i) + ".htm",
                     std::to_string(i) + ",<!--#include=p" + std::to_string(i + 1) + ".htm-->");
  }
  EXPECT_EQ(IncludeTrail::kMaxDepth, 8);
  EXPECT_EQ(site_.Get("p0.htm"), "0,1,2,3,4,5,6,7,8,<!--#include=p9.htm-->");
  site_.tree.Write("p8.htm", "<!--#include=part.htm-->");
  EXPECT_EQ(site_.Get("p0.htm"), "0,1,2,3,4,5,6,7,<!--#include=part.htm-->");
}

TEST_F(FileInclusionTest, WhatAPageTakesInIsBounded) {
  static_assert(IncludeRoom::kMaxBytes == 16 * kOneMebibyte);
  site_.tree.Write("whole.txt", std::string(16 * kOneMebibyte, 'w'));
  site_.tree.Write("over.txt", std::string(16 * kOneMebibyte + 1, 'o'));
  site_.tree.Write("half.txt", std::string(8 * kOneMebibyte, 'h'));
  site_.tree.Write("byte.txt", "b");
  EXPECT_EQ(site_.Page("<!--#include=whole.txt-->").size(), 16 * kOneMebibyte);
  EXPECT_EQ(site_.Page("<!--#include=over.txt-->"), "<!--#include=over.txt-->");
  const std::string full = site_.Page("<!--#include=half.txt--><!--#include=half.txt--><!--#include=byte.txt-->");
  EXPECT_EQ(full.size(), 16 * kOneMebibyte + 24);
  EXPECT_TRUE(full.ends_with("h<!--#include=byte.txt-->"));
  const std::string later = site_.Page("<!--#include=whole.txt-->[<!--#include=part.htm-->]");
  EXPECT_TRUE(later.ends_with("w[<!--#include=part.htm-->]"));
  EXPECT_EQ(site_.Page("<!--#include=part.htm-->"), "part") << "each requested page has its own room";
}

TEST_F(FileInclusionTest, WhatIncludesTakeInCountsForThePageAroundThem) {
  site_.tree.Write("half.txt", std::string(8 * kOneMebibyte, 'h'));
  site_.tree.Write("outer.htm", "o<!--#include=half.txt-->");
  const std::string both = site_.Page("<!--#include=outer.htm--><!--#includefile=outer.htm-->");
  EXPECT_EQ(both.size(), 1 + 24 + 1 + 8 * kOneMebibyte);
  EXPECT_TRUE(both.starts_with("o<!--#include=half.txt-->oh")) << "includefile comes first and leaves too little";
}

TEST_F(FileInclusionTest, APageIsCountedWhileItTakesInItsOwn) {
  site_.tree.Write("half.txt", std::string(8 * kOneMebibyte, 'h'));
  const std::string large = std::string(9 * kOneMebibyte, 'l') + "<!--#include=half.txt-->";
  site_.tree.Write("large.htm", large);
  EXPECT_TRUE(site_.Page("[<!--#include=large.htm-->]") == "[" + large + "]");
}

TEST_F(FileInclusionTest, OnlyPagesAreProcessedInside) {
  site_.record.ServerPort("8080");
  const std::string tags = "<!--#include file = \"part.htm\" --><%= SERVER_PORT %>";
  const struct {
    const char *name, *result;
  } cases[] = {
      {"tags.htm", "part8080"}, {"tags.txt", tags.c_str()}, {"tags", tags.c_str()}, {"docs/a.html", "docs part8080"}};
  for (const auto& c : cases) {
    site_.tree.Write(c.name, tags);
    EXPECT_EQ(site_.Page("[<!--#include=" + std::string(c.name) + "-->]"), "[" + std::string(c.result) + "]") << c.name;
  }
}

TEST_F(FileInclusionTest, AnIncludeIsWhatItsFileIsNow) {
  for (const char* const text : {"one", "<%=SERVER_PROTOCOL%>", "", "another one"}) {
    const std::string result = *text == '<' ? "HTTP/1.0" : text;
    site_.tree.Write("now.htm", text);
    EXPECT_EQ(site_.Page("[<!--#include=now.htm-->]"), "[" + result + "]");
  }
}

TEST_F(FileInclusionTest, AnIncludeThatGrowsPastTheRoomStays) {
  site_.request.Referer = std::string(kOneMebibyte, 'r');
  std::string growing;
  for (int i = 0; i < 17; ++i) growing += "<%=HTTP_REFERER%>";
  site_.tree.Write("growing.htm", growing);
  EXPECT_EQ(site_.Page("[<!--#include=growing.htm-->]"), "[<!--#include=growing.htm-->]");
}

TEST_F(FileInclusionTest, AnIncludeNamedTwentyThousandTimesIsNotCopiedForEach) {
  site_.tree.Write("large.txt", std::string(kOneMebibyte, 'l'));
  std::string page;
  for (int i = 0; i < 20'000; ++i) page += "<!--#include=large.txt-->";
  const std::string result = site_.Page(page);
  EXPECT_EQ(CountOf(result, "<!--#include=large.txt-->"), 20'000u - 16);
  EXPECT_EQ(result.size(), 16 * kOneMebibyte + (20'000 - 16) * 25);
}

TEST_F(FileInclusionTest, NoMoreNamesAreLookedForThanThePageMayHave) {
  site_.tree.Write("f.txt", "f");
  std::string page;
  for (int i = 0; i < IncludeRoom::kMaxNames + 3; ++i) {
    std::string name;  // another one each time for the same file
    for (int bit = 1; bit <= IncludeRoom::kMaxNames; bit *= 2) name += (i & bit) != 0 ? "./" : "/";
    page += "<!--#includefile=" + name + "f.txt-->\n";
  }
  const std::string result = site_.Page(page);
  EXPECT_EQ(CountOf(result, "f\n"), static_cast<std::size_t>(IncludeRoom::kMaxNames));
  EXPECT_EQ(CountOf(result, "f.txt-->\n"), 3u);
}

TEST_F(FileInclusionTest, NamesThatAreNotThereCountAsWell) {
  std::string page;
  for (int i = 1; i < IncludeRoom::kMaxMissing; ++i) page += "<!--#include=missing" + std::to_string(i) + "-->";
  EXPECT_TRUE(site_.Page("<!--#includefile=part.htm-->" + page + "<!--#include=part.htm-->") == "part" + page + "part");
  page += "<!--#include=missing0-->";
  EXPECT_TRUE(site_.Page("<!--#includefile=part.htm-->" + page + "<!--#include=part.htm-->") ==
              "part" + page + "<!--#include=part.htm-->");
}

TEST_F(FileInclusionTest, PagesThatFanOutAreBounded) {
  // Eight levels of six different includes each would be more than a million files.
  for (int level = 0; level < 9; ++level) {
    std::string page = "@";
    for (const char* name : {"", "/", "./", "//", ".//", "/./"}) {
      page += "<!--#includefile=" + std::string(name) + "l" + std::to_string(level + 1) + ".htm-->";
    }
    site_.tree.Write("l" + std::to_string(level) + ".htm", page);
  }
  EXPECT_EQ(CountOf(site_.Get("l0.htm"), "@"), 1u + IncludeRoom::kMaxNames);
}

}  // namespace
}  // namespace TesselServer
