// Reception: any bytes in any pieces end in at most one answer, with a body no longer than announced.
//
// The input's first byte chooses the pieces: 0 for the whole, 1 to 127 for pieces of that size, more for pieces that
// change in size. The second byte chooses after which of them time is up: 0 for never, n for every n-th. The rest is
// what the client sends.
#include <algorithm>

#include "control/connection/Reception.h"
#include "fuzz/Require.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::int64_t kMaxBody = 100'000;  // small, so that a fuzzer reaches both sides of it

std::size_t PieceSize(std::uint8_t choice, std::size_t piece, std::size_t all) {
  if (choice == 0) return all;
  if (choice < 128) return choice;
  return 1 + choice * piece % 97;
}

// Watches the outcomes of one connection.
class Watch {
 public:
  explicit Watch(const Reception& reception) : reception_(reception) {}

  void See(Reception::Outcome outcome) {
    using Outcome = Reception::Outcome;
    if (answered_) Require(outcome == Outcome::kIgnored, "nothing follows an answer");
    answered_ = answered_ || outcome == Outcome::kComplete || outcome == Outcome::kBad;
    CheckBody();
    const auto& fields = reception_.Fields();
    if (outcome == Outcome::kComplete) CheckComplete();
    if (outcome == Outcome::kBad) Require(!fields.RequestPath.empty(), "a refused request has a path");
    if (answered_) Require(!fields.BodyPending, "an answered request awaits no body");
  }

 private:
  void CheckBody() const {
    const auto& fields = reception_.Fields();
    const auto size = static_cast<std::int64_t>(fields.RequestBody.size());
    const auto announced = LeadingNumber(fields.ContentLengthText).value_or(0);
    Require(announced <= kMaxBody, "no longer body than the limit is awaited");
    Require(size <= announced, "a body is no longer than announced");
    Require(fields.BodyWritePos == size + 1, "the next body byte goes behind the last");
  }

  void CheckComplete() const {
    const auto& fields = reception_.Fields();
    Require(fields.RequestMethod == "GET" || fields.RequestMethod == "POST", "there are two methods");
    if (fields.RequestMethod == "GET") Require(fields.ContentLengthText.empty(), "a GET announces nothing");
    Require(fields.RequestLine.size() <= Reception::kMaxHeldBytes, "a request line has its limit");
    Require(fields.RequestHeader.size() <= Reception::kMaxHeldBytes, "a header block has its limit");
    const auto missing =
        LeadingNumber(fields.ContentLengthText).value_or(0) - static_cast<std::int64_t>(fields.RequestBody.size());
    Require(missing <= Reception::kBodyTolerance, "few bytes of a body are missing");
  }

  const Reception& reception_;
  bool answered_ = false;
};

}  // namespace
}  // namespace TesselServer

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  if (size < 2) return 0;
  const std::uint8_t pieces = data[0], timeUp = data[1];
  const auto sent = AsText(data + 2, size - 2);
  Reception reception(kMaxBody);
  Watch watch(reception);
  std::size_t at = 0;
  for (std::size_t piece = 1; at < sent.size(); ++piece) {
    const auto chunk = sent.substr(at, PieceSize(pieces, piece, sent.size()));
    at += chunk.size();
    watch.See(reception.Data(chunk));
    if (timeUp != 0 && piece % timeUp == 0) watch.See(reception.TimeUp());
  }
  watch.See(reception.EndOfInput());
  watch.See(reception.Data("x"));
  return 0;
}
