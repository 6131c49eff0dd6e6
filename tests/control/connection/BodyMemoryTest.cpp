// What the bodies of all connections take of memory together.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::RawClient;
using Kit::Settle;

std::string PostTo(const std::string& path, std::size_t announced, const std::string& body) {
  return "POST " + path + " HTTP/1.0\r\nContent-Length: " + std::to_string(announced) + "\r\n\r\n" + body;
}

// ---- Over all connections.

class BodyMemoryTest : public Kit::ControlTest {
 protected:
  BodyMemoryTest() {
    tessel.MaxConnections(20);
    tessel.MaxBodyBytesTotal(1000);
    tessel.VerboseErrorsEnable(false);
    tessel.TrapFileEnable(true);
    tessel.FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      if (hold) {
        held.push_back(index);
      } else {
        tessel.TrapFileData(index, std::to_string(tessel.RequestBody(index).size()), false);
      }
    };
    control.Start();
  }

  std::unique_ptr<RawClient> Begin(std::size_t announced, std::size_t sent) {
    return Send(PostTo("/form", announced, std::string(sent, 'b')));
  }
  void Continue(RawClient& client, std::size_t bytes) {
    client.Send(control.loop, std::string(bytes, 'c'));
    Settle(control.loop);
  }
  bool WasRefused(RawClient& client) {
    client.Poll();
    return client.Received().starts_with("HTTP/1.0 400 Bad Request\r\n");
  }

  bool hold = false;
  std::vector<std::int32_t> held;
};

TEST_F(BodyMemoryTest, ABodyThatFindsNoRoomIsRefusedWhenItIsAnnounced) {
  const auto first = Begin(800, 700);
  const auto second = Begin(400, 0);
  EXPECT_TRUE(WasRefused(*second));
  EXPECT_EQ(BodyOf(control.Ask(PostTo("/form", 300, std::string(300, 'x')))), "300") << "a smaller one has room";
  Continue(*first, 100);
  EXPECT_EQ(BodyOf(first->ReceiveAll(control.loop)), "800") << "what had room before goes on";
  EXPECT_EQ(BodyOf(control.Ask(PostTo("/form", 1000, std::string(1000, 'x')))), "1000") << "and gives it back";
}

TEST_F(BodyMemoryTest, ABodyThatGrowsBeyondTheRoomIsRefused) {
  const auto first = Begin(900, 100);
  const auto second = Begin(900, 100);
  EXPECT_FALSE(WasRefused(*second)) << "what is announced takes no memory yet";
  Continue(*first, 700);
  Continue(*second, 200);
  EXPECT_TRUE(WasRefused(*second));
  Continue(*first, 100);
  EXPECT_EQ(BodyOf(first->ReceiveAll(control.loop)), "900");
}

TEST_F(BodyMemoryTest, ABodyThatComesWithItsHeaderCountsAsWell) {
  const auto first = Begin(900, 800);
  EXPECT_EQ(BodyOf(control.Ask(PostTo("/form", 200, std::string(200, 'x')))), "200");
  const auto second = Begin(201, 201);
  EXPECT_TRUE(WasRefused(*second));
}

TEST_F(BodyMemoryTest, ARequestThatWaitsForTheHostKeepsItsRoom) {
  hold = true;
  const auto first = Begin(900, 900);
  ASSERT_EQ(held.size(), 1u);
  hold = false;
  const auto second = Begin(200, 200);
  EXPECT_TRUE(WasRefused(*second));
  tessel.TrapFileData(held[0], "late", false);
  EXPECT_EQ(BodyOf(first->ReceiveAll(control.loop)), "late");
  EXPECT_EQ(BodyOf(control.Ask(PostTo("/form", 1000, std::string(1000, 'x')))), "1000");
}

TEST_F(BodyMemoryTest, AClientThatGoesGivesItsRoomBack) {
  for (const bool reset : {true, false}) {
    const auto gone = Begin(900, 800);
    if (reset) {
      gone->Abort();
    } else {
      gone->Close();
    }
    Settle(control.loop);
    EXPECT_EQ(BodyOf(control.Ask(PostTo("/form", 1000, std::string(1000, 'x')))), "1000") << reset;
  }
}

TEST_F(BodyMemoryTest, ARefusedBodyIsReadAndDroppedSoThatTheAnswerArrives) {
  RawClient client(tessel.ListeningPort());
  EXPECT_TRUE(client.Send(control.loop, PostTo("/form", 2'000'000, std::string(2'000'000, 'x'))));
  client.ReceiveAll(control.loop);
  EXPECT_TRUE(WasRefused(client));
  EXPECT_FALSE(client.WasReset());
}

TEST_F(BodyMemoryTest, AClientThatSendsNoMoreKeepsItsRoomForAsLongAsItStays) {
  const auto first = Begin(900, 800);
  for (int i = 0; i < 500; ++i) {
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
  }
  const auto second = Begin(300, 0);
  EXPECT_TRUE(WasRefused(*second));
  Continue(*first, 100);
  EXPECT_EQ(BodyOf(first->ReceiveAll(control.loop)), "900");
}

TEST(BodyShareTest, CountsWhatABodyTakesOfMemoryAndNotWhatIsInIt) {
  Kit::TestCore kit;
  kit.core.state.settings.TrapFileEnable = true;
  kit.owner.FileRequest = [](std::int32_t&, std::string&, std::string&) {};
  RawClient client(kit.Start());
  client.Send(kit.loop, PostTo("/form", 2000, std::string(700, 'b')));
  for (const std::int64_t counted : {700, 1400, 1400, 2000, 2000}) {
    Settle(kit.loop);
    const std::string& body = kit.SlotAt(2).Fields().RequestBody;
    EXPECT_EQ(kit.core.state.bodyMemory.Used(), counted) << body.size();
    EXPECT_EQ(static_cast<std::int64_t>(body.capacity()), counted) << body.size();
    client.Send(kit.loop, std::string(300, 'c'));
  }
}

TEST(BodyShareTest, CountsOfALongBodyWhatHasComeOfIt) {
  Kit::TestCore kit;
  kit.core.state.settings.TrapFileEnable = true;
  kit.owner.FileRequest = [](std::int32_t&, std::string&, std::string&) {};
  RawClient client(kit.Start());
  client.Send(kit.loop, PostTo("/form", 9'000'000, ""));
  for (const std::size_t sent : {300'000u, 600'000u, 3'000'000u}) {
    const std::size_t before = kit.SlotAt(2).Fields().RequestBody.size();
    ASSERT_TRUE(client.Send(kit.loop, std::string(sent - before, 'b')));
    Settle(kit.loop);
    ASSERT_EQ(kit.SlotAt(2).Fields().RequestBody.size(), sent);
    EXPECT_EQ(kit.core.state.bodyMemory.Used(), static_cast<std::int64_t>(sent));
  }
}

// ---- Bodies that no host can read.

class UnreadBodyTest : public testing::Test {
 protected:
  UnreadBodyTest() {
    core.tree.Write("plain.txt", "plain");
    core.tree.Write("page.html", "<p>page</p>");
    core.tree.Write("tool.exe", "no program");
    core.tree.Write("folder/a.txt", "a");
    core.state().settings.DirectoryBrowseEnable = true;
  }

  void FunctionsAreAnswered() {
    core.state().settings.HTMLFunctionsEnable = true;
    core.owner.CallFunction = [](std::int32_t&, std::string&) {};
  }

  // How many bytes of a body are kept while half of it has come.
  std::size_t Kept(const std::string& path) {
    if (!core.state().running) core.Start();
    RawClient client(core.Port());
    client.Send(core.loop, PostTo(path, 2000, std::string(1000, 'b')));
    Settle(core.loop);
    const std::size_t kept = core.SlotAt(2).Fields().RequestBody.size();
    EXPECT_EQ(core.state().bodyMemory.Used(), static_cast<std::int64_t>(kept)) << path;
    const double before = core.state().statistics.BytesReceived;
    client.Send(core.loop, std::string(1000, 'c'));
    answer = client.ReceiveAll(core.loop);
    EXPECT_EQ(core.state().statistics.BytesReceived, before + 1000) << path << ": counted";
    EXPECT_EQ(core.state().bodyMemory.Used(), 0) << path;
    return kept;
  }

  struct Core : Kit::TestCore {
    ControlState& state() { return core.state; }
  } core;
  std::string answer;
};

TEST_F(UnreadBodyTest, TheBodyForAPlainFileIsDroppedAsItComes) {
  FunctionsAreAnswered();
  EXPECT_EQ(Kept("/plain.txt"), 0u);
  EXPECT_EQ(BodyOf(answer), "plain");
}

TEST_F(UnreadBodyTest, TheBodyForAPageIsKeptWhereAFunctionOfThePageMayReadIt) {
  EXPECT_EQ(Kept("/page.html"), 0u) << "no functions, and no host for them";
  core.state().settings.HTMLFunctionsEnable = true;
  EXPECT_EQ(Kept("/page.html"), 0u) << "no host for them";
  core.owner.CallFunction = [](std::int32_t&, std::string&) {};
  EXPECT_EQ(Kept("/page.html"), 1000u);
  EXPECT_EQ(BodyOf(answer), "<p>page</p>");
  core.state().settings.HTMLFunctionsEnable = false;
  EXPECT_EQ(Kept("/page.html"), 0u) << "no functions";
}

TEST_F(UnreadBodyTest, TheBodyForAProgramIsDropped) {
  FunctionsAreAnswered();
  EXPECT_EQ(Kept("/tool.exe"), 0u);
}

TEST_F(UnreadBodyTest, TheBodyForWhatGetsNoPageOfTheSiteIsDropped) {
  FunctionsAreAnswered();
  EXPECT_EQ(Kept("/missing"), 0u);
  EXPECT_NE(answer.find("404"), std::string::npos);
  EXPECT_EQ(Kept("/folder/"), 0u);
  EXPECT_NE(answer.find("a.txt"), std::string::npos);
}

TEST_F(UnreadBodyTest, AnErrorPageOfTheSiteMayAskForTheBody) {
  FunctionsAreAnswered();
  core.state().settings.ErrorFilesEnable = true;
  EXPECT_EQ(Kept("/missing"), 1000u);
}

TEST_F(UnreadBodyTest, TheBodyOfATrappedRequestIsKept) {
  core.state().settings.TrapFileEnable = true;
  core.state().settings.TrapFileTypes = "txt";
  EXPECT_EQ(Kept("/plain.txt"), 0u) << "no host listens";
  core.owner.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    core.core.hostAnswers.TrapFileData(index, core.core.hostAnswers.RequestBody(index), false, "text/plain");
  };
  EXPECT_EQ(Kept("/plain.txt"), 1000u);
  EXPECT_EQ(BodyOf(answer), std::string(1000, 'b') + std::string(1000, 'c'));
}

TEST_F(UnreadBodyTest, ABodyThatIsDroppedNeedsNoRoom) {
  core.state().bodyMemory.Limit(10);
  EXPECT_EQ(Kept("/plain.txt"), 0u);
  EXPECT_EQ(BodyOf(answer), "plain");
  RawClient whole(core.Port());
  whole.Send(core.loop, PostTo("/plain.txt", 100, std::string(100, 'x')));
  EXPECT_EQ(BodyOf(whole.ReceiveAll(core.loop)), "plain") << "also when it comes with its header";
}

}  // namespace
}  // namespace TesselServer
