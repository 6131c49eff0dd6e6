// How announced bodies are collected.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "control/connection/Reception.h"
#include "tests/kit/Memory.h"
#include "tests/kit/Receptions.h"

namespace TesselServer {
namespace {

using Kit::Outcome;

// A header block of 104 bytes with its blank line, announcing `length`.
std::string Header(std::int64_t length) {
  std::string header = "POST /form HTTP/1.0\r\nContent-Length: " + std::to_string(length) + "\r\nX-Fill: ";
  header += std::string(104 - 4 - header.size(), 'f');
  return header + "\r\n\r\n";
}

// Body bytes that tell their place.
std::string Body(std::size_t length) {
  std::string body;
  for (std::size_t i = 0; i < length; ++i) body += static_cast<char>('A' + i % 50);
  return body;
}

TEST(ReceptionBodyTest, CollectsWhatWasAnnounced) {
  struct {
    const char* name;
    std::int64_t length;
    std::vector<std::size_t> bodyPieces;  // the first one comes with the header block
    std::vector<Outcome> outcomes;
    std::size_t kept;
  } const cases[] = {
      {"one chunk, exact", 20, {20}, {Outcome::kComplete}, 20},
      {"one chunk, short by 5", 20, {15}, {Outcome::kGrace}, 15},
      {"one chunk, short by 8", 20, {12}, {Outcome::kGrace}, 12},
      {"one chunk, short by 9", 20, {11}, {Outcome::kWaiting}, 11},
      {"header, then body", 20, {0, 20}, {Outcome::kWaiting, Outcome::kComplete}, 20},
      {"header, then a body within the tolerance", 5, {0, 5}, {Outcome::kLateBody, Outcome::kComplete}, 5},
      {"header, then a body beyond it", 9, {0, 9}, {Outcome::kWaiting, Outcome::kComplete}, 9},
      {"three chunks", 50, {0, 30, 20}, {Outcome::kWaiting, Outcome::kWaiting, Outcome::kComplete}, 50},
      {"the first with the header", 50, {10, 20, 20}, {Outcome::kWaiting, Outcome::kWaiting, Outcome::kComplete}, 50},
      {"six late bytes", 50, {0, 44, 6}, {Outcome::kWaiting, Outcome::kGrace, Outcome::kComplete}, 50},
      {"more than announced, one chunk", 20, {22}, {Outcome::kComplete}, 20},
      {"more than announced, second chunk", 20, {0, 22}, {Outcome::kWaiting, Outcome::kComplete}, 20},
      {"nothing follows", 20, {0}, {Outcome::kWaiting}, 0},
      {"still short, again and again",
       20,
       {12, 1, 1, 6},
       {Outcome::kGrace, Outcome::kGrace, Outcome::kGrace, Outcome::kComplete},
       20},
      {"an empty chunk changes nothing",
       20,
       {11, 0, 0, 9},
       {Outcome::kWaiting, Outcome::kWaiting, Outcome::kWaiting, Outcome::kComplete},
       20},
  };
  for (const auto& c : cases) {
    std::size_t total = 0;
    for (const auto size : c.bodyPieces) total += size;
    const std::string body = Body(total);
    Reception reception;
    std::size_t at = 0;
    for (std::size_t i = 0; i < c.bodyPieces.size(); ++i) {
      const auto piece = body.substr(at, c.bodyPieces[i]);
      at += piece.size();
      EXPECT_EQ(reception.Data(i == 0 ? Header(c.length) + piece : piece), c.outcomes[i]) << c.name << ", chunk " << i;
    }
    EXPECT_EQ(reception.Fields().RequestBody, body.substr(0, c.kept)) << c.name;
    EXPECT_EQ(reception.Fields().BodyWritePos, static_cast<std::int64_t>(c.kept) + 1) << c.name;
    EXPECT_EQ(reception.Fields().HeaderEndPos, 101) << c.name;
    EXPECT_EQ(reception.Fields().BodyPending, c.outcomes.back() != Outcome::kComplete) << c.name;
    EXPECT_EQ(reception.Fields().ContentLengthText, std::to_string(c.length)) << c.name;
  }
}

TEST(ReceptionBodyTest, WaitsAShortTimeForTheLastEightBytes) {
  struct {
    std::size_t sent;
    Outcome outcome, afterTime;
  } const cases[] = {
      {11, Outcome::kWaiting, Outcome::kIgnored},
      {12, Outcome::kGrace, Outcome::kComplete},
      {19, Outcome::kGrace, Outcome::kComplete},
      {20, Outcome::kComplete, Outcome::kIgnored},
  };
  for (const auto& c : cases) {
    Reception reception;
    EXPECT_EQ(reception.Data(Header(20) + Body(c.sent)), c.outcome) << c.sent;
    EXPECT_EQ(reception.TimeUp(), c.afterTime) << c.sent;
    EXPECT_EQ(reception.Fields().RequestBody, Body(c.sent)) << c.sent;
  }
}

TEST(ReceptionBodyTest, BodyThatComesAfterItsGraceIsDropped) {
  Reception reception;
  EXPECT_EQ(reception.Data(Header(20) + Body(15)), Outcome::kGrace);
  EXPECT_EQ(reception.TimeUp(), Outcome::kComplete);
  EXPECT_EQ(reception.Data("late!"), Outcome::kIgnored);
  EXPECT_EQ(reception.Fields().RequestBody, Body(15));
}

TEST(ReceptionBodyTest, MissingLengthIsAnsweredOnceAndTheRestDropped) {
  Reception reception;
  EXPECT_EQ(reception.Data("POST /form HTTP/1.0\r\n\r\nbody"), Outcome::kBad);
  EXPECT_FALSE(reception.Fields().BodyPending);
  EXPECT_EQ(reception.Data("more"), Outcome::kIgnored);
  EXPECT_EQ(reception.Data("POST /form HTTP/1.0\r\n\r\n"), Outcome::kIgnored);
}

TEST(ReceptionBodyTest, BytesPassUnchanged) {
  std::string body;
  for (int i = 0; i < 256; ++i) body += static_cast<char>(i);
  body += "\r\n\r\n  ";  // and no trimming
  Reception reception;
  EXPECT_EQ(reception.Data(Header(static_cast<std::int64_t>(body.size())) + body), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, body);
}

TEST(ReceptionBodyTest, BlanksAroundAChunkAreBodyBytes) {
  Reception reception;
  EXPECT_EQ(reception.Data("  " + Header(11) + "  "), Outcome::kWaiting);
  EXPECT_EQ(reception.Fields().HeaderEndPos, 103) << "counted in the bytes as they came";
  EXPECT_EQ(reception.Data(" middle "), Outcome::kGrace);
  EXPECT_EQ(reception.Data(" "), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, "   middle  ");
}

TEST(ReceptionBodyTest, HeaderBytesAreNeverBody) {
  // The header block's end comes after it was given up, in any cut.
  const std::string start = "POST /a HTTP/1.0\r\nContent-Length: 20\r\nX: y";
  const std::string rest = "z\r\nLate: field\r\n\r\n" + Body(20);
  for (const auto& pieces : Kit::AllCuts(rest)) {
    Reception reception;
    ASSERT_EQ(reception.Data(start), Outcome::kHolding);
    ASSERT_EQ(reception.TimeUp(), Outcome::kWaiting);
    EXPECT_TRUE(reception.Fields().BodyPending);
    EXPECT_EQ(Kit::Answer(Kit::Bring(reception, pieces)), Outcome::kComplete);
    EXPECT_EQ(reception.Fields().RequestBody, Body(20));
    EXPECT_EQ(reception.Fields().RequestHeader, "");
    EXPECT_FALSE(reception.InputMayCome());
  }
}

TEST(ReceptionBodyTest, TheBlankLineMayLieAcrossTheMomentOfGivingUp) {
  for (const std::string held : {"\r", "\r\n", "\r\n\r"}) {
    Reception reception;
    ASSERT_EQ(reception.Data("POST /a HTTP/1.0\r\nContent-Length: 20" + held), Outcome::kHolding);
    ASSERT_EQ(reception.TimeUp(), Outcome::kWaiting);
    EXPECT_EQ(reception.Data(std::string("\r\n\r\n").substr(held.size()) + Body(20)), Outcome::kComplete);
    EXPECT_EQ(reception.Fields().RequestBody, Body(20));
  }
}

TEST(ReceptionBodyTest, AShortBodyAfterAGivenUpHeaderHasItsGrace) {
  Reception reception;
  ASSERT_EQ(reception.Data("POST /a HTTP/1.0\r\nContent-Length: 5\r\n"), Outcome::kHolding);
  EXPECT_EQ(reception.TimeUp(), Outcome::kLateBody);
  EXPECT_EQ(reception.Data("X: y\r\n\r\n123"), Outcome::kGrace);
  EXPECT_EQ(reception.TimeUp(), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, "123");
}

TEST(ReceptionBodyTest, ABodyThatMayComeLateIsAwaitedForLonger) {
  const std::string expects = "POST /a HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: ";
  struct {
    std::string bytes;
    Outcome outcome;
    const char* why;
  } const cases[] = {
      {Header(8), Outcome::kLateBody, "nothing of it has come"},
      {Header(8) + "1", Outcome::kGrace, "it has begun"},
      {Header(9), Outcome::kWaiting, "a longer one is awaited without end"},
      {expects + "8\r\n\r\n", Outcome::kLateBody, "nothing of it has come"},
      {expects + "8\r\n\r\n1234567", Outcome::kLateBody, "the client takes its time"},
      {expects + "9\r\n\r\n", Outcome::kWaiting, "a longer one is awaited without end"},
      {expects + "20\r\n\r\n" + Body(12), Outcome::kLateBody, "the client takes its time"},
      {expects + "4\r\n\r\n1234", Outcome::kComplete, "it is there"},
      {"POST /a HTTP/1.0\r\nExpect: 200-ok\r\nContent-Length: 8\r\n\r\n1", Outcome::kGrace, "something else"},
      {"POST /a HTTP/1.0\r\nX-Expect: 100-continue\r\nContent-Length: 8\r\n\r\n1", Outcome::kGrace, "another name"},
      {"POST /a HTTP/1.0\r\nContent-Length: 40\r\n\r\n\r\nExpect: 100-continue\r\n" + Body(9), Outcome::kGrace,
       "a part of the body"},
  };
  for (const auto& c : cases) {
    Reception reception;
    EXPECT_EQ(reception.Data(c.bytes), c.outcome) << c.bytes << ": " << c.why;
    EXPECT_EQ(reception.TimeUp(),
              c.outcome == Outcome::kGrace || c.outcome == Outcome::kLateBody ? Outcome::kComplete : Outcome::kIgnored)
        << c.bytes;
  }
}

// ---- What the caller decides.

TEST(ReceptionBodyTest, AnUnreadBodyIsCountedAndDropped) {
  Reception reception;
  ASSERT_EQ(reception.Data(Header(300) + Body(100)), Outcome::kWaiting);
  EXPECT_EQ(reception.Body(), Reception::BodyUse::kUndecided);
  EXPECT_EQ(reception.AnnouncedBytes(), 300);
  reception.Body(Reception::BodyUse::kDropped);
  EXPECT_EQ(reception.Fields().RequestBody, "");
  EXPECT_LE(reception.Fields().RequestBody.capacity(), 64U) << "its memory goes";
  EXPECT_EQ(reception.Data(Body(195)), Outcome::kGrace);
  EXPECT_EQ(reception.Data(Body(5)), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, "");
  EXPECT_EQ(reception.Fields().ContentLengthText, "300");
  EXPECT_FALSE(reception.InputMayCome());
  reception.Reset();
  EXPECT_EQ(reception.Body(), Reception::BodyUse::kUndecided);
  ASSERT_EQ(reception.Data(Header(30) + Body(30)), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, Body(30)) << "the next one's is kept";
}

TEST(ReceptionBodyTest, ABodyThatIsKeptIsWhole) {
  Reception reception;
  ASSERT_EQ(reception.Data(Header(30) + Body(10)), Outcome::kWaiting);
  reception.Body(Reception::BodyUse::kKept);
  EXPECT_EQ(reception.Data(Body(30).substr(10)), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, Body(30));
}

TEST(ReceptionBodyTest, ARefusedBodyIsABadRequestWhateverHasCome) {
  for (const std::size_t sent : {0u, 100u, 295u, 300u}) {
    Reception reception;
    reception.Data(Header(300) + Body(sent));
    EXPECT_EQ(reception.Refuse(), Outcome::kBad) << sent;
    EXPECT_EQ(reception.Fields().RequestBody, "") << sent;
    EXPECT_FALSE(reception.Fields().BodyPending) << sent;
    EXPECT_NE(reception.Fields().RequestPath, "") << sent;
    EXPECT_EQ(reception.Data(Body(200)), Outcome::kIgnored) << sent << ": one answer";
    EXPECT_EQ(reception.TimeUp(), Outcome::kIgnored) << sent;
    EXPECT_TRUE(reception.InputMayCome()) << sent;
  }
}

TEST(ReceptionBodyTest, MemoryGrowsByWhatArrives) {
  Reception reception;
  EXPECT_EQ(reception.Data(Header(60'000'000) + Body(100)), Outcome::kWaiting);
  EXPECT_LT(reception.Fields().RequestBody.capacity(), 4096U);
  std::string all = Body(100);
  const std::string piece = Body(50'000);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(reception.Data(piece), Outcome::kWaiting);
    all += piece;
    EXPECT_LE(reception.BodyBytes(), static_cast<std::int64_t>(2 * all.size()));
    EXPECT_GE(reception.BodyBytes(), static_cast<std::int64_t>(all.size()));
  }
  EXPECT_EQ(reception.Fields().RequestBody, all);
}

TEST(ReceptionBodyTest, OnlyTheBeginningOfALongBodyIsEverMoved) {
  Reception reception;
  ASSERT_EQ(reception.Data(Header(20'000'000)), Outcome::kWaiting);
  const auto& body = reception.Fields().RequestBody;
  const std::string piece = Body(10'000);
  std::size_t longestMoved = 0;
  while (body.size() + piece.size() < 20'000'000) {
    const auto* before = body.data();
    const std::size_t size = body.size();
    ASSERT_EQ(reception.Data(piece), Outcome::kWaiting);
    if (body.data() != before) longestMoved = std::max(longestMoved, size);
  }
  EXPECT_LE(longestMoved, Reception::kMovedAtMost);
  EXPECT_GE(longestMoved, Reception::kMovedAtMost / 4) << "room is made as it comes before that";
  EXPECT_EQ(reception.Data(piece), Outcome::kComplete);
  EXPECT_EQ(reception.BodyBytes(), 20'000'000);
}

TEST(ReceptionBodyTest, WhatIsAnnouncedTakesNoMemoryBeforeItComes) {
  Reception reception;
  const std::string start = Header(60'000'000) + Body(400'000);
  const std::int64_t before = Kit::ResidentBytes();
  ASSERT_GT(before, 0);
  ASSERT_EQ(reception.Data(start.substr(0, 200'000)), Outcome::kWaiting);
  ASSERT_EQ(reception.Data(start.substr(200'000)), Outcome::kWaiting);
  ASSERT_GE(reception.Fields().RequestBody.capacity(), 60'000'000u);
  EXPECT_LT(Kit::ResidentBytes(), before + 20'000'000);
  EXPECT_EQ(reception.BodyBytes(), 400'000);
}

TEST(ReceptionBodyTest, MemoryNeverGoesBeyondWhatWasAnnounced) {
  Reception reception;
  reception.Data(Header(100'000));
  EXPECT_EQ(reception.Data(Body(60'000)), Outcome::kWaiting);
  EXPECT_EQ(reception.Data(Body(1'000'000)), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestBody, Body(60'000) + Body(40'000));
  EXPECT_LE(reception.Fields().RequestBody.capacity(), 100'001U);
}

}  // namespace
}  // namespace TesselServer
