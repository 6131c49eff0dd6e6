// Function tags in pages that are served: what the host is asked, what it may look at meanwhile, and what becomes of
// its answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using testing::ElementsAre;
using testing::IsEmpty;

class CallFunctionTest : public Kit::ControlTest {
 protected:
  CallFunctionTest() {
    tessel.HTMLFunctionsEnable(true);
    tessel.SSIEnable(true);
    tessel.CallFunction = [this](std::int32_t& index, std::string& name) {
      asked.push_back(std::to_string(index) + " " + name);
      const auto function = functions.find(name);
      if (function != functions.end()) function->second(index);
    };
    Answer("Name", [](std::int32_t) { return "answer"; });
  }

  // Lets the host answer the function `name` with what `text` returns.
  void Answer(const std::string& name, std::function<std::string(std::int32_t)> text) {
    functions[name] = [this, text = std::move(text)](std::int32_t index) { tessel.ReturnData(index, text(index)); };
  }

  // What becomes of a page.
  std::string Served(const std::string& page, const std::string& query = "") {
    control.tree.Write("page.html", page);
    if (!tessel.ServerRunning()) control.Start();
    return BodyOf(control.Get("/page.html" + query));
  }

  std::map<std::string, std::function<void(std::int32_t)>> functions;
  std::vector<std::string> asked;
};

// ---- What is asked.

TEST_F(CallFunctionTest, EachFormOfATagTellsItsNameAndArguments) {
  Answer("Show", [&](std::int32_t index) { return "[" + tessel.QueryString(index, "") + "]"; });
  struct {
    const char *page, *served, *why;
  } const cases[] = {
      {"a<%=FunctionShow(x=1)%>z", "a[x=1]z", "as it stands"},
      {"a<% = Function Show ( x = \"1 2\" ) %>z", "a[x=12]z", "without its blanks and quotes"},
      {"<%=functionShow(x=1)%>", "[x=1]", "the word in any case"},
      {"<%=FunctionShow()%>", "[]", "no arguments"},
      {"<%=FunctionShow%>", "[]", "no parentheses"},
      {"<%=FunctionShow(x=(1)(2))%>", "[x=(1)(2)]", "to the last parenthesis"},
      {"<%=FunctionShow(x=1%>", "[x=1]", "the parenthesis does not end"},
      {"<%=FunctionShow(x=1)>", "<%=FunctionShow(x=1)>", "no tag"},
      {"a<%=FunctionShow(x=1)%", "a<%=FunctionShow(x=1)%", "no end"},
      {"<%=Function%>", "", "no name: nobody is asked"},
      {"<%=Function(x=1)%>", "", "no name: nobody is asked"},
  };
  for (const auto& c : cases) EXPECT_EQ(Served(c.page), c.served) << c.page << ": " << c.why;
  EXPECT_THAT(asked, testing::Each("2 Show"));
  EXPECT_EQ(asked.size(), 7u);
}

TEST_F(CallFunctionTest, ArgumentsAreReadLikeTheQueryThatTheyFollow) {
  std::string all, first, last;
  std::int32_t count = 0;
  Answer("Show", [&](std::int32_t index) {
    all = tessel.QueryString(index, "");
    count = tessel.QueryStringCount(index, "text");
    first = tessel.QueryString(index, "text");
    last = tessel.QueryString(index, "text", count);
    return "";
  });
  struct {
    const char *arguments, *query, *all;
    std::int32_t count;
    const char *first, *last;
  } const cases[] = {
      {"text=mine", "", "text=mine", 1, "mine", "mine"},
      {"text=mine&text=too", "", "text=mine&text=too", 2, "mine", "too"},
      {"text=mine", "?text=client", "text=clienttext=mine", 2, "clienttext=mine", "mine"},
      {"&text=mine", "?text=client", "text=client&text=mine", 2, "client", "mine"},
      {"", "?text=client", "text=client", 1, "client", "client"},
      {"other=1", "", "other=1", 0, "", ""},
  };
  for (const auto& c : cases) {
    Served("<%=FunctionShow(" + std::string(c.arguments) + ")%>", c.query);
    EXPECT_EQ(all, c.all);
    EXPECT_EQ(count, c.count) << c.all;
    EXPECT_EQ(first, c.first) << c.all;
    EXPECT_EQ(last, c.last) << c.all;
  }
}

TEST_F(CallFunctionTest, ArgumentsStayForTheTagsThatFollow) {
  Answer("Show", [&](std::int32_t index) { return "[" + tessel.QueryString(index, "") + "]"; });
  EXPECT_EQ(Served("<%=FunctionShow(a=1)%><%=FunctionShow(&b=2)%>"), "[a=1][a=1&b=2]");
  EXPECT_EQ(Served("<%=FunctionShow(c=3)%>"), "[c=3]") << "but not for the next request";
}

TEST_F(CallFunctionTest, TheIndexIsThatOfTheConnection) {
  tessel.MaxConnections(3);
  control.Start();
  RawClient first(tessel.ListeningPort());
  first.Send(control.loop, "GET");
  Kit::Settle(control.loop);
  EXPECT_EQ(Served("<%=FunctionName()%>"), "answer");
  first.Abort();
  Kit::Settle(control.loop);
  EXPECT_EQ(Served("<%=FunctionName()%>"), "answer");
  EXPECT_THAT(asked, ElementsAre("3 Name", "2 Name"));
}

TEST_F(CallFunctionTest, EqualTagsAreAskedForOnce) {
  int count = 0;
  Answer("Count", [&](std::int32_t) { return std::to_string(++count); });
  EXPECT_EQ(Served("<%=FunctionCount()%>,<%=FunctionCount()%>,<%=FUNCTIONcount()%>"), "1,1,1");
  EXPECT_EQ(Served("<%=FunctionCount(a)%>,<%=FunctionCount(b)%>"), "2,3") << "other arguments, another tag";
  EXPECT_EQ(Served("<%=FunctionCount()%>"), "4") << "in each request anew";
}

TEST_F(CallFunctionTest, SwitchedOffTheHostIsNotAsked) {
  tessel.HTMLFunctionsEnable(false);
  tessel.SSIEnable(false);
  EXPECT_EQ(Served("a <%= Function Name( x = 1 ) %> z"), "a <%=FunctionName(x=1)%> z");
  EXPECT_THAT(asked, IsEmpty());
}

TEST_F(CallFunctionTest, OtherFilesThanPagesDoNotAskTheHost) {
  control.tree.Write("a.txt", "<%=FunctionName()%>");
  control.Start();
  EXPECT_EQ(BodyOf(control.Get("/a.txt")), "<%=FunctionName()%>");
  EXPECT_THAT(asked, IsEmpty());
}

// ---- What becomes of the answer.

TEST_F(CallFunctionTest, WhatIsNotAnsweredIsReplacedByNothing) {
  EXPECT_EQ(Served("[<%=FunctionName()%>][<%=FunctionOther()%>]"), "[answer][]") << "no answer is used twice";
  EXPECT_EQ(Served("[<%=FunctionOther()%>]"), "[]") << "nor that of a request before";
  tessel.CallFunction = nullptr;
  EXPECT_EQ(Served("[<%=FunctionName()%>]"), "[]") << "nobody hears";
}

TEST_F(CallFunctionTest, AnAnswerOutsideTheEventIsNone) {
  tessel.TrapFileEnable(true);
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    tessel.ReturnData(index, "too early");
    tessel.TrapFileData(index, "", true);
    tessel.ReturnData(index, "too late");
  };
  EXPECT_EQ(Served("[<%=FunctionOther()%>]"), "[]");
}

TEST_F(CallFunctionTest, TheLastAnswerOfThatConnectionCounts) {
  functions["Many"] = [&](std::int32_t index) {
    tessel.ReturnData(index, "first");
    tessel.ReturnData(index, "second");
    for (const std::int32_t other : {1, 3, 0, -1, 100000}) tessel.ReturnData(other, "of another");
  };
  functions["Others"] = [&](std::int32_t) { tessel.ReturnData(1, "of another"); };
  EXPECT_EQ(Served("[<%=FunctionMany()%>][<%=FunctionOthers()%>]"), "[second][]");
}

TEST_F(CallFunctionTest, AnyBytesAreAnAnswer) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  for (const std::string& answer : {bytes, std::string(1 << 20, 'x'), std::string(), std::string("\0", 1)}) {
    Answer("Bytes", [&](std::int32_t) { return answer; });
    EXPECT_EQ(Served("a<%=FunctionBytes()%>z"), "a" + answer + "z");
  }
}

TEST_F(CallFunctionTest, TagsInAnAnswerAreText) {
  const std::string tags =
      "<%=FunctionName()%><%=FunctionTags()%><!--#echovar=SERVER_SOFTWARE--><!--#include=page.html-->"
      "<!--#execcgi=a.exe--><%=SERVER_SOFTWARE%> <!--# echo var=\"X\" -->";
  tessel.CGIEnable(true);
  Answer("Tags", [&](std::int32_t) { return tags; });
  control.tree.Write("outer.html", "(<!--#include file=\"page.html\"-->)");
  EXPECT_EQ(Served("[<%=FunctionTags()%>]"), "[" + tags + "]");
  EXPECT_EQ(BodyOf(control.Get("/outer.html")), "([" + tags + "])") << "nor when the page is part of another";
  EXPECT_THAT(asked, ElementsAre("2 Tags", "2 Tags"));
}

TEST_F(CallFunctionTest, AHandlerThatThrowsLeavesNothingAndOneReport) {
  functions["Before"] = [](std::int32_t) { throw std::runtime_error("mine"); };
  functions["Behind"] = [&](std::int32_t index) {
    tessel.ReturnData(index, "lost");
    throw Error(1234, "number");
  };
  functions["Odd"] = [](std::int32_t) { throw 5; };
  EXPECT_EQ(Served("[<%=FunctionBefore()%>][<%=FunctionBehind()%>][<%=FunctionOdd()%>][<%=FunctionName()%>]"),
            "[][][][answer]");
  EXPECT_THAT(control.errors, ElementsAre("Error - Handler of CallFunction. [51] mine",
                                          "Error - Handler of CallFunction. [1234] number",
                                          "Error - Handler of CallFunction. [51] Unknown exception"));
  EXPECT_EQ(tessel.Stats_Errors(), "3");
}

// ---- Where tags stand.

TEST_F(CallFunctionTest, TagsInIncludedPagesAreAskedForTheSameConnection) {
  control.tree.Write("part.html", "(<%=FunctionName()%><%=FunctionQuery(&y=2)%>)");
  Answer("Query", [&](std::int32_t index) { return tessel.QueryString(index, ""); });
  EXPECT_EQ(Served("<!--#include file=\"part.html\"-->[<%=FunctionName()%>]", "?x=1"), "(answerx=1&y=2)[answer]");
  EXPECT_THAT(asked, ElementsAre("2 Name", "2 Query", "2 Name"));
}

TEST_F(CallFunctionTest, TagsInErrorPagesAreAskedForTheSameConnection) {
  control.tree.Write("application/html/errors/http404.html", "missing: <%=FunctionUri()%>");
  control.tree.Write("application/html/errors/http400.html", "bad: <%=FunctionUri()%>");
  tessel.ApplicationFolder(control.tree.Text() + "/application");
  tessel.ErrorFilesEnable(true);
  Answer("Uri", [&](std::int32_t index) { return tessel.CGIValue(index, "DOCUMENT_URI"); });
  control.Start();
  EXPECT_EQ(BodyOf(control.Get("/none.html")), "missing: /none.html");
  EXPECT_EQ(BodyOf(control.Ask("POST /none.html HTTP/1.0\r\n\r\n")), "bad: /none.html");
  EXPECT_THAT(asked, ElementsAre("2 Uri", "2 Uri"));
}

TEST_F(CallFunctionTest, ATrappedPageThatIsHandedBackAsksToo) {
  tessel.TrapFileEnable(true);
  std::int32_t waiting = 0;
  tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) { waiting = index; };
  control.tree.Write("page.html", "<%=FunctionName()%>");
  control.Start();
  RawClient client(tessel.ListeningPort());
  client.Send(control.loop, "GET /page.html HTTP/1.0\r\n\r\n");
  ASSERT_TRUE(Kit::RunUntil(control.loop, [&] { return waiting != 0; }));
  tessel.TrapFileData(waiting, "", true);
  EXPECT_EQ(BodyOf(client.ReceiveAll(control.loop)), "answer");
}

// ---- What the host may look at and do inside the event.

TEST_F(CallFunctionTest, TheRequestIsThereInside) {
  std::vector<std::string> seen;
  Answer("Look", [&](std::int32_t index) {
    seen = {tessel.RequestBody(index),
            tessel.HTTPHeader(index, "X-Mine"),
            tessel.CGIValue(index, "REQUEST_METHOD"),
            tessel.CGIValue(index, "QUERY_STRING"),
            tessel.CGIValue(index, "SCRIPT_NAME"),
            tessel.CGIValue(index, "DOCUMENT_URI"),
            tessel.CGIValue(index, "REMOTE_ADDR"),
            tessel.CGIValue(index, "CONTENT_LENGTH")};
    return "<" + tessel.RequestBody(index) + ">";
  });
  control.tree.Write("page.html", "<%=FunctionLook(&tag=1)%><%=FunctionLook(&tag=2)%>");
  control.Start();
  const std::string answer =
      control.Ask("POST /page.html?q=1 HTTP/1.0\r\nX-Mine: value\r\nContent-Length: 9\r\n\r\nname=Anna");
  EXPECT_EQ(BodyOf(answer), "<name=Anna><name=Anna>");
  EXPECT_THAT(
      seen, ElementsAre("name=Anna", "value", "POST", "q=1&tag=1&tag=2", "page.html", "/page.html", "127.0.0.1", "9"));
  EXPECT_EQ(tessel.RequestBody(2), "") << "let go of with the answer";
}

TEST_F(CallFunctionTest, AnswersToTrappedRequestsDoNotFitHere) {
  functions["Odd"] = [&](std::int32_t index) {
    tessel.TrapFileData(index, "host", false);
    tessel.TrapFileDataEX(index, "host", false, "text/plain", "404");
    tessel.ReturnData(index, "answer");
  };
  EXPECT_EQ(Served("[<%=FunctionOdd()%>]"), "[answer]");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(CallFunctionTest, SettingsChangedInsideHoldForTheNextRequest) {
  control.tree.Write("other/page.html", "other");
  control.tree.Write("part.html", "part");
  Answer("Change", [&](std::int32_t) {
    tessel.VirtualPath(control.tree.Text() + "/other");
    tessel.HTMLFunctionsEnable(false);
    tessel.SSIEnable(false);
    return "changed";
  });
  control.tree.Write("first.html", "<%=FunctionChange()%>");
  EXPECT_EQ(Served("<!--#include=first.html--> <!--#include=part.html--> <%=FunctionName()%>"), "changed part answer");
  EXPECT_EQ(BodyOf(control.Get("/page.html")), "other");
}

TEST_F(CallFunctionTest, OtherClientsAreServedWhenTheHostLetsTheLoopRunInside) {
  tessel.MaxConnections(5);
  control.tree.Write("other.html", "[<%=FunctionOther()%>]");
  control.tree.Write("index.html", "index");
  control.Start();
  Answer("Other", [](std::int32_t index) { return "other " + std::to_string(index); });
  std::string other, plain;
  Answer("Wait", [&](std::int32_t) {
    other = BodyOf(control.Get("/other.html?a=1"));
    plain = BodyOf(control.Get("/"));
    return "waited";
  });
  EXPECT_EQ(Served("<%=FunctionName()%> <%=FunctionWait()%> <%=FunctionLast()%>!"), "answer waited !");
  EXPECT_EQ(other, "[other 3]");
  EXPECT_EQ(plain, "index");
  EXPECT_THAT(asked, ElementsAre("2 Name", "2 Wait", "3 Other", "2 Last"));
}

// ---- Clients that go away meanwhile.

// Clients that send their request in two pieces: the loop watches their connections, and hears of their end at once.
class LeavingClientTest : public CallFunctionTest {
 protected:
  void Begin(const std::string& request) {
    control.Start();
    client = std::make_unique<RawClient>(tessel.ListeningPort());
    client->Send(control.loop, request.substr(0, 3));
    Kit::Settle(control.loop);
    client->Send(control.loop, request.substr(3));
  }

  std::unique_ptr<RawClient> client;
};

TEST_F(LeavingClientTest, OneThatClosesItsSideStillGetsItsAnswer) {
  Answer("Body", [&](std::int32_t index) {
    client->EndSending();
    for (int turn = 0; turn < 5; ++turn) control.loop.RunOnce(0);
    return tessel.RequestBody(index);
  });
  control.tree.Write("page.html", "[<%=FunctionBody()%>][<%=FunctionName()%>]");
  Begin("POST /page.html HTTP/1.0\r\nContent-Length: 4\r\n\r\nbody");
  EXPECT_EQ(BodyOf(client->ReceiveAll(control.loop)), "[body][answer]");
}

TEST_F(LeavingClientTest, OfOneThatIsGoneNothingMoreIsAsked) {
  Answer("Leave", [&](std::int32_t) {
    client->Abort();
    for (int turn = 0; turn < 5; ++turn) control.loop.RunOnce(0);
    return "lost";
  });
  control.tree.Write("leave.html", "<%=FunctionLeave()%><%=FunctionName()%>");
  Begin("GET /leave.html HTTP/1.0\r\n\r\n");
  Kit::Settle(control.loop);
  EXPECT_THAT(asked, ElementsAre("2 Leave"));
  EXPECT_THAT(control.log, IsEmpty());
  EXPECT_EQ(Served("[<%=FunctionOther()%>]"), "[]") << "the next client of the slot gets nothing of it";
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(LeavingClientTest, ItsSlotMayServeTheNextClientMeanwhile) {
  std::string next;
  control.tree.Write("sub/next.html", "<!--#include file=\"part.html\"-->[<%=FunctionName()%>] <%=QUERY_STRING%>");
  control.tree.Write("sub/part.html", "part");
  control.tree.Write("part.html", "wrong");
  control.tree.Write("leave.html", "<%=FunctionLeave()%>");
  Answer("Leave", [&](std::int32_t) {
    client->Abort();
    for (int turn = 0; turn < 5; ++turn) control.loop.RunOnce(0);
    next = BodyOf(control.Get("/sub/next.html?x=1"));
    return "lost";
  });
  control.tree.Write("page.html", "<!--#include=leave.html--><!--#include file=\"part.html\"--><%=FunctionLast()%>");
  Begin("GET /page.html HTTP/1.0\r\n\r\n");
  Kit::Settle(control.loop);
  EXPECT_EQ(next, "part[answer] <%=QUERY_STRING%>");
  EXPECT_THAT(asked, ElementsAre("2 Leave", "2 Name"));
  EXPECT_EQ(Served("[<%=FunctionName()%>]"), "[answer]");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(CallFunctionTest, AClientMayResetDuringACall) {
  control.tree.Write("leave.html", "<%=FunctionLeave()%><%=FunctionName()%>");
  control.Start();
  RawClient client(tessel.ListeningPort());
  Answer("Leave", [&](std::int32_t) {
    client.Abort();
    return "lost";
  });
  client.Send(control.loop, "GET /leave.html HTTP/1.0\r\n\r\n");
  Kit::Settle(control.loop);
  EXPECT_THAT(asked, ElementsAre("2 Leave", "2 Name"));
  EXPECT_EQ(Served("[<%=FunctionName()%>]"), "[answer]") << "the slot is free again";
}

}  // namespace
}  // namespace TesselServer
