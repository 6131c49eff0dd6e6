#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "control/answer/HostAnswers.h"
#include "platform/world/Error.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// ---- The texts alone.

TEST(NormaliseHeaderFieldTest, HasOneLineEndAfterTheLastLine) {
  struct {
    const char *given, *stored;
  } const cases[] = {
      {"", ""},
      {"   ", ""},
      {"X-A: 1", "X-A: 1\r\n"},
      {"  X-A: 1  ", "X-A: 1\r\n"},
      {"X-A: 1\r\n", "X-A: 1\r\n"},
      {"X-A: 1\r\n\r\n", "X-A: 1\r\n"},
      {"X-A: 1\r\nX-B: 2", "X-A: 1\r\nX-B: 2\r\n"},
      {"X-A: 1\n", "X-A: 1\n\r\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(NormaliseHeaderField(c.given), c.stored) << c.given;
}

TEST(NormaliseStatusCodeTest, IsAnyThreeCharactersOr200) {
  struct {
    const char *given, *stored;
  } const cases[] = {
      {"404", "404"}, {"abc", "abc"}, {" 301 ", "301"}, {"20", "200"}, {"2000", "200"}, {"", "200"}, {"  ", "200"},
  };
  for (const auto& c : cases) EXPECT_EQ(NormaliseStatusCode(c.given), c.stored) << c.given;
}

TEST(HeaderValueTest, IsTheRestOfTheLineFromTwoCharactersAfterTheName) {
  const std::string block = "GET /?referer=1 HTTP/1.0\r\nUser-Agent: x\r\nX-Host: spoofed\r\nHost:h\r\nEmpty: \r\n";
  struct {
    const char *field, *value, *why;
  } const cases[] = {
      {"user-agent", "x", "without regard to case"},
      {"User-Agent", "x", "as it stands"},
      {"Missing", "", "not there"},
      {"Host", "spoofed", "also inside another name"},
      {"agent", "x", "also the end of a name"},
      {"Empty", "", "an empty value"},
      {"X-Host: spoofed\r\nHost", "", "two characters behind the name, whatever they are: the value lost its first"},
      {"referer", " HTTP/1.0", "also inside the request line"},
  };
  for (const auto& c : cases) EXPECT_EQ(HeaderValue(block, c.field), c.value) << c.field << ": " << c.why;
}

TEST(HeaderValueTest, AnEmptyValueIsEmptyWhateverFollows) {
  struct {
    const char *block, *why;
  } const cases[] = {
      {"Referer:\r\n", "the last line"},
      {"Referer: \r\n", "with its blank"},
      {"Referer:\r\nX-Role: admin\r\n", "the next line is another header"},
      {"Referer\r\nX-Role: admin\r\n", "not even a colon"},
  };
  for (const auto& c : cases) EXPECT_EQ(HeaderValue(c.block, "referer"), "") << c.why;
}

TEST(HeaderValueTest, AValueWithoutTheBlankLosesItsFirstLetter) {
  EXPECT_EQ(HeaderValue("Referer:http://x/\r\n", "Referer"), "ttp://x/");
}

TEST(HeaderValueTest, ALineWithoutItsEndIsRaised) {
  for (const char* block : {"Host: h", "Host", "Host:", "Host: h\n", "Host: h\r"}) {
    try {
      HeaderValue(block, "host");
      ADD_FAILURE() << block;
    } catch (const Error& error) {
      EXPECT_EQ(error.Number(), 5) << block;
    }
  }
  EXPECT_EQ(HeaderValue("Host: h", "other"), "") << "what is not there needs no end";
}

// ---- Inside a request.

class HostAnswersTest : public Kit::ControlTest {
 protected:
  // Sends a request and runs `look` inside its FileRequest.
  void Inside(const std::string& request, std::function<void(std::int32_t index)> look) {
    bool asked = false;
    tessel.TrapFileEnable(true);
    tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
      asked = true;
      look(index);
      tessel.TrapFileData(index, "answer", false);
    };
    if (!tessel.ServerRunning()) control.Start();
    EXPECT_EQ(Kit::BodyOf(control.Ask(request)), "answer");
    EXPECT_TRUE(asked);
  }

  template <typename Call>
  static std::int32_t NumberRaised(Call&& call) {
    try {
      call();
    } catch (const Error& error) {
      EXPECT_EQ(error.Description(), "Subscript out of range");
      EXPECT_EQ(error.Source(), "Tessel");
      return error.Number();
    }
    return 0;
  }

  // What each method makes of an Index that is no connection.
  void ExpectRefused(std::int32_t index) {
    EXPECT_EQ(NumberRaised([&] { tessel.HTTPHeader(index); }), 9) << index;
    EXPECT_EQ(NumberRaised([&] { tessel.HTTPHeader(index, "Host"); }), 9) << index;
    EXPECT_EQ(NumberRaised([&] { tessel.TrapFileDataEX(index, "x"); }), 9) << index;
    EXPECT_NO_THROW(tessel.TrapFileData(index, "x")) << index;
    EXPECT_NO_THROW(tessel.ReturnData(index, "x")) << index;
    EXPECT_EQ(tessel.QueryString(index, ""), "") << index;
    EXPECT_EQ(tessel.QueryString(index, "a", 1), "") << index;
    EXPECT_EQ(tessel.QueryStringCount(index, "a"), 0) << index;
    EXPECT_EQ(tessel.CGIValue(index, "SERVER_PROTOCOL"), "") << index;
    EXPECT_EQ(tessel.RequestBody(index), "") << index;
  }
};

TEST_F(HostAnswersTest, BeforeTheFirstStartThereAreNoConnections) {
  for (const std::int32_t index : {-1, 0, 1, 2, 3}) ExpectRefused(index);
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(HostAnswersTest, AnIndexOutsideIsRefusedAndOneInsideIsNot) {
  control.Start();
  for (const std::int32_t index :
       {0, -1, 3, std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::min()}) {
    ExpectRefused(index);
  }
  for (const std::int32_t index : {1, 2}) {
    EXPECT_EQ(tessel.HTTPHeader(index), "");
    EXPECT_EQ(tessel.HTTPHeader(index, "Host"), "");
    EXPECT_NO_THROW(tessel.TrapFileDataEX(index, "x"));
    EXPECT_EQ(tessel.CGIValue(index, "SERVER_PROTOCOL"), "HTTP/1.0");
  }
  tessel.MaxConnections(9);
  ExpectRefused(3);
  tessel.StopServer();
  EXPECT_EQ(tessel.HTTPHeader(2), "") << "the connections of the last run are still numbers";
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(HostAnswersTest, HTTPHeaderIsTheBlockOrOneValue) {
  Inside("GET /a HTTP/1.0\r\nUser-Agent: x\r\nHost: h\r\n\r\n", [&](std::int32_t index) {
    EXPECT_EQ(tessel.HTTPHeader(index), "GET /a HTTP/1.0\r\nUser-Agent: x\r\nHost: h\r\n");
    EXPECT_EQ(tessel.HTTPHeader(index, "  "), tessel.HTTPHeader(index));
    EXPECT_EQ(tessel.HTTPHeader(index, "user-agent"), "x");
    EXPECT_EQ(tessel.HTTPHeader(index, " User-Agent "), "x");
    EXPECT_EQ(tessel.HTTPHeader(index, "Host"), "h") << "the last line has its end as well";
    EXPECT_EQ(tessel.HTTPHeader(index, "Cookie"), "");
  });
}

TEST_F(HostAnswersTest, QueryStringIsTheWholeOrOneValue) {
  Inside("GET /a?id=1&name=%41+b&ID=2&userid=3 HTTP/1.0\r\n\r\n", [&](std::int32_t index) {
    EXPECT_EQ(tessel.QueryString(index, ""), "id=1&name=%41+b&ID=2&userid=3");
    EXPECT_EQ(tessel.QueryString(index, "  "), "id=1&name=%41+b&ID=2&userid=3");
    EXPECT_EQ(tessel.QueryString(index, "name"), "%41+b") << "not decoded";
    EXPECT_EQ(tessel.QueryString(index, "id"), "1");
    EXPECT_EQ(tessel.QueryString(index, "id", 2), "2") << "in any case";
    EXPECT_EQ(tessel.QueryString(index, "id", 3), "3") << "at the end of a longer name";
    for (const std::int32_t item : {4, 0, -1}) EXPECT_EQ(tessel.QueryString(index, "id", item), "") << item;
    EXPECT_EQ(tessel.QueryStringCount(index, "id"), 3);
    EXPECT_EQ(tessel.QueryStringCount(index, "name"), 1);
    EXPECT_EQ(tessel.QueryStringCount(index, "missing"), 0);
    EXPECT_EQ(tessel.QueryStringCount(index, ""), 0);
  });
  Inside("GET /a HTTP/1.0\r\n\r\n", [&](std::int32_t index) {
    EXPECT_EQ(tessel.QueryString(index, ""), "") << "nothing is left of the request before";
    EXPECT_EQ(tessel.QueryStringCount(index, "id"), 0);
  });
}

TEST_F(HostAnswersTest, QueryStringCountStopsAtItsLargestNumber) {
  std::string query = "a=";
  for (int i = 1; i < 20000; ++i) query += "&a=";
  Inside("GET /a?" + query + " HTTP/1.0\r\n\r\n",
         [&](std::int32_t index) { EXPECT_EQ(tessel.QueryStringCount(index, "a"), 20000); });
}

TEST_F(HostAnswersTest, AnEmptyHeaderLineIsNoError) {
  Inside("GET /a HTTP/1.0\r\nReferer:\r\nX-Role: admin\r\nX-Last:\r\n\r\n", [&](std::int32_t index) {
    EXPECT_EQ(tessel.HTTPHeader(index, "Referer"), "");
    EXPECT_EQ(tessel.HTTPHeader(index, "X-Role"), "admin");
    EXPECT_NO_THROW(EXPECT_EQ(tessel.HTTPHeader(index, "X-Last"), ""));
  });
}

TEST_F(HostAnswersTest, CGIValueTellsOfTheRequestAndTheServer) {
  tessel.ServerName("www.example.test");
  const std::int32_t port = control.Start();
  Inside(
      "POST /Sub%20x/Page.TRP?a=1 HTTP/1.0\r\nUser-Agent: agent\r\nReferer: from\r\nAccept: text/*\r\n"
      "Authorization: Basic dXNlcjpwdw==\r\nContent-Type: text/plain\r\nContent-Length: 4\r\n\r\nbody",
      [&](std::int32_t index) {
        const struct {
          const char* name;
          std::string value;
        } cases[] = {
            {"CONTENT_LENGTH", "4"},
            {"CONTENT_TYPE", "text/plain"},
            {"HTTP_ACCEPT", "text/*"},
            {"HTTP_REFERER", "from"},
            {"HTTP_USER_AGENT", "agent"},
            {"PATH_TRANSLATED", control.tree.Text()},
            {"QUERY_STRING", "a=1"},
            {"REMOTE_ADDR", "127.0.0.1"},
            {"REMOTE_USER", ""},  // no password file and no host has let the client in yet
            {"REQUEST_METHOD", "POST"},
            {"SCRIPT_NAME", "Page.TRP"},
            {"DOCUMENT_NAME", "Page.TRP"},
            {"DOCUMENT_URI", "/Sub%20x/Page.TRP"},
            {"SERVER_NAME", "www.example.test"},
            {"SERVER_IP", "127.0.0.1"},
            {"SERVER_PORT", std::to_string(port)},
            {"SERVER_SOFTWARE", "Orvane Tessel/1.1"},
            {"server_name", ""},
            {"NO_SUCH_NAME", ""},
        };
        for (const auto& c : cases) EXPECT_EQ(tessel.CGIValue(index, c.name), c.value) << c.name;
      });
}

TEST_F(HostAnswersTest, ABlankVariableListsAllWithTheDelimiter) {
  Inside("GET /a?x HTTP/1.0\r\n\r\n", [&](std::int32_t index) {
    const std::string all = tessel.CGIValue(index, " ", ";");
    EXPECT_EQ(std::count(all.begin(), all.end(), ';'), 29);
    EXPECT_THAT(all, testing::StartsWith("AUTH_TYPE=Basic;CONTENT_LENGTH="));
    EXPECT_THAT(all, HasSubstr(";QUERY_STRING=x;"));
    EXPECT_THAT(all, testing::EndsWith(";DOCUMENT_URL=/a;"));
    EXPECT_THAT(tessel.CGIValue(index, ""), HasSubstr(",QUERY_STRING=x,")) << "a comma unless said otherwise";
  });
}

TEST_F(HostAnswersTest, TheScriptNameIsTheFileThatWasFoundInTheClientsSpelling) {
  control.tree.Write("index.html", "root");
  control.tree.Write("docs/index.html", "docs");
  control.tree.Write("docs/A b.txt", "text");
  control.tree.Write("docs/my-file.txt", "text");
  control.tree.MakeFolder("empty");
  struct {
    const char *url, *name, *why;
  } const cases[] = {
      {"/", "index.html", "the index page"},
      {"/docs", "index.html", "a folder's index page"},
      {"/docs/", "index.html", "a folder's index page"},
      {"/docs/index.html", "index.html", "as it stands"},
      {"/DOCS/INDEX.HTML", "INDEX.HTML", "the client's own case"},
      {"/docs/a%20B.TXT", "a B.TXT", "the client's own case"},
      {"/docs/my%2Dfile.txt", "my-file.txt", "decoded"},
      {"/docs/missing.txt", "missing.txt", "nothing was found"},
      {"/empty/", "", "a folder has no file"},
      {"/empty", "", "a folder has no file"},
      {"/missing/", "", "nothing"},
  };
  for (const auto& c : cases) {
    Inside(std::string("GET ") + c.url + " HTTP/1.0\r\n\r\n", [&](std::int32_t index) {
      EXPECT_EQ(tessel.CGIValue(index, "SCRIPT_NAME"), c.name) << c.url << ": " << c.why;
      EXPECT_EQ(tessel.CGIValue(index, "DOCUMENT_URI"), c.url);
    });
  }
}

TEST_F(HostAnswersTest, TheServersNameAndAddressAreThoseShownWhereNoneAreSet) {
  tessel.ServerIP("");
  control.world.localAddress = "192.0.2.77";
  Inside("GET /a HTTP/1.0\r\n\r\n", [&](std::int32_t index) {
    EXPECT_EQ(tessel.CGIValue(index, "SERVER_NAME"), "testhost");
    EXPECT_EQ(tessel.CGIValue(index, "SERVER_IP"), "192.0.2.77");
    tessel.ServerName("now");
    EXPECT_EQ(tessel.CGIValue(index, "SERVER_NAME"), "now") << "settings are those of the moment";
  });
}

TEST_F(HostAnswersTest, RequestBodyIsTheWholeBody) {
  const std::string body("a\0b\r\n\r\n\xFF", 8);
  Inside("POST /a HTTP/1.0\r\nContent-Length: 8\r\n\r\n" + body + "beyond",
         [&](std::int32_t index) { EXPECT_EQ(tessel.RequestBody(index), body); });
  Inside("GET /a HTTP/1.0\r\n\r\n", [&](std::int32_t index) { EXPECT_EQ(tessel.RequestBody(index), ""); });
}

TEST_F(HostAnswersTest, RequestBodyIsEmptyUntilItIsComplete) {
  control.Start();
  Kit::RawClient client(tessel.ListeningPort());
  client.Send(control.loop, "POST /a HTTP/1.0\r\nContent-Length: 100\r\n\r\nhalf");
  Kit::Settle(control.loop);
  EXPECT_EQ(tessel.RequestBody(2), "");
}

// ---- Function tags: the record asks, the host returns.

class RaiseCallFunctionTest : public testing::Test {
 protected:
  RaiseCallFunctionTest() {
    control.Start();
    control.SlotAt(2).Enter(RequestPhase::kAnswering);
  }

  std::string Raise(std::int32_t index, const std::string& name, const std::string& params = "") {
    const auto answer = control.core.hostAnswers.RaiseCallFunction(index, name, params);
    return answer ? *answer : std::string();
  }

  Kit::TestCore control;
};

TEST_F(RaiseCallFunctionTest, TellsTheNameAndReturnsTheAnswer) {
  std::vector<std::string> told;
  control.owner.CallFunction = [&](std::int32_t& index, std::string& name) {
    told.push_back(std::to_string(index) + " " + name);
    control.core.hostAnswers.ReturnData(index, "text of " + name);
  };
  EXPECT_EQ(Raise(2, "Clock"), "text of Clock");
  EXPECT_EQ(Raise(2, " Clock "), "text of  Clock ");
  EXPECT_THAT(told, ElementsAre("2 Clock", "2  Clock "));
}

TEST_F(RaiseCallFunctionTest, AddsTheParametersToTheQueryWithNothingBetween) {
  control.SlotAt(2).Fields().RequestQuery = "a=1";
  control.owner.CallFunction = [&](std::int32_t& index, std::string&) {
    const std::string all = control.core.hostAnswers.QueryString(index, "", 1);
    const std::string a = control.core.hostAnswers.QueryString(index, "a", 1);
    const std::string x = control.core.hostAnswers.QueryString(index, "x", 1);
    control.core.hostAnswers.ReturnData(index, all + " " + a + " " + x);
  };
  EXPECT_EQ(Raise(2, "F", "x=2"), "a=1x=2 1x=2 2");
  EXPECT_EQ(Raise(2, "F", "&y=3"), "a=1x=2&y=3 1x=2 2") << "each call adds to it";
}

TEST_F(RaiseCallFunctionTest, AnEarlierAnswerStays) {
  EXPECT_EQ(Raise(2, "F"), "") << "none yet";
  control.core.hostAnswers.ReturnData(2, "before");
  EXPECT_EQ(Raise(2, "F"), "before");
}

TEST_F(RaiseCallFunctionTest, ALongAnswerIsNotCopiedForThePage) {
  control.core.hostAnswers.ReturnData(2, std::string(2 * kLongBytes, 'x'));
  const auto answer = control.core.hostAnswers.RaiseCallFunction(2, "F", "");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->size(), 2 * kLongBytes);
  EXPECT_EQ(control.core.hostAnswers.RaiseCallFunction(2, "F", ""), answer);
}

TEST_F(RaiseCallFunctionTest, WhatTheHostAsksForLeavesTheNameThatAProgramWaitsWith) {
  control.core.hostAnswers.CGIValue(2, "SERVER_PROTOCOL", "");
  RequestInfo info;
  info.RemoteHost = "client.example";
  const auto record = control.SlotAt(2).Record;
  record->SetRequestInfo(info);
  EXPECT_EQ(control.core.hostAnswers.CGIValue(2, "SERVER_PROTOCOL", ""), "HTTP/1.0");
  EXPECT_EQ(record->RemoteHost(), "client.example");
}

TEST_F(RaiseCallFunctionTest, NothingIsRaisedWithoutANameOrAConnection) {
  int calls = 0;
  control.owner.CallFunction = [&](std::int32_t&, std::string&) { ++calls; };
  control.core.hostAnswers.ReturnData(2, "answer");
  EXPECT_EQ(Raise(2, "", "x=1"), "");
  EXPECT_EQ(Raise(2, "  ", "x=1"), "");
  EXPECT_EQ(Raise(-1, "F"), "");
  EXPECT_EQ(Raise(3, "F"), "");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(control.core.hostAnswers.QueryString(2, "", 1), "") << "nor is anything added";
}

TEST_F(RaiseCallFunctionTest, OnlyAConnectionThatIsBeingAnsweredHasFunctionsToRaise) {
  int calls = 0;
  control.owner.CallFunction = [&](std::int32_t&, std::string&) { ++calls; };
  control.SlotAt(2).Enter(RequestPhase::kSending);
  EXPECT_EQ(Raise(2, "F", "x=1"), "");
  EXPECT_EQ(Raise(1, "F", "x=1"), "");
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(control.core.hostAnswers.QueryString(2, "", 1), "");
}

TEST_F(RaiseCallFunctionTest, TellsWhetherTheLatestOneWasAnswered) {
  HostAnswers& answers = control.core.hostAnswers;
  EXPECT_FALSE(answers.FunctionWasAnswered(2)) << "none yet";
  control.owner.CallFunction = [&](std::int32_t& index, std::string& name) {
    if (name != "Silent") answers.ReturnData(index, "");
    if (name == "Throwing") throw std::runtime_error("mine");
  };
  Raise(2, "F");
  EXPECT_TRUE(answers.FunctionWasAnswered(2)) << "an empty answer is one";
  Raise(2, "Silent");
  EXPECT_FALSE(answers.FunctionWasAnswered(2));
  Raise(2, "F");
  Raise(2, "Throwing");
  EXPECT_FALSE(answers.FunctionWasAnswered(2));
  Raise(2, "F");
  Raise(2, "");
  EXPECT_FALSE(answers.FunctionWasAnswered(2)) << "a tag without a name has no answer";
  for (const std::int32_t index : {-1, 0, 1, 3}) EXPECT_FALSE(answers.FunctionWasAnswered(index)) << index;
}

TEST_F(RaiseCallFunctionTest, AHandlerThatThrowsIsReportedAndAnswersNothing) {
  control.owner.CallFunction = [](std::int32_t&, std::string&) { throw std::runtime_error("mine"); };
  EXPECT_EQ(Raise(2, "F"), "");
  EXPECT_THAT(control.errors, ElementsAre("Error - Handler of CallFunction. [51] mine"));
}

TEST_F(RaiseCallFunctionTest, BeforeTheFirstStartNothingIsRaised) {
  Kit::TestCore fresh;
  int calls = 0;
  fresh.owner.CallFunction = [&](std::int32_t&, std::string&) { ++calls; };
  EXPECT_EQ(fresh.core.hostAnswers.RaiseCallFunction(2, "F", ""), nullptr);
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace TesselServer
