// Requests that the host answers: which ones are offered to it, what it is told, and what becomes of its answer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
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
using testing::StartsWith;

// An answer with its header in the world of the tests.
std::string Whole(const std::string& status, const std::string& type, const std::string& body,
                  const std::string& extra = "") {
  return "HTTP/1.0 " + status +
         "\r\nServer: Orvane Tessel/1.1\r\nDate: Sun, 15 Nov 2026 18:20:05 GMT\r\nContent-Type: " + type + "\r\n" +
         extra + (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" + body;
}

class TrapTest : public Kit::ControlTest {
 protected:
  TrapTest() {
    control.tree.Write("page.trp", "the page");
    control.tree.Write("sub/page.trp", "the other page");
    control.tree.Write("index.html", "the index");
    control.tree.Write("dotted.d/name", "a name");
    control.tree.MakeFolder("empty");
    tessel.TrapFileEnable(true);
    tessel.TrapFileTypes("trp");
    tessel.FileRequest = [this](std::int32_t& index, std::string& name, std::string& user) {
      waiting = index;
      told.push_back(name + "|" + user);
      if (answer) answer(index);
    };
  }

  // A client whose request waits for the host.
  std::unique_ptr<RawClient> Wait(const std::string& url = "/page.trp") {
    waiting = 0;
    auto client = std::make_unique<RawClient>(tessel.ListeningPort());
    client->Send(control.loop, "GET " + url + " HTTP/1.0\r\n\r\n");
    EXPECT_TRUE(Kit::RunUntil(control.loop, [&] { return waiting != 0; }));
    return client;
  }

  std::function<void(std::int32_t)> answer;
  std::vector<std::string> told;
  std::int32_t waiting = 0;
};

TEST_F(TrapTest, TheExtensionDecidesWhatIsOffered) {
  control.Start();
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "host", false); };
  struct {
    const char *types, *url;
    bool trapped;
    const char* why;
  } const cases[] = {
      {"trp", "/page.trp", true, "listed"},
      {"trp", "/PAGE.TRP", true, "in any case"},
      {"TRP", "/page.trp", true, "in any case"},
      {"htm,trp", "/page.trp", true, "one of several"},
      {"trp", "/missing.trp", true, "the file need not exist"},
      {"trp", "/page.trp?x=1.htm", true, "the query does not count"},
      {"htm", "/page.trp", false, "not listed"},
      {"html", "/x.ht", true, "part of a listed one"},
      {"trp,x", "/y.p,x", true, "part of the list as it stands"},
      {"ht", "/x.html", false, "longer than a listed one"},
      {"trp", "/ends.", false, "no extension"},
      {"trp", "/", false, "an index page of another type"},
      {"html", "/", true, "an index page of the type"},
      {"trp", "/empty", false, "a folder has none"},
      {"trp", "/dotted.trp/name", false, "the folder's dots do not count"},
      {"name", "/dotted.d/name", true, "without a dot it is all extension"},
      {"", "/page.trp", true, "no types are all types"},
      {"", "/", true, "no types are all types"},
      {"", "/empty", true, "folders as well"},
      {"", "/ends.", true, "no types are all types"},
      {"   ", "/page.trp", true, "blanks are no types"},
  };
  for (const auto& c : cases) {
    tessel.TrapFileTypes(c.types);
    told.clear();
    const std::string body = BodyOf(control.Get(c.url));
    EXPECT_EQ(told.size(), c.trapped ? 1u : 0u) << c.types << " " << c.url << ": " << c.why;
    EXPECT_EQ(body == "host", c.trapped) << c.types << " " << c.url << ": " << c.why;
  }
  tessel.TrapFileEnable(false);
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "the page");
}

TEST_F(TrapTest, TheHostGetsThePathBelowTheRootAndTheCredentials) {
  control.Start();
  tessel.TrapFileTypes("");
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "host", false); };
  struct {
    const char *url, *header, *told;
  } const cases[] = {
      {"/page.trp", "", "page.trp|"},
      {"/page.trp?a=1", "", "page.trp|"},
      {"/sub/page.trp", "", "sub/page.trp|"},
      {"/SUB\\PAGE.TRP", "", "sub/page.trp|"},
      {"/sub/../page.trp", "", "page.trp|"},
      {"/", "", "index.html|"},
      {"/empty/", "", "empty|"},
      {"/missing%20one\\x.trp", "", "missing one/x.trp|"},
      {"/../x", "", "|"},
      {"/%2e%2e/%2e%2e/etc/passwd", "", "%2e%2e/%2e%2e/etc/passwd|"},
      {"http://host/sub/page.trp", "", "sub/page.trp|"},
      {"/page.trp", "Authorization: Basic dXNlcjpwdw==\r\n", "page.trp|user:pw"},
      {"/page.trp", "Authorization: Basic dXNlcjo=\r\n", "page.trp|user:"},
      {"/page.trp", "Authorization: Basic OnB3\r\n", "page.trp|:pw"},
      {"/page.trp", "Authorization: Basic Og==\r\n", "page.trp|"},
      {"/page.trp", "authorization: Basic dXNlcjpwdw==\r\n", "page.trp|"},
  };
  for (const auto& c : cases) {
    told.clear();
    control.Ask(std::string("GET ") + c.url + " HTTP/1.0\r\n" + c.header + "\r\n");
    EXPECT_THAT(told, ElementsAre(c.told)) << c.url;
  }
}

TEST_F(TrapTest, AnAnswerInsideTheEventGoesOutWhole) {
  control.Start();
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "host data", false, "text/plain"); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "text/plain", "host data"));
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "<p>", false); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "text/html", "<p>"));
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "", false); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "text/html", ""));
  EXPECT_THAT(control.log, IsEmpty()) << "the host's answers are not logged";
}

TEST_F(TrapTest, StatusAndHeaderLinesGoOutAsTheyAreStored) {
  control.Start();
  struct {
    const char *code, *header, *status, *extra;
  } const cases[] = {
      {"200", "", "200 OK", ""},
      {"20", "", "200 OK", ""},
      {"", "", "200 OK", ""},
      {"abc", "", "abc Undefined Status Code", ""},
      {" 404 ", "", "404 Not Found", ""},
      {"301", "Location: /x", "301 Moved Permanently", "Location: /x\r\n"},
      {"200", "X-A: 1\r\n", "200 OK", "X-A: 1\r\n"},
      {"200", "X-A: 1\r\n\r\n", "200 OK", "X-A: 1\r\n"},
      {"200", "X-A: 1\r\n\r\n\r\n\r\n", "200 OK", "X-A: 1\r\n"},
      {"200", "X-A: 1\r\n\r\nX-B: 2", "200 OK", "X-A: 1\r\nX-B: 2\r\n"},
      {"200", "X-A: 1\r\nX-B: 2", "200 OK", "X-A: 1\r\nX-B: 2\r\n"},
      {"200", "   ", "200 OK", ""},
  };
  for (const auto& c : cases) {
    answer = [&](std::int32_t index) { tessel.TrapFileDataEX(index, "data", false, "text/plain", c.code, c.header); };
    EXPECT_EQ(control.Get("/page.trp"), Whole(c.status, "text/plain", "data", c.extra)) << c.code << " " << c.header;
  }
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "data", false, "text/plain"); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "text/plain", "data")) << "nothing is left for the next client";
}

TEST_F(TrapTest, AnyBytesGoOutAsTheyAre) {
  control.Start();
  std::string binary("\0\x01\r\n\r\n\xFF\0", 8);
  for (const std::size_t size : {std::size_t{8}, std::size_t{65536}, std::size_t{1024 * 1024}}) {
    while (binary.size() < size) binary += binary.substr(0, size - binary.size());
    for (const char* type : {"application/octet-stream", "text/html"}) {
      answer = [&](std::int32_t index) { tessel.TrapFileData(index, binary, false, type); };
      EXPECT_TRUE(control.Get("/page.trp") == Whole("200 OK", type, binary)) << size << " as " << type;
    }
  }
}

TEST_F(TrapTest, AContentTypeCannotBreakTheHeader) {
  control.Start();
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "x", false, "text/plain\r\n\r\nSet-Cookie: a"); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "text/plain", "x"));
}

TEST_F(TrapTest, AnAnswerMayComeLaterAndOnlyOnce) {
  control.Start();
  const auto client = Wait();
  Kit::Settle(control.loop);
  EXPECT_EQ(client->Received(), "");
  tessel.TrapFileData(waiting, "first", false, "text/plain");
  tessel.TrapFileData(waiting, "second", false, "text/plain");
  EXPECT_NO_THROW(tessel.TrapFileDataEX(waiting, "third", false, "text/plain", "404", "X: 1"));
  EXPECT_EQ(client->ReceiveAll(control.loop), Whole("200 OK", "text/plain", "first"));
  tessel.TrapFileData(waiting, "fourth", false);
  EXPECT_EQ(tessel.Stats_Requests(), "1");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(TrapTest, TwoAnswersInsideTheEventAreOne) {
  control.Start();
  answer = [&](std::int32_t index) {
    tessel.TrapFileData(index, "first", false);
    tessel.TrapFileData(index, "", true);
  };
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "first");
}

TEST_F(TrapTest, ARequestHandedBackIsServedAndLogged) {
  control.Start();
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "ignored", true, "x/y"); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "application/octet-stream", "the page"));
  EXPECT_THAT(BodyOf(control.Get("/missing.trp")), testing::HasSubstr("404"));
  EXPECT_EQ(control.log.size(), 2u);
  answer = [&](std::int32_t index) { tessel.TrapFileDataEX(index, "ignored", true, "x/y", "404", "X: 1"); };
  EXPECT_EQ(control.Get("/page.trp"), Whole("200 OK", "application/octet-stream", "the page"));
  answer = nullptr;
  const auto client = Wait("/sub/page.trp");
  control.tree.Write("sub/page.trp", "changed meanwhile");
  tessel.TrapFileData(waiting, "");
  EXPECT_EQ(BodyOf(client->ReceiveAll(control.loop)), "changed meanwhile") << "handing back is the default";
}

TEST_F(TrapTest, AClientThatClosedItsSideIsStillAnswered) {
  control.Start();
  const auto client = Wait();
  client->EndSending();
  Kit::Settle(control.loop);
  tessel.TrapFileData(waiting, "late", false);
  EXPECT_EQ(BodyOf(client->ReceiveAll(control.loop)), "late");
}

TEST_F(TrapTest, AnAnswerForAClientThatHasGoneIsIgnored) {
  control.Start();
  Wait()->Abort();
  Kit::Settle(control.loop);
  tessel.TrapFileData(waiting, "nobody reads this", false);
  EXPECT_EQ(tessel.Stats_Requests(), "0");
  EXPECT_THAT(control.errors, IsEmpty());
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "next", false); };
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "next") << "the slot is free again";
}

TEST_F(TrapTest, AnAnswerNeverReachesTheNextClientOfTheSlot) {
  control.Start();
  Wait()->Abort();
  Kit::Settle(control.loop);
  const std::int32_t old = waiting;

  RawClient next(tessel.ListeningPort());  // the same slot, and no request of a trapped type yet
  next.Send(control.loop, "POST /page.txt HTTP/1.0\r\nContent-Length: 10\r\n\r\n");
  Kit::Settle(control.loop);
  tessel.TrapFileData(old, "for another", false);
  tessel.TrapFileDataEX(old, "for another", false, "text/plain", "404", "X: 1");
  Kit::Settle(control.loop);
  EXPECT_FALSE(next.Poll());
  EXPECT_EQ(next.Received(), "");
  next.Send(control.loop, "0123456789");
  EXPECT_THAT(BodyOf(next.ReceiveAll(control.loop)), testing::HasSubstr("404"));
}

TEST_F(TrapTest, ALateAnswerLeavesNothingInTheNextClientsAnswer) {
  control.Start();
  Wait()->Abort();
  Kit::Settle(control.loop);
  RawClient next(tessel.ListeningPort());
  next.Send(control.loop, "POST /page.trp HTTP/1.0\r\nContent-Length: 10\r\n\r\n");
  Kit::Settle(control.loop);
  tessel.TrapFileDataEX(waiting, "for another", false, "text/plain", "404", "X: 1");
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "mine", false, "text/plain"); };
  next.Send(control.loop, "0123456789");
  EXPECT_EQ(next.ReceiveAll(control.loop), Whole("200 OK", "text/plain", "mine"));
}

TEST_F(TrapTest, AnAnswerAfterAStopIsIgnored) {
  control.Start();
  const auto client = Wait();
  tessel.StopServer();
  tessel.TrapFileData(waiting, "late", false);
  EXPECT_NO_THROW(tessel.TrapFileDataEX(waiting, "late", false));
  EXPECT_EQ(client->ReceiveAll(control.loop), "");
  control.Start();
  tessel.TrapFileData(waiting, "later still", false);
  EXPECT_EQ(tessel.Stats_Requests(), "0");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(TrapTest, SeveralRequestsWaitAndAreAnsweredInAnyOrder) {
  tessel.MaxConnections(4);
  control.Start();
  const auto first = Wait();
  const std::int32_t firstIndex = waiting;
  const auto second = Wait("/sub/page.trp");
  const std::int32_t secondIndex = waiting;
  EXPECT_NE(firstIndex, secondIndex);
  EXPECT_EQ(tessel.CGIValue(firstIndex, "DOCUMENT_URI"), "/page.trp");
  EXPECT_EQ(tessel.CGIValue(secondIndex, "DOCUMENT_URI"), "/sub/page.trp");
  tessel.TrapFileData(secondIndex, "second", false);
  EXPECT_EQ(BodyOf(second->ReceiveAll(control.loop)), "second");
  tessel.TrapFileData(firstIndex, "first", false);
  EXPECT_EQ(BodyOf(first->ReceiveAll(control.loop)), "first");
}

TEST_F(TrapTest, WithoutAHandlerRequestsAreServed) {
  control.Start();
  tessel.FileRequest = nullptr;
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "the page");
  EXPECT_EQ(control.log.size(), 1u);
}

TEST_F(TrapTest, AHandlerThatThrowsMakesItAnErrorAnswer) {
  control.Start();
  answer = [](std::int32_t) { throw std::runtime_error("mine"); };
  EXPECT_THAT(BodyOf(control.Get("/page.trp")), testing::HasSubstr("500: Internal Server Error"));
  EXPECT_THAT(control.errors, ElementsAre("Error - Handler of FileRequest. [51] mine"));
  EXPECT_THAT(control.log, IsEmpty());
  tessel.VerboseErrorsEnable(false);
  EXPECT_EQ(control.Get("/page.trp"), Whole("500 Internal Server Error", "text/html", ""));
}

TEST_F(TrapTest, AHandlerThatThrowsAfterItsAnswerChangesNothing) {
  control.Start();
  answer = [&](std::int32_t index) {
    tessel.TrapFileData(index, "answered", false);
    throw std::runtime_error("mine");
  };
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "answered");
  EXPECT_EQ(control.errors.size(), 1u);
  EXPECT_EQ(tessel.Stats_Requests(), "1");
}

TEST_F(TrapTest, AHandlerMayChangeItsArgumentsWithoutEffect) {
  control.Start();
  tessel.FileRequest = [&](std::int32_t& index, std::string& name, std::string& user) {
    tessel.TrapFileData(index, "host", false);
    index = 99;
    name = "other";
    user = "other";
  };
  EXPECT_EQ(BodyOf(control.Get("/page.trp")), "host");
}

TEST_F(TrapTest, BadRequestsAndRequestsForNothingAreNotOffered) {
  control.Start();
  tessel.TrapFileTypes("");
  answer = [&](std::int32_t index) { tessel.TrapFileData(index, "host", false); };
  EXPECT_THAT(control.Ask("HEAD /page.trp HTTP/1.0\r\n\r\n"), StartsWith("HTTP/1.0 200 OK\r\n"));
  EXPECT_EQ(control.Ask("GET  HTTP/1.0\r\n\r\n"), "");
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(TrapTest, TheBodyIsThereUntilTheAnswer) {
  control.Start();
  std::string body;
  answer = [&](std::int32_t index) {
    body = tessel.RequestBody(index);
    tessel.TrapFileData(index, "host", false);
  };
  control.Ask("POST /page.trp HTTP/1.0\r\nContent-Length: 4\r\n\r\nbody");
  EXPECT_EQ(body, "body");
  EXPECT_EQ(tessel.RequestBody(waiting), "") << "the connection has gone";
}

}  // namespace
}  // namespace TesselServer
