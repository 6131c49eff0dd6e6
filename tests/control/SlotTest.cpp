// What a slot keeps from one client to the next.

#include <gtest/gtest.h>

#include <memory>

#include "control/internal/Slot.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

TEST(SlotTest, AResetForgetsTheClientAndKeepsTheRecord) {
  Kit::FakeWorld world;
  const auto record = std::make_shared<cls_HTTP>(world);
  Slot slot;
  slot.Record = record;
  slot.NotTrapped = false;
  slot.SecondaryAccepted = true;
  slot.LastActivity = 5;
  slot.Fields().RequestQuery = "a=1";
  slot.FunctionResult = "answer";
  slot.FunctionAnswered = true;
  slot.TrapOutstanding = true;
  slot.TrapData = "data";
  slot.TargetIsKnown = slot.TargetIsInCGIDirectory = true;
  slot.Reset(0);
  EXPECT_EQ(slot.Record, record);
  EXPECT_FALSE(slot.NotTrapped);
  EXPECT_TRUE(slot.SecondaryAccepted);
  EXPECT_EQ(slot.LastActivity, 5);
  EXPECT_EQ(slot.Fields().RequestQuery + slot.FunctionResult + slot.TrapData, "");
  EXPECT_FALSE(slot.FunctionAnswered || slot.TrapOutstanding || slot.TargetIsKnown || slot.TargetIsInCGIDirectory);
}

TEST(SlotTest, ARecordAtWorkStaysWithItsWork) {
  Kit::FakeWorld world;
  Slot slot;
  slot.Record = std::make_shared<cls_HTTP>(world);
  slot.BeingAnswered = true;
  slot.Reset(0);
  EXPECT_EQ(slot.Record, nullptr) << "the next client gets one of its own";
  EXPECT_FALSE(slot.BeingAnswered);
}

TEST(SlotTest, TheRecordOfARequestServesTheNext) {
  Kit::TestCore core;
  core.tree.Write("a.txt", "text");
  core.Start();
  core.Get("/a.txt");
  const auto record = core.SlotAt(2).Record;
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->Runner(), nullptr) << "it runs no programs between requests";
  core.Get("/a.txt");
  EXPECT_EQ(core.SlotAt(2).Record, record);
}

}  // namespace
}  // namespace TesselServer
