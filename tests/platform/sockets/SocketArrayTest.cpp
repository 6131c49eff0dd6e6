#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/sockets/SocketArray.h"
#include "platform/world/Error.h"
#include "tests/kit/SocketTest.h"

namespace TesselServer {
namespace {

template <typename Action>
std::int32_t ErrorOf(Action&& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.Number();
  }
  return 0;
}

class SocketArrayTest : public Kit::SocketTest {
 protected:
  SocketArrayTest() : SocketTest(0) {}
};

TEST_F(SocketArrayTest, HasNoElementsAtFirst) {
  EXPECT_EQ(sockets.HighestIndex(), -1);
  EXPECT_FALSE(sockets.IsLoaded(0));
  EXPECT_EQ(sockets.LowestClosed(0, 10'000), -1);
  EXPECT_EQ(sockets.LowestFree(0, 10'000), -1);
}

TEST_F(SocketArrayTest, ALoadedElementIsClosed) {
  sockets.Load(3);
  EXPECT_TRUE(sockets.IsLoaded(3));
  EXPECT_FALSE(sockets.IsLoaded(2));
  EXPECT_EQ(sockets.State(3), SocketState::kClosed);
  EXPECT_EQ(sockets.HighestIndex(), 3);
  EXPECT_NE(sockets.Generation(3), 0u);
}

TEST_F(SocketArrayTest, LoadingTwiceIsError360) {
  sockets.Load(2);
  const std::uint64_t generation = sockets.Generation(2);
  try {
    sockets.Load(2);
    ADD_FAILURE();
  } catch (const Error& error) {
    EXPECT_EQ(error.Number(), ErrorNumber::kAlreadyLoaded);
    EXPECT_EQ(error.Description(), "Object already loaded");
  }
  EXPECT_EQ(sockets.Generation(2), generation) << "and leaves the element alone";
  sockets.Unload(2);
  EXPECT_EQ(ErrorOf([&] { sockets.Load(2); }), 0) << "an unloaded one may be loaded again";
}

TEST_F(SocketArrayTest, ANumberOutsideTheArrayIsASubscriptError) {
  for (const std::int32_t index : {-1, -2'147'483'647, 10'001, 2'147'483'647}) {
    EXPECT_EQ(ErrorOf([&] { sockets.Load(index); }), ErrorNumber::kSubscript) << index;
    EXPECT_EQ(ErrorOf([&] { sockets.Reload(index); }), ErrorNumber::kSubscript) << index;
  }
  EXPECT_EQ(ErrorOf([&] { sockets.Load(10'000); }), 0);
  EXPECT_EQ(ErrorOf([&] { sockets.Load(0); }), 0);
}

TEST_F(SocketArrayTest, AnElementThatDoesNotExistIsNotFreeAndDoesNothing) {
  sockets.Load(2);
  for (const std::int32_t index : {-1, 0, 1, 3, 10'000, 10'001, 65'536 + 2}) {
    EXPECT_EQ(sockets.State(index), SocketState::kConnected) << index;
    EXPECT_EQ(sockets.Generation(index), 0u) << index;
    EXPECT_EQ(sockets.RemoteHostIP(index), "") << index;
    EXPECT_EQ(sockets.BoundPort(index), 0) << index;
    EXPECT_EQ(sockets.GetData(index), "") << index;
    sockets.Close(index);
    sockets.Unload(index);
    sockets.LocalPort(index, 80);
    sockets.Bind(index, 80, "no address");
    sockets.Listen(index);
    sockets.OfferWaiting(index);
    sockets.AnswerPending(index, true);
    sockets.InputMayCome(index, false);
    EXPECT_EQ(ErrorOf([&] { sockets.SendData(index, Kit::TextAnswer("x")); }), 10057) << index;
    EXPECT_FALSE(sockets.IsLoaded(index)) << index;
  }
  EXPECT_TRUE(owner.heard.empty());
}

TEST_F(SocketArrayTest, AClosedElementCarriesNothing) {
  sockets.Load(2);
  EXPECT_EQ(sockets.RemoteHostIP(2), "");
  EXPECT_EQ(sockets.BoundPort(2), 0);
  EXPECT_EQ(ErrorOf([&] { sockets.SendData(2, Kit::TextAnswer("x")); }), 10057);
  sockets.AnswerPending(2, true);
  sockets.Close(2);
  sockets.OfferWaiting(2);
  EXPECT_EQ(sockets.State(2), SocketState::kClosed);
}

TEST_F(SocketArrayTest, TheHighestNumberIsRemembered) {
  sockets.Load(7);
  sockets.Load(3);
  sockets.Unload(7);
  EXPECT_EQ(sockets.HighestIndex(), 7);
  EXPECT_FALSE(sockets.IsLoaded(7));
}

TEST_F(SocketArrayTest, TheLowestFreeOneIsFoundAmongTenThousand) {
  for (std::int32_t i = 10'000; i >= 2; --i) sockets.Load(i);
  EXPECT_EQ(sockets.LowestClosed(2, 10'000), 2);
  EXPECT_EQ(sockets.LowestClosed(0, 1), -1) << "there is none that low";
  EXPECT_EQ(sockets.LowestClosed(5000, 10'000), 5000);
  for (std::int32_t i = 2; i <= 9998; ++i) sockets.Unload(i);
  EXPECT_EQ(sockets.LowestClosed(2, 10'000), 9999);
  EXPECT_EQ(sockets.LowestFree(2, 10'000), 9999);
  EXPECT_EQ(sockets.LowestClosed(2, 9998), -1);
  EXPECT_EQ(sockets.LowestFree(2, 9998), -1);
  EXPECT_EQ(sockets.LowestClosed(10'000, 10'000), 10'000);
  EXPECT_EQ(sockets.LowestClosed(10'001, 20'000), -1);
  EXPECT_EQ(sockets.LowestClosed(5, 4), -1) << "an empty range";
  EXPECT_EQ(sockets.LowestClosed(-1, 10'000), -1) << "no element has such a number";
}

TEST_F(SocketArrayTest, ConnectedAndListeningElementsAreNotFree) {
  port = owner.Listen(2);
  EXPECT_EQ(sockets.State(1), SocketState::kListening);
  EXPECT_EQ(sockets.LowestFree(0, 1), -1);
  const auto client = Connect();
  EXPECT_EQ(sockets.State(2), SocketState::kConnected);
  EXPECT_EQ(sockets.LowestClosed(2, 3), 3);
  EXPECT_EQ(sockets.LowestFree(2, 3), 3);
}

TEST_F(SocketArrayTest, ClosingAndFailedElementsAreFreeButNotClosed) {
  port = owner.Listen(2);
  const auto ended = Connect();
  Kit::RawClient aborted(port);
  aborted.Send(loop, "hello");
  Kit::Settle(loop);
  ended->EndSending();
  aborted.Abort();
  Kit::Settle(loop);
  EXPECT_EQ(sockets.State(2), SocketState::kClosing);
  EXPECT_EQ(sockets.State(3), SocketState::kError);
  EXPECT_EQ(sockets.LowestClosed(2, 3), -1);
  EXPECT_EQ(sockets.LowestFree(2, 3), 2);
  EXPECT_EQ(sockets.LowestFree(3, 3), 3);
  sockets.Reload(3);
  EXPECT_EQ(sockets.LowestClosed(2, 3), 3);
  sockets.Unload(2);
  EXPECT_EQ(sockets.LowestFree(2, 2), -1);
}

TEST_F(SocketArrayTest, TheGenerationChangesWithEachLoadAcceptAndClose) {
  port = owner.Listen(1);
  std::vector<std::uint64_t> seen = {sockets.Generation(2)};
  const auto changed = [&] {
    const std::uint64_t now = sockets.Generation(2);
    for (const std::uint64_t each : seen) {
      if (each == now) return false;
    }
    seen.push_back(now);
    return true;
  };
  EXPECT_FALSE(changed());
  const auto client = Connect();
  EXPECT_TRUE(changed()) << "accepted";
  sockets.SendData(2, Kit::TextAnswer("answer"));
  Kit::Settle(loop);
  EXPECT_FALSE(changed()) << "sending is the same life";
  sockets.Close(2);
  EXPECT_TRUE(changed()) << "closed";
  sockets.Reload(2);
  EXPECT_TRUE(changed()) << "reloaded";
  sockets.Unload(2);
  EXPECT_TRUE(changed()) << "gone";
  sockets.Load(2);
  EXPECT_TRUE(changed()) << "loaded";
}

TEST_F(SocketArrayTest, TellsWhereThePeerIs) {
  port = owner.Listen(1);
  const auto client = Connect();
  EXPECT_EQ(sockets.RemoteHostIP(2), "127.0.0.1");
  EXPECT_EQ(sockets.RemoteHostIP(1), "");
  sockets.Close(2);
  EXPECT_EQ(sockets.RemoteHostIP(2), "");
}

TEST_F(SocketArrayTest, AFreshElementKnowsNothingOfItsPredecessorsAddress) {
  port = owner.Listen(1);
  struct {
    const char* how;
    std::function<void()> renew;
  } const cases[] = {
      {"reloaded", [&] { sockets.Reload(1); }},
      {"loaded again", [&] { sockets.Unload(1), sockets.Load(1); }},
  };
  for (const auto& c : cases) {
    sockets.Close(1);
    sockets.Bind(1, port, "127.0.0.1");
    sockets.Listen(1);
    ASSERT_EQ(sockets.BoundPort(1), port) << c.how;
    c.renew();
    EXPECT_EQ(sockets.State(1), SocketState::kClosed) << c.how;
    Kit::SocketOwner other(loop);
    other.sockets.Load(1);
    other.sockets.Bind(1, port, "127.0.0.1");
    other.sockets.Listen(1);
    EXPECT_EQ(ErrorOf([&] { sockets.Listen(1); }), 0) << c.how << ": it does not want the port that is in use now";
  }
}

TEST_F(SocketArrayTest, ReloadingLoadsAnElementThatIsNotThere) {
  sockets.Reload(4);
  EXPECT_TRUE(sockets.IsLoaded(4));
  EXPECT_EQ(sockets.State(4), SocketState::kClosed);
}

}  // namespace
}  // namespace TesselServer
