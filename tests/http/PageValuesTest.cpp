// Pages of one tag each, with every kind of value put in their places, and cut at every point.
#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "http/TagNormaliser.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

// All that a hostile client, file, program or host could say.
const std::string kHostile =
    "<!--#execcgi=a.exe--><!--#exec cmd=\"a.bat?x\" --><!--#includefile=secret.htm--><!--#include=secret.htm-->"
    "<!--#includevirtual=\"secret.htm\" --><!--#echovar=SERVER_PORT--><%=SERVER_PORT%>"
    "<%= Request.ServerVariables(\"SERVER_PORT\") %><%=Request.QueryString(a)%><%= Function F( \"x\" ) %>"
    "<%=FunctionF()%><%=CreateObject(public.x)%>-->%>)%>\"";

// Some file systems flush a file that is cut short, so the old one is removed.
void GiveFile(Kit::PageSite& site, const std::string& value) {
  std::filesystem::remove(site.tree.Path() / "value.txt");
  site.tree.Write("value.txt", value);
}

void GiveAnswer(Kit::PageSite& site, const std::string& value) {
  site.host.answer = [value](const auto&) { return value; };
}

void GiveOutput(Kit::PageSite& site, const std::string& value) { site.programs.output = value; }

// A tag, and where its value comes from.
struct TagCase {
  const char* tag;
  void (*give)(Kit::PageSite& site, const std::string& value);
};

const TagCase kTags[] = {
    {"<!--#echo var=\"HTTP_REFERER\" -->", [](auto& site, const auto& value) { site.request.Referer = value; }},
    {"<%= Request.ServerVariables(\"HTTP_USER_AGENT\") %>",
     [](auto& site, const auto& value) { site.request.UserAgent = value; }},
    {"<%= Request.QueryString(\"v\") %>",
     [](auto& site, const auto& value) { site.request.QueryString = "v=" + value; }},
    {"<!--#echo var=\"QUERY_STRING\" -->", [](auto& site, const auto& value) { site.request.QueryString = value; }},
    {"<%= QUERY_STRING %>", [](auto& site, const auto& value) { site.request.QueryString = value; }},
    {"<!--#include file=\"value.txt\" -->", GiveFile},
    {"<!--#include virtual=\"/value.txt\" -->", GiveFile},
    {"<!--#include=\"value.txt\" -->", GiveFile},
    {"<!--#include file=\"echoing.htm\" -->", [](auto& site, const auto& value) { site.request.Referer = value; }},
    {"<!--#include file=\"asking.htm\" -->", GiveAnswer},
    {"<%= Function Value( \"1\" ) %>", GiveAnswer},
    {"<!--#exec cgi=\"value.exe\" -->", GiveOutput},
    {"<!--#exec cmd=\"value.exe\" -->", GiveOutput},
};

class PageValuesTest : public testing::Test {
 protected:
  PageValuesTest() {
    site_.AllSwitchesOn();
    site_.tree.Write("secret.htm", "SECRET");
    site_.tree.Write("echoing.htm", "<%= HTTP_REFERER %>");
    site_.tree.Write("asking.htm", "<%= Function Value() %>");
    site_.tree.Write("value.exe", "");
    site_.cgi.Write("value.exe", "");
  }

  // How often the host or a program has been asked since the last time.
  std::size_t Asked() {
    const std::size_t asked = site_.host.calls.size() + site_.programs.starts.size();
    site_.host.calls.clear();
    site_.programs.starts.clear();
    return asked;
  }

  Kit::PageSite site_;
};

TEST_F(PageValuesTest, EveryValueArrivesAsItIs) {
  const std::string values[] = {
      "", "v", std::string("\0\x01\x80\xFF\n", 5), kHostile, std::string(1024 * 1024, 'v'), [] {
        std::string many;
        while (many.size() < 1024 * 1024) many += kHostile;
        return many;
      }()};
  for (const TagCase& c : kTags) {
    for (const std::string& value : values) {
      // An item of the query ends at its first "&", and CR LF in a program's output would become "<br>": neither is in
      // these values.
      c.give(site_, value);
      EXPECT_TRUE(site_.Page("[" + std::string(c.tag) + "|" + c.tag + "]") == "[" + value + "|" + value + "]")
          << c.tag << ", a value of " << value.size() << " bytes";
      EXPECT_LE(Asked(), 1u) << c.tag;
    }
  }
}

TEST_F(PageValuesTest, AHostileValueCutAnywhereStaysText) {
  for (const TagCase& c : kTags) {
    site_.tree.Write("page.htm", "<" + std::string(c.tag) + "%=FunctionG()%>--><%" + c.tag + "=SERVER_PORT%>");
    for (std::size_t cut = 0; cut <= kHostile.size(); cut += 7) {
      for (const std::string& value : {kHostile.substr(0, cut), kHostile.substr(cut)}) {
        c.give(site_, value);
        ASSERT_EQ(site_.Get("page.htm"), "<" + value + "%=FunctionG()%>--><%" + value + "=SERVER_PORT%>")
            << c.tag << ", cut at " << cut;
        ASSERT_LE(Asked(), 1u) << c.tag << ", cut at " << cut;
      }
    }
  }
}

TEST_F(PageValuesTest, APageCutInsideItsTagStaysText) {
  for (const TagCase& c : kTags) {
    c.give(site_, "value");
    const std::string tag = c.tag;
    for (std::size_t cut = 1; cut < tag.size(); ++cut) {
      EXPECT_EQ(site_.Page("a" + tag.substr(0, cut)), "a" + tag.substr(0, cut));
      EXPECT_EQ(site_.Page(tag.substr(cut) + "z"), tag.substr(cut) + "z");
    }
    EXPECT_EQ(Asked(), 0u) << tag;
    EXPECT_EQ(site_.Page("a" + tag + "z"), "avaluez");
    Asked();
  }
}

TEST_F(PageValuesTest, TagsCutByAValueAreNone) {
  for (const TagCase& c : kTags) {
    c.give(site_, "value");
    const std::string tag = NormaliseTags(c.tag);
    const std::string nothing = tag.starts_with("<%") ? "<!--#echovar=COUNTER-->" : "<%=COUNTER%>";
    for (const std::size_t cut : {std::size_t{1}, std::size_t{2}, tag.size() - 1}) {
      EXPECT_EQ(site_.Page(tag.substr(0, cut) + nothing + tag.substr(cut)), tag) << "cut at " << cut;
    }
    EXPECT_EQ(Asked(), 0u) << tag;
  }
}

TEST_F(PageValuesTest, ClientsSmuggleNothingIn) {
  const std::string echoes =
      "<!--#echo var=\"QUERY_STRING\" -->|<%= HTTP_REFERER %>|<%= Request.ServerVariables(\"HTTP_USER_AGENT\") %>|"
      "<%= Request.QueryString(\"q\") %>";
  site_.tree.Write("echoes.htm", echoes);
  site_.cgi.Write("a.exe", "");
  site_.tree.Write("a.exe", "");
  for (const std::string tag :
       {"<!--#execcgi=a.exe-->", "<!--#exec cmd=\"a.exe\" -->", "<!--#includefile=secret.htm-->",
        "<!--#include virtual=\"secret.htm\" -->", "<!--#include=secret.htm-->", "<%=FunctionF()%>",
        "<%= Function F() %>", "<!--#echovar=SERVER_SOFTWARE-->", "<%=SERVER_SOFTWARE%>", "%><%=FunctionF()%>",
        "--><!--#execcgi=a.exe-->"}) {
    site_.request.QueryString = "q=" + tag;
    site_.request.Referer = tag;
    site_.request.UserAgent = tag;
    const std::string shown = "q=" + tag + "|" + tag + "|" + tag + "|" + tag;
    EXPECT_EQ(site_.Page(echoes), shown) << "alone";
    EXPECT_EQ(site_.Page("<!--#include file=\"echoes.htm\" -->"), shown) << "inside an include";
    EXPECT_EQ(site_.Page("<!--#include=echoes.htm--><%=FunctionNone()%>" + echoes).substr(0, shown.size()), shown)
        << "beside other tags";
    EXPECT_EQ(Asked(), 1u) << "the page's own function";
  }
}

TEST_F(PageValuesTest, EachSwitchObeysItsOwnTagsOnly) {
  const std::string page =
      "<!--#echovar=SERVER_PROTOCOL-->|<!--#include=part.txt-->|<!--#execcgi=a.exe-->|<%=FunctionF()%>";
  site_.tree.Write("part.txt", "part");
  site_.cgi.Write("a.exe", "");
  site_.host.answer = [](const auto&) { return "answer"; };
  for (int switches = 0; switches < 8; ++switches) {
    site_.record.SSIEnable((switches & 1) != 0);
    site_.record.CGIEnable((switches & 2) != 0);
    site_.record.HTMLFunctionsEnable((switches & 4) != 0);
    EXPECT_EQ(site_.Page(page),
              std::string((switches & 1) != 0 ? "HTTP/1.0|part|"
                                              : "<!--#echovar=SERVER_PROTOCOL-->|<!--#include=part.txt-->|") +
                  ((switches & 2) != 0 ? "output|" : "<!--#execcgi=a.exe-->|") +
                  ((switches & 4) != 0 ? "answer" : "<%=FunctionF()%>"));
  }
}

TEST_F(PageValuesTest, AFailureInOneKindLeavesTheOthers) {
  site_.tree.Write("part.txt", "part");
  site_.host.answer = [](const auto& call) -> std::optional<std::string> {
    if (call.name == "Bad") throw std::runtime_error("a host's error");
    return "answer";
  };
  site_.tree.Write("bad.htm", "<%=SERVER_PROTOCOL%><%=FunctionBad()%>");
  EXPECT_EQ(site_.Page("<!--#include=bad.htm-->|<!--#include=part.txt-->|<%=FunctionF()%>"),
            "HTTP/1.0<%=FunctionBad()%>|part|answer");
}

TEST_F(PageValuesTest, ALargePageIsProcessedToItsLastByte) {
  std::string text(cls_HTTP::kMaxPageBytes, ' ');
  const std::string tag = "<!--#echo var=\"SERVER_PROTOCOL\" -->";
  text.replace(0, tag.size(), tag);
  text.replace(text.size() - tag.size(), tag.size(), tag);
  const std::string result = site_.Page(text);
  EXPECT_EQ(result.size(), text.size() - 2 * (tag.size() - 8));
  EXPECT_TRUE(result.starts_with("HTTP/1.0 ") && result.ends_with(" HTTP/1.0"));
  EXPECT_TRUE(site_.Page(text + " ") == text + " ") << "one byte more goes out as it is";
}

}  // namespace
}  // namespace TesselServer
