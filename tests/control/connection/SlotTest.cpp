// What a slot keeps from one client to the next.

#include <gtest/gtest.h>

#include <memory>

#include "control/connection/Slot.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

TEST(SlotTest, AResetForgetsTheClientAndKeepsTheRecord) {
  Kit::FakeWorld world;
  const auto record = std::make_shared<cls_HTTP>(world);
  Slot slot(std::make_unique<Reception>());
  slot.Record = record;
  slot.NotTrapped = false;
  slot.SecondaryAccepted = true;
  slot.LastActivity = 5;
  slot.Fields().RequestQuery = "a=1";
  slot.FunctionResult = std::make_shared<const std::string>("answer");
  slot.FunctionAnswered = true;
  slot.Enter(RequestPhase::kOfferedToHost);
  slot.TrapData = "data";
  slot.TargetIsKnown = slot.TargetIsInCGIDirectory = true;
  slot.Reset(0);
  EXPECT_EQ(slot.Record, record);
  EXPECT_FALSE(slot.NotTrapped);
  EXPECT_TRUE(slot.SecondaryAccepted);
  EXPECT_EQ(slot.LastActivity, 5);
  EXPECT_EQ(slot.Fields().RequestQuery + slot.TrapData, "");
  EXPECT_EQ(slot.FunctionResult, nullptr);
  EXPECT_FALSE(slot.FunctionAnswered || slot.TargetIsKnown || slot.TargetIsInCGIDirectory);
}

TEST(SlotTest, AResetGivesLargeMemoryBack) {
  const std::string large(RequestFields::kKeptBytes + 1, 'x');
  Slot slot(std::make_unique<Reception>());
  RequestFields& fields = slot.Fields();
  for (std::string* text :
       {&fields.RequestLine,       &fields.DocumentURI,        &fields.RequestPath,   &fields.RequestQuery,
        &fields.RequestMethod,     &fields.RequestHeader,      &fields.RequestAccept, &fields.RequestReferer,
        &fields.RequestUserAgent,  &fields.RequestContentType, &fields.AuthUser,      &fields.AuthPassword,
        &fields.ContentLengthText, &fields.RequestBody,        &slot.ScriptName,      &slot.TrapData,
        &slot.TrapContentType,     &slot.TrapHeaderField,      &slot.TrapStatusCode,  &slot.Target.name}) {
    *text = large;
    slot.Reset(0);
    EXPECT_EQ(*text, "");
    EXPECT_LE(text->capacity(), RequestFields::kKeptBytes);
  }
  slot.QueryParser.QueryString(large);
  slot.Reset(0);
  EXPECT_EQ(slot.QueryParser.QueryString(), "");
  EXPECT_LE(slot.QueryParser.QueryString().capacity(), RequestFields::kKeptBytes);
}

TEST(SlotTest, AResetKeepsSmallMemoryForTheNextRequest) {
  Slot slot(std::make_unique<Reception>());
  slot.Fields().RequestLine = std::string(RequestFields::kKeptBytes, 'x');
  const char* const memory = slot.Fields().RequestLine.data();
  slot.Reset(0);
  slot.Fields().RequestLine = std::string_view("GET /a/path/that/is/no/longer/than/that HTTP/1.0");
  EXPECT_EQ(slot.Fields().RequestLine.data(), memory);
}

TEST(SlotTest, AResetSetsTheLimitOfABody) {
  Slot slot(std::make_unique<Reception>());
  static_cast<Reception&>(*slot.Input).Data("POST / HT");
  slot.Reset(5);
  EXPECT_EQ(static_cast<Reception&>(*slot.Input).Data("POST / HTTP/1.0\r\nContent-Length: 6\r\n\r\n"),
            Reception::Outcome::kBad);
  slot.Reset(6);
  EXPECT_EQ(static_cast<Reception&>(*slot.Input).Data("POST / HTTP/1.0\r\nContent-Length: 6\r\n\r\nsix(6)"),
            Reception::Outcome::kComplete);
}

TEST(SlotTest, ARecordAtWorkStaysWithItsWork) {
  Kit::FakeWorld world;
  Slot slot(std::make_unique<Reception>());
  slot.Record = std::make_shared<cls_HTTP>(world);
  slot.Enter(RequestPhase::kAnswering);
  slot.Reset(0);
  EXPECT_EQ(slot.Record, nullptr) << "the next client gets one of its own";
  EXPECT_EQ(slot.Phase(), RequestPhase::kReceiving);
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
