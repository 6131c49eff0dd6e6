#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <list>
#include <thread>
#include <utility>

#include "platform/programs/OwnedChild.h"
#include "tests/kit/Programs.h"

namespace TesselServer {
namespace {

pid_t ForkForEver() {
  const pid_t child = fork();
  while (child == 0) pause();
  return child;
}

// Returns when it can be collected.
void Kill(pid_t child) {
  kill(child, SIGKILL);
  siginfo_t state{};
  waitid(P_PID, static_cast<id_t>(child), &state, WEXITED | WNOWAIT);
}

OwnedChild Own(pid_t child) {
  OwnedChild owned;
  owned.MakeRoom();
  owned.Own(child);
  return owned;
}

TEST(OwnedChildTest, OneThatHasEndedIsCollectedWithItsOwner) {
  const pid_t child = ForkForEver();
  {
    const OwnedChild owned = Own(child);
    EXPECT_EQ(owned.Number(), child);
    Kill(child);
  }
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST(OwnedChildTest, OneThatLivesOnGoesToTheProcessOnWhateverThread) {
  const pid_t child = ForkForEver();
  std::thread([owned = Own(child)] {}).join();
  EXPECT_FALSE(Kit::HasNoChild());
  EXPECT_TRUE(OwnedChild::CollectAbandoned()) << "it lives";
  Kill(child);
  EXPECT_FALSE(OwnedChild::CollectAbandoned());
  EXPECT_TRUE(Kit::HasNoChild());
}

TEST(OwnedChildTest, MovesWithItsOwner) {
  const pid_t child = ForkForEver();
  OwnedChild first = Own(child);
  OwnedChild second = std::move(first);
  EXPECT_EQ(second.Number(), child);
  OwnedChild third;
  third = std::move(second);
  EXPECT_EQ(third.Number(), child);
  std::list<pid_t> others;
  third.MoveTo(others);
  EXPECT_EQ(others, std::list<pid_t>{child});
  EXPECT_EQ(third.Number(), -1);
  Kill(child);
  EXPECT_TRUE(CollectChild(child));
  EXPECT_TRUE(CollectChild(child)) << "there is none of that number any more";
}

TEST(OwnedChildTest, OneWithoutAChildCollectsNothing) {
  const pid_t hosts = ForkForEver();
  Kill(hosts);
  {
    const OwnedChild none;
    EXPECT_EQ(none.Number(), -1);
  }
  EXPECT_EQ(waitpid(hosts, nullptr, WNOHANG), hosts);
}

}  // namespace
}  // namespace TesselServer
