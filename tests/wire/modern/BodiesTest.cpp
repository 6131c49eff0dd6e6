// Bodies of requests: how they arrive, what is refused in their place, and that the next request is found behind them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/kit/ModernControl.h"

namespace TesselServer::Modern {
namespace {

class ModernBodiesTest : public Kit::ModernTest {
 protected:
  ModernBodiesTest() {
    tree.Write("a.txt", "text");
    tessel.TrapFileEnable(true);
    tessel.TrapFileTypes("form");
    tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      asked.push_back(tessel.CGIValue(index, "REQUEST_METHOD") + " " + tessel.RequestBody(index));
      tessel.TrapFileData(index, "got " + tessel.RequestBody(index), false, "text/plain");
    };
  }

  static std::string Post(std::string_view target, std::string_view fields, std::string_view body) {
    return std::string("POST ")
        .append(target)
        .append(" HTTP/1.1\r\nHost: h\r\n")
        .append(fields)
        .append("\r\n")
        .append(body);
  }

  std::vector<std::string> asked;
};

TEST_F(ModernBodiesTest, ArriveHoweverTheyAreCut) {
  Start();
  const std::string requests[] = {
      Post("/x.form", "Content-Length: 5\r\n", "hello"),
      Post("/x.form", "Transfer-Encoding: chunked\r\n", "2\r\nhe\r\n3;x=y\r\nllo\r\n0\r\nT: r\r\n\r\n"),
  };
  for (const std::string& request : requests) {
    const std::string two = request + Request("/a.txt", "Connection: close\r\n");
    for (std::size_t cut = 1; cut < two.size(); cut += 3) {
      auto client = Send(two.substr(0, cut));
      client->Send(control.loop, two.substr(cut));
      const auto answers = AnswersOf(client->ReceiveAll(control.loop));
      ASSERT_EQ(answers.size(), 2u) << cut;
      EXPECT_EQ(Kit::BodyOf(answers[0]), "got hello") << cut;
      EXPECT_EQ(Kit::BodyOf(answers[1]), "text") << cut;
    }
  }
}

TEST_F(ModernBodiesTest, AreDroppedWhereNoOneReadsThem) {
  Start();
  auto client = Send(Post("/a.txt", "Content-Length: 5\r\n", "hello") +
                     "GET /a.txt HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nhello" +
                     Request("/a.txt", "Connection: close\r\n"));
  const auto answers = AnswersOf(client->ReceiveAll(control.loop));
  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(StatusOf(answers[0]), "405");
  EXPECT_EQ(Kit::BodyOf(answers[1]), "text");
  EXPECT_EQ(Kit::BodyOf(answers[2]), "text");
}

TEST_F(ModernBodiesTest, AreAskedForWhereTheClientWaits) {
  Start();
  auto client = Send(Post("/x.form", "Content-Length: 5\r\nExpect: 100-continue\r\nConnection: close\r\n", ""));
  client->Poll();
  EXPECT_EQ(client->Received(), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_TRUE(asked.empty()) << "before the host hears of it";
  client->Send(control.loop, "hello");
  const std::string answer = client->ReceiveAll(control.loop).substr(client->Received().find("HTTP/1.1 200"));
  EXPECT_EQ(Kit::BodyOf(answer), "got hello");
}

TEST_F(ModernBodiesTest, AreNotAskedForTwiceOrOfAnOldClient) {
  Start();
  auto sentAtOnce = Send(Post("/x.form", "Content-Length: 5\r\nExpect: 100-continue\r\n", "hello"));
  sentAtOnce->Poll();
  EXPECT_TRUE(sentAtOnce->Received().starts_with("HTTP/1.1 200")) << "it did not wait";
  auto old = Send("POST /x.form HTTP/1.0\r\nContent-Length: 5\r\nExpect: 100-continue\r\n\r\n");
  old->Poll();
  EXPECT_EQ(old->Received(), "") << "1.0 has no expectations";
}

TEST_F(ModernBodiesTest, AreRefusedInPlaceOfBeingAskedFor) {
  tessel.MaxBodyBytes(10);
  Start();
  const struct {
    const char *target, *fields, *status;
  } cases[] = {
      {"/none", "Content-Length: 5\r\nExpect: 100-continue\r\n", "404"},
      {"/a.txt", "Content-Length: 5\r\nExpect: 100-continue\r\n", "405"},
      {"/x.form", "Content-Length: 11\r\nExpect: 100-continue\r\n", "413"},
      {"/x.form", "Content-Length: 5\r\nExpect: magic\r\n", "417"},
  };
  for (const auto& c : cases) {
    auto client = Send(Post(c.target, c.fields, ""));
    EXPECT_EQ(StatusOf(client->ReceiveAll(control.loop)), c.status) << c.target;
    EXPECT_EQ(FieldOf(client->Received(), "Connection"), "close") << "it is not known whether the body follows";
  }
}

TEST_F(ModernBodiesTest, ThatAreTooLongAreRefused) {
  tessel.MaxBodyBytes(10);
  Start();
  EXPECT_EQ(StatusOf(control.Ask(Post("/x.form", "Content-Length: 11\r\n", "hello world"))), "413");
  EXPECT_EQ(StatusOf(control.Ask(Post("/x.form", "Transfer-Encoding: chunked\r\n", "6\r\nhello \r\n5\r\nworld\r\n"))),
            "413");
  EXPECT_TRUE(asked.empty());
}

TEST_F(ModernBodiesTest, HeadersThatAreTooLongAreRefused) {
  Start();
  const std::string header = Request("/a.txt", "X: " + std::string(2000, 'x') + "\r\nConnection: close\r\n");
  EXPECT_EQ(StatusOf(control.Ask(header)), "200");
  tessel.MaxHeaderBytes(1024);
  EXPECT_EQ(StatusOf(control.Ask(header)), "431") << "from the next connection on";
  EXPECT_EQ(StatusOf(control.Ask(Request("/" + std::string(2000, 'x')))), "414");
  tessel.MaxHeaderBytes(65536);
  EXPECT_EQ(StatusOf(control.Ask(header)), "200");
}

TEST_F(ModernBodiesTest, TogetherAreBounded) {
  tessel.MaxBodyBytesTotal(1000);
  Start();
  EXPECT_EQ(StatusOf(control.Ask(Post("/x.form", "Content-Length: 5000\r\n", std::string(5000, 'x')))), "503");
  EXPECT_EQ(StatusOf(control.Ask(Post("/x.form", "Content-Length: 5\r\nConnection: close\r\n", "hello"))), "200");
}

TEST_F(ModernBodiesTest, HaveTheirMethodsOwnName) {
  Start();
  for (const char* method : {"POST", "PUT", "DELETE", "PATCH"}) {
    control.Ask(std::string(method) +
                " /x.form HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok");
    EXPECT_EQ(asked.back(), std::string(method) + " ok");
  }
}

}  // namespace
}  // namespace TesselServer::Modern
