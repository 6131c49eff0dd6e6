#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "http/ServerVariables.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

class VariableEchoTest : public testing::Test {
 protected:
  VariableEchoTest() {
    site_.record.SSIEnable(true);
    site_.record.ServerName("www.example.test");
    site_.record.ServerPort("8080");
    site_.request.RemoteAddr = "192.0.2.7";
    site_.request.QueryString = "a=1&b=two%20words&c";
  }

  // What the query tag for `name` becomes with that query.
  std::string Item(std::string_view query, std::string_view name) {
    site_.request.QueryString = query;
    return site_.Page("[<%=Request.QueryString(" + std::string(name) + ")%>]");
  }

  Kit::PageSite site_;
};

TEST_F(VariableEchoTest, EachKindShowsItsValue) {
  const struct {
    const char *page, *result, *why;
  } cases[] = {
      {"<!--#echo var=\"SERVER_PORT\" -->", "8080", "a comment tag"},
      {"<%= Request.ServerVariables(\"SERVER_PORT\") %>", "8080", "a script tag"},
      {"<%= Request.QueryString(\"a\") %>", "1", "an item of the query"},
      {"<%= SERVER_PORT %>", "8080", "a plain tag"},
      {"<!--#echo var=SERVER_PORT--><%=SERVER_PORT%>.<%=SERVER_PORT%>", "80808080.8080", "several"},
      {"<!--#ECHO VAR=SERVER_PORT-->", "8080", "an opener in any case"},
      {"<%=REQUEST.servervariables(SERVER_PORT)%>", "8080", "an opener in any case"},
      {"<!--#echo var=server_port-->", "", "a name in lower case is unknown"},
      {"<%=Request.ServerVariables(server_port)%>", "", "a name in lower case is unknown"},
      {"<%=server_port%>", "", "a name in lower case is unknown"},
      {"<!--#echo var=NO_SUCH_NAME-->|<%=NO_SUCH_NAME%>", "|", "unknown"},
      {"<!--#echo var=-->|<%=%>|<%=Request.ServerVariables()%>|<%=Request.QueryString()%>", "|||", "no name"},
      {"<!--#echo var=SERVER_PORT>", "<!--#echovar=SERVER_PORT>", "not its end"},
      {"<!--#echo var=SERVER_PORT", "<!--#echo var=SERVER_PORT", "no end"},
      {"<%=SERVER_PORT>", "<%=SERVER_PORT>", "not its end"},
      {"<%=SERVER_PORT", "<%=SERVER_PORT", "no end"},
      {"<% =SERVER_PORT%>", "8080", "a blank in the opener is taken out"},
      {"<%SERVER_PORT%>", "<%SERVER_PORT%>", "no echo"},
      {"<!--#echo var=SERVER_PORT> <!--#echo var=SERVER_NAME-->", "", "its end is sought beyond a \">\""},
      {"<!--#printenv-->", "<!--#printenv-->", "another directive"},
      {"<%=\tSERVER_PORT%>", "", "a tab belongs to the name"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(site_.Page(c.page), c.result) << c.page << ": " << c.why;
  }
}

TEST_F(VariableEchoTest, NothingIsShownWithoutItsSwitch) {
  site_.AllSwitchesOn();
  site_.record.SSIEnable(false);
  const std::string page = "<!--#echovar=SERVER_PORT--><%=SERVER_PORT%><%=Request.QueryString(a)%>";
  EXPECT_EQ(site_.Page(page), page);
}

TEST_F(VariableEchoTest, AllVariablesCanBeShown) {
  std::string page, expected;
  site_.record.SetRequestInfo(site_.request);
  for (const std::string_view name : ServerVariableNames()) {
    page.append("<!--#echo var=").append(name).append("-->\n");
    expected.append(site_.record.ServerVariable(name)).append("\n");
  }
  EXPECT_EQ(site_.Page(page), expected);
}

TEST_F(VariableEchoTest, ItemsAreSearchedAnywhereInTheQuery) {
  const struct {
    const char *query, *name, *value, *why;
  } cases[] = {
      {"a=1&b=2", "a", "1", "the first"},
      {"a=1&b=2", "b", "2", "the last"},
      {"a=1&b=2", "c", "", "not there"},
      {"", "a", "", "no query"},
      {"A=1", "a", "1", "any case"},
      {"name=1", "am", "=1", "inside a name: one character is passed over"},
      {"x=able&a=1", "a", "le", "inside a value"},
      {"x=a", "a", "", "at the very end"},
      {"a", "a", "", "nothing but the name"},
      {"a=", "a", "", "no value"},
      {"a&b=2", "a", "b=2", "no \"=\": the separator is passed over"},
      {"a=1=2", "a", "1=2", "an \"=\" in the value"},
      {"a=b%26c+d", "a", "b%26c+d", "nothing is decoded"},
      {"a=1&a=2", "a", "1", "the first of two"},
      {"a=1;b=2", "a", "1;b=2", "other separators are none"},
      {"a==1", "a=", "1", "a name may hold anything"},
      {"a=&b=2", "a", "", "an empty value"},
      {"&a=1", "&a", "1", "a separator in the name"},
      {"a=1", "a=1", "", "longer than what follows"},
      {"a=1", "a=12", "", "longer than the query"},
      {"\xC3\xA4=\x80\xFF", "\xC3\xA4", "\x80\xFF", "bytes"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Item(c.query, c.name), "[" + std::string(c.value) + "]") << c.query << ", " << c.name << ": " << c.why;
  }
  EXPECT_EQ(Item("a=1", ""), "[]") << "no name";
}

TEST_F(VariableEchoTest, AQueryTagInAnotherCaseIsAPlainTag) {
  EXPECT_EQ(site_.Page("<%=request.querystring(a)%>|<%=Request.QueryString(a)%>"), "|1");
  site_.record.HTMLFunctionsEnable(true);
  EXPECT_EQ(site_.Page("<%=FunctionF()%><%=request.querystring(a)%>"), "<%=request.querystring(a)%>")
      << "a plain tag behind a function tag stays";
}

TEST_F(VariableEchoTest, PlainTagsAfterTheFirstFunctionTagStay) {
  EXPECT_EQ(site_.Page("<%=SERVER_PORT%><%=FunctionF()%><%=SERVER_PORT%>"), "8080<%=FunctionF()%><%=SERVER_PORT%>");
  EXPECT_EQ(site_.Page("<%=fUNCTION f%><%=SERVER_PORT%>"), "<%=fUNCTIONf%><%=SERVER_PORT%>") << "in any case";
  EXPECT_EQ(site_.Page("<%=Functio%><%=SERVER_PORT%>"), "8080") << "no function";
  EXPECT_EQ(site_.Page("<%=CreateObject(public.a)%><%=SERVER_PORT%>"), "8080") << "no variable of that name";
  EXPECT_EQ(site_.Page("<%=FunctionF()%><!--#echovar=SERVER_PORT--><%=Request.ServerVariables(SERVER_PORT)%>"
                       "<%=Request.QueryString(a)%>"),
            "<%=FunctionF()%>808080801")
      << "the other kinds go on";
}

TEST_F(VariableEchoTest, KindsFollowEachOtherOverTheWholePage) {
  EXPECT_EQ(site_.Page("<%=<!--#echovar=NO_SUCH_NAME-->SERVER_PORT%>"), "8080")
      << "the first kind's value is part of a plain tag's name";
  EXPECT_EQ(site_.Page("<!--#echovar=<%=Request.QueryString(a)%>-->"), "") << "a later kind is no value yet";
  site_.request.QueryString = "name=SERVER_PORT";
  EXPECT_EQ(site_.Page("<%=<%=Request.QueryString(name)%>%>"), "8080") << "a name out of the query";
  EXPECT_EQ(site_.Page("<%=Request.ServerVariables(<%=Request.QueryString(name)%>)%>"), ")%>")
      << "the second kind takes the first end";
}

TEST_F(VariableEchoTest, ValuesAreNeverLookedAtAgain) {
  site_.AllSwitchesOn();
  for (const std::string value :
       {"<%=SERVER_PORT%>", "<!--#echovar=SERVER_PORT-->", "<%=FunctionF()%>", "<!--#execcgi=a.exe-->",
        "<!--#includefile=page.htm-->", "<%=Request.QueryString(a)%>", "<% = SERVER_PORT %>", "-->", "%>", ")%>"}) {
    site_.request.Referer = value;
    site_.request.UserAgent = value;
    site_.request.QueryString = "a=" + value;
    EXPECT_EQ(site_.Page("[<!--#echovar=HTTP_REFERER-->|<%=Request.ServerVariables(HTTP_USER_AGENT)%>|"
                         "<%=Request.QueryString(a)%>|<%=HTTP_REFERER%>]"),
              "[" + value + "|" + value + "|" + value + "|" + value + "]");
  }
  EXPECT_TRUE(site_.host.calls.empty());
  EXPECT_TRUE(site_.programs.starts.empty());
}

TEST_F(VariableEchoTest, EachValueIsAskedForOnceAPage) {
  site_.world.hostNames[htonl(0xC0000207)] = "client.example.test";
  EXPECT_EQ(site_.Page("<!--#echovar=REMOTE_HOST-->|<%=REMOTE_HOST%>|<%=Request.ServerVariables(REMOTE_HOST)%>"),
            "client.example.test|client.example.test|client.example.test");
  EXPECT_EQ(site_.world.hostNameLookUps, 1);
  site_.Page("<!--#echovar=REMOTE_HOST-->");
  EXPECT_EQ(site_.world.hostNameLookUps, 2) << "the next page asks again";
  site_.Page("<!--#echovar=REMOTE_ADDR-->");
  EXPECT_EQ(site_.world.hostNameLookUps, 2) << "another value does not";
}

TEST_F(VariableEchoTest, ALongValueFillsThePageToItsBoundAndTheOtherTagsStay) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  site_.request.Referer = std::string(kMebibyte, 'r');
  std::string page;
  for (int i = 0; i < 70; ++i) page += "<%=HTTP_REFERER%>";
  const std::string result = site_.Page(page);
  EXPECT_EQ(result.size(), 64 * kMebibyte + 6 * std::string("<%=HTTP_REFERER%>").size());
  EXPECT_TRUE(
      result.ends_with("r<%=HTTP_REFERER%><%=HTTP_REFERER%><%=HTTP_REFERER%>"
                       "<%=HTTP_REFERER%><%=HTTP_REFERER%><%=HTTP_REFERER%>"));
}

TEST_F(VariableEchoTest, TwentyThousandTagsAreShown) {
  std::string page, expected;
  site_.request.QueryString.clear();
  for (int i = 0; i < 20'000; ++i) {
    const std::string number = std::to_string(i);
    page += "<%=SERVER_PORT%><%=NAME_" + number + "%><!--#echovar=SERVER_NAME-->";
    expected += "8080www.example.test";
  }
  EXPECT_EQ(site_.Page(page), expected);
}

}  // namespace
}  // namespace TesselServer
