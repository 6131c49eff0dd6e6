// Helpers for tests that bring a connection's bytes to reception.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "control/connection/Reception.h"
#include "tests/kit/Cuts.h"

namespace TesselServer {

// So that a failed expectation names the outcome.
inline void PrintTo(Reception::Outcome outcome, std::ostream* out) {
  constexpr const char* kNames[] = {"kWaiting", "kHolding", "kGrace", "kLateBody", "kComplete", "kBad", "kIgnored"};
  *out << kNames[static_cast<std::size_t>(outcome)];
}

namespace Kit {

using Outcome = Reception::Outcome;

inline bool IsFinal(Outcome outcome) { return outcome == Outcome::kComplete || outcome == Outcome::kBad; }

// Every field with its name, for comparisons that show what differs.
inline std::string Describe(const RequestFields& fields) {
  const std::pair<const char*, std::string> texts[] = {
      {"RequestLine", fields.RequestLine},
      {"DocumentURI", fields.DocumentURI},
      {"RequestPath", fields.RequestPath},
      {"RequestQuery", fields.RequestQuery},
      {"RequestMethod", fields.RequestMethod},
      {"RequestHeader", fields.RequestHeader},
      {"RequestAccept", fields.RequestAccept},
      {"RequestReferer", fields.RequestReferer},
      {"RequestUserAgent", fields.RequestUserAgent},
      {"RequestContentType", fields.RequestContentType},
      {"AuthUser", fields.AuthUser},
      {"AuthPassword", fields.AuthPassword},
      {"ContentLengthText", fields.ContentLengthText},
      {"RequestBody", fields.RequestBody},
      {"ExpectsContinue", fields.ExpectsContinue ? "True" : "False"},
      {"BodyPending", fields.BodyPending ? "True" : "False"},
      {"BodyWritePos", std::to_string(fields.BodyWritePos)},
      {"HeaderEndPos", std::to_string(fields.HeaderEndPos)},
  };
  std::string description;
  for (const auto& [name, text] : texts) description += std::string(name) + "=<" + text + ">\n";
  return description;
}

// Brings the pieces to `reception` one after the other and returns each outcome.
inline std::vector<Outcome> Bring(Reception& reception, const Pieces& pieces) {
  std::vector<Outcome> outcomes;
  for (const auto piece : pieces) outcomes.push_back(reception.Data(piece));
  return outcomes;
}

// What a client hears of its request: the one final outcome, or the last one while there is none. Fails the test when
// a request is answered twice, or when anything but kIgnored follows the answer.
inline Outcome Answer(const std::vector<Outcome>& outcomes) {
  Outcome answer = Outcome::kWaiting;
  for (const auto outcome : outcomes) {
    if (IsFinal(answer)) {
      EXPECT_EQ(outcome, Outcome::kIgnored) << "after the answer";
    } else {
      answer = outcome;
    }
  }
  return answer;
}

// The same for a text that comes in pieces of `size` bytes, without a record of each.
inline Outcome AnswerInPieces(Reception& reception, std::string_view text, std::size_t size) {
  Outcome answer = Outcome::kWaiting;
  std::size_t afterTheAnswer = 0;
  for (std::size_t at = 0; at < text.size(); at += size) {
    const Outcome outcome = reception.Data(text.substr(at, size));
    if (!IsFinal(answer)) {
      answer = outcome;
    } else if (outcome != Outcome::kIgnored) {
      ++afterTheAnswer;
    }
  }
  EXPECT_EQ(afterTheAnswer, 0U) << "outcomes other than kIgnored";
  return answer;
}

}  // namespace Kit
}  // namespace TesselServer
