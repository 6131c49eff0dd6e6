#include <gtest/gtest.h>

#include <stdexcept>

#include "http/TagReplacement.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

using Call = Kit::FunctionHost::Call;

class HTMLFunctionsTest : public testing::Test {
 protected:
  HTMLFunctionsTest() {
    site_.record.HTMLFunctionsEnable(true);
    site_.host.answer = [](const Call& call) { return "{" + call.name + ":" + call.params + "}"; };
  }

  Kit::PageSite site_;
};

TEST_F(HTMLFunctionsTest, TheHostGetsNameAndArguments) {
  const struct {
    const char *page, *name, *params, *why;
  } cases[] = {
      {"<%=FunctionVersion()%>", "Version", "", "no arguments"},
      {"<%= Function Version() %>", "Version", "", "blanks"},
      {"<%=functionVersion()%>", "Version", "", "the word in any case"},
      {"<%=FUNCTIONversion()%>", "version", "", "a name as it is written"},
      {"<%=FunctionF(a=1&b=2)%>", "F", "a=1&b=2", "arguments"},
      {"<%= Function F( \"a b\", 'c' ) %>", "F", "ab,'c'", "arguments lose blanks and double quotes"},
      {"<%=FunctionF%>", "F", "", "no parentheses"},
      {"<%=FunctionF(a%>", "F", "a", "parentheses that stay open"},
      {"<%=FunctionF(%>", "F", "", "parentheses that stay open"},
      {"<%=FunctionFa)%>", "Fa)", "", "none that open"},
      {"<%=FunctionF(a(b)c)%>", "F", "a(b)c", "inner parentheses"},
      {"<%=FunctionF(a)b%>", "F", "a", "what stands behind the last is lost"},
      {"<%=FunctionF(a)b(c)%>", "F", "a)b(c", "from the first to the last"},
      {"<%=Function()%>", "", "", "no name"},
      {"<%=Function%>", "", "", "no name"},
      {"<%=Functional%>", "al", "", "the word is no word"},
      {"<%=FunctionF(%)%>", "F", "%", "a percent sign"},
      {"<%=FunctionF()%%>", "F", "", "two"},
      {"<%=FunctionF(\t)%>", "F", "\t", "a tab stays"},
      {"<%=Function\tF()%>", "\tF", "", "a tab stays"},
      {"<%=FunctionF\xC3\xA4(\xFF)%>", "F\xC3\xA4", "\xFF", "bytes"},
  };
  for (const auto& c : cases) {
    site_.host.calls.clear();
    EXPECT_EQ(site_.Page("[" + std::string(c.page) + "]"),
              "[{" + std::string(c.name) + ":" + std::string(c.params) + "}]")
        << c.page << ": " << c.why;
    EXPECT_EQ(site_.host.calls, (std::vector<Call>{{7, c.name, c.params}})) << c.page << ": " << c.why;
  }
}

TEST_F(HTMLFunctionsTest, WhatIsNoFunctionTagStays) {
  for (const char* page :
       {"<%=SERVER_PORT%>", "<%=CreateObject(public.a)%>", "<%=createobject%>", "<%FunctionF()%>", "<%=FunctionF()>",
        "<%=FunctionF()", "<%=FunctionF()%", "<%=Func%>", "<%=%>", "<%=>", "<%=FunctionF(a>b)%>", "<!--#FunctionF()-->",
        "=FunctionF()%>", "<%=xFunctionF()%>", "<%=Request.QueryString(a)%>"}) {
    EXPECT_EQ(site_.Page(page), page);
  }
  EXPECT_TRUE(site_.host.calls.empty());
}

TEST_F(HTMLFunctionsTest, WithoutTheSwitchTagsStayAsNormalised) {
  site_.AllSwitchesOn();
  site_.record.HTMLFunctionsEnable(false);
  EXPECT_EQ(site_.Page("<%= Function F( \"a b\" ) %>"), "<%=FunctionF(ab)%>");
  EXPECT_TRUE(site_.host.calls.empty());
}

TEST_F(HTMLFunctionsTest, EqualTagsAreAskedForOnceAndAllReplaced) {
  site_.host.answer = [this](const Call&) { return std::to_string(site_.host.calls.size()); };
  EXPECT_EQ(site_.Page("<%=FunctionF(a)%>|<%= Function F( \"a\" ) %>|<%=FUNCTIONf(A)%>|<%=FunctionF(b)%>|"
                       "<%=FunctionF(a)%>"),
            "1|1|1|2|1");
  EXPECT_EQ(site_.host.calls.size(), 2u);
  site_.Page("<%=FunctionF(a)%>");
  EXPECT_EQ(site_.host.calls.size(), 3u) << "the next page asks again";
}

TEST_F(HTMLFunctionsTest, WithoutAControlNothingIsTheAnswer) {
  site_.record.ParentControl(nullptr);
  EXPECT_EQ(site_.Page("[<%=FunctionF()%>]"), "[]");
}

TEST_F(HTMLFunctionsTest, AHostThatDoesNotAnswerLeavesNothingAndNoEarlierAnswer) {
  site_.host.answer = [](const Call& call) -> std::optional<std::string> {
    if (call.name == "Silent") return std::nullopt;
    return "answer";
  };
  EXPECT_EQ(site_.Page("<%=FunctionSilent()%>|<%=FunctionF()%>|<%=FunctionSilent(1)%>|<%=FunctionG()%>"),
            "|answer||answer");
}

TEST_F(HTMLFunctionsTest, AnswersAreNeverLookedAtAgain) {
  site_.AllSwitchesOn();
  for (const std::string answer :
       {"<%=FunctionF()%>", "<%=FunctionG()%>", "<%=SERVER_PORT%>", "<!--#execcgi=a.exe-->",
        "<!--#includefile=page.htm-->", "<%", "%>", "<%=Function", "[<%= Function F( \"a\" ) %>]"}) {
    site_.host.calls.clear();
    site_.host.answer = [&](const Call&) { return answer; };
    EXPECT_EQ(site_.Page("<%=FunctionF()%>G()%><%=FunctionF()%>"), answer + "G()%>" + answer);
    EXPECT_EQ(site_.host.calls.size(), 1u) << answer;
  }
  EXPECT_TRUE(site_.programs.starts.empty());
}

TEST_F(HTMLFunctionsTest, ATagThatWasPutTogetherByAValueIsNone) {
  site_.AllSwitchesOn();
  site_.request.QueryString = "q=FunctionF()&e=%";
  site_.request.Referer = "FunctionF()";
  EXPECT_EQ(site_.Page("<%=<%=Request.QueryString(q)%>%>"), "") << "the name of a variable that is not there";
  EXPECT_EQ(site_.Page("<%=FunctionG()%><%=<%=Request.QueryString(q)%>%>"), "{G:}<%=FunctionF()%>")
      << "a plain tag behind a function tag stays";
  EXPECT_EQ(site_.Page("<%=FunctionG(<%=Request.QueryString(e)%>>"), "<%=FunctionG(%>")
      << "the end is not the author's";
  EXPECT_EQ(site_.Page("<%=<!--#echovar=HTTP_REFERER-->%>"), "") << "the name of a variable that is not there";
  for (const Call& call : site_.host.calls) EXPECT_EQ(call.name, "G");
}

TEST_F(HTMLFunctionsTest, AnOpenerInsideATagIsAPartOfItsContent) {
  EXPECT_EQ(site_.Page("<%=<%=FunctionF()%>|<%=FunctionF()%>"), "<%=<%=FunctionF()%>|{F:}");
  EXPECT_EQ(site_.Page("<%=FunctionF(<%=FunctionG()%>"), "{F:<%=FunctionG(}");
  site_.record.SSIEnable(true);
  EXPECT_EQ(site_.Page("<%=<%=FunctionF()%>|<%=FunctionF()%>"), "|{F:}") << "the first is a variable that is not there";
}

TEST_F(HTMLFunctionsTest, AValueMayBeAnArgument) {
  site_.AllSwitchesOn();
  site_.request.QueryString = "q=a) %><%=FunctionG(";
  EXPECT_EQ(site_.Page("<%=FunctionF(<%=Request.QueryString(q)%>)%>"), "{F:a) %><%=FunctionG(}");
  EXPECT_EQ(site_.host.calls, (std::vector<Call>{{7, "F", "a) %><%=FunctionG("}}));
}

TEST_F(HTMLFunctionsTest, PlainTagsAfterAFunctionTagStay) {
  site_.record.SSIEnable(true);
  site_.record.ServerPort("8080");
  EXPECT_EQ(site_.Page("<%=SERVER_PORT%><%=FunctionF()%><%=SERVER_PORT%>"), "8080{F:}<%=SERVER_PORT%>");
  EXPECT_EQ(site_.Page("<%=CreateObject%><%=FunctionF()%><%=CreateObject%>"), "{F:}<%=CreateObject%>");
  site_.record.SSIEnable(false);
  EXPECT_EQ(site_.Page("<%=SERVER_PORT%><%=FunctionF()%>"), "<%=SERVER_PORT%>{F:}");
}

TEST_F(HTMLFunctionsTest, AFailingHandlerKeepsWhatWasDone) {
  site_.host.answer = [](const Call& call) -> std::optional<std::string> {
    if (call.name == "Bad") throw std::runtime_error("a host's error");
    return "answer";
  };
  EXPECT_EQ(site_.Page("1<%=FunctionF()%>2<%=FunctionBad()%>3<%=FunctionF()%>4"),
            "1answer2<%=FunctionBad()%>3<%=FunctionF()%>4");
}

TEST_F(HTMLFunctionsTest, ALongAnswerIsPutInWhereverThereIsRoom) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  site_.host.answer = [](const Call&) { return std::string(kMebibyte, 'a'); };
  std::string page;
  for (int i = 0; i < 66; ++i) page += "<%=FunctionF()%>";
  const std::string result = site_.Page(page);
  EXPECT_EQ(result.size(), 64 * kMebibyte + 2 * 16);
  EXPECT_TRUE(result.ends_with("a<%=FunctionF()%><%=FunctionF()%>"));
  EXPECT_EQ(site_.host.calls.size(), 1u);
}

TEST_F(HTMLFunctionsTest, TwentyThousandTagsAreAnswered) {
  std::string page, expected;
  for (int i = 0; i < 20'000; ++i) {
    const std::string number = std::to_string(i);
    page += "<%=FunctionF(" + number + ")%><%=FunctionSame()%>";
    expected += "{F:" + number + "}{Same:}";
  }
  EXPECT_EQ(site_.Page(page), expected);
  EXPECT_EQ(site_.host.calls.size(), 20'001u);
}

TEST_F(HTMLFunctionsTest, ATagOfMoreThan64KiBStays) {
  const std::string most(TagReplacement::kMaxContentBytes - std::string("FunctionF()%").size(), 'a');
  EXPECT_EQ(site_.Page("<%=FunctionF(" + most + ")%>"), "{F:" + most + "}");
  const std::string longer = "<%=FunctionF(" + most + "a)%>";
  EXPECT_EQ(site_.Page(longer + "<%=FunctionF()%>"), longer + "{F:}");
}

TEST_F(HTMLFunctionsTest, TheRecordsOwnMemberDoesTheSame) {
  Page page("<%=FunctionF(a)%>");
  RunNow(site_.record.HTMLFunctions(page));
  EXPECT_EQ(page.Text(), "{F:a}");
}

}  // namespace
}  // namespace TesselServer
