#include "control/internal/Reception.h"

#include <algorithm>

#include "control/internal/HeaderFields.h"
#include "control/internal/RequestLine.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kGetMark = "GET ";

// kept: a plain text search, so "Content-Length: 05" and "X-Content-Length: 0" count as well.
constexpr std::string_view kNoBodyMark = "Content-Length: 0";

// Where a search goes on when `searched` bytes held no `needle`: its first bytes may lie among them.
std::size_t Resume(std::size_t searched, std::string_view needle) {
  return searched < needle.size() ? 0 : searched - (needle.size() - 1);
}

}  // namespace

Reception::Outcome Reception::Data(std::string_view chunk) {
  switch (state_) {
    case State::kStart:
    case State::kHeader:
      return Start(chunk);
    case State::kBody:
      return TakeBody(chunk);
    case State::kTaken:
      break;
  }
  if (!chunk.empty()) inputMayCome_ = true;
  return Outcome::kIgnored;
}

Reception::Outcome Reception::TimeUp() {
  if (state_ == State::kHeader) return TakeHeader();
  if (state_ == State::kBody && length_ - received_ <= kBodyTolerance) return Complete();
  return Outcome::kIgnored;
}

Reception::Outcome Reception::EndOfInput() {
  if (state_ == State::kStart) return Text().size() > kGetMark.size() ? TakeAsGet() : Ignore();
  if (state_ == State::kHeader) {
    const auto outcome = TakeHeader();
    if (state_ == State::kTaken) return outcome;
  }
  if (state_ == State::kBody && length_ - received_ <= kBodyTolerance) return Complete();
  return Ignore();
}

// Holds what of the chunk fits and judges it; the rest is taken as a chunk of its own.
Reception::Outcome Reception::Start(std::string_view chunk) {
  const std::size_t heldBefore = held_.size();
  const auto begin = chunk.substr(0, kMaxHeldBytes - heldBefore);
  const auto rest = chunk.substr(begin.size());
  held_ += begin;
  blankLine_.Feed(begin);
  const auto outcome = Judge(heldBefore, !rest.empty());
  if (rest.empty()) return outcome;
  if (state_ == State::kBody) return TakeBody(rest);
  inputMayCome_ = true;
  return outcome;
}

// Decides on the held text, of which `heldBefore` bytes were judged before; `full` says that no more can be held.
Reception::Outcome Reception::Judge(std::size_t heldBefore, bool full) {
  while (textStart_ < held_.size() && held_[textStart_] == ' ') ++textStart_;
  const auto text = std::string_view(held_).substr(textStart_);
  const std::size_t searched = heldBefore > textStart_ ? heldBefore - textStart_ : 0;
  if (text.substr(0, kGetMark.size()) == kGetMark.substr(0, text.size())) return JudgeGet(searched, full);
  return JudgeOther(searched, full);
}

Reception::Outcome Reception::JudgeGet(std::size_t searched, bool full) {
  const std::size_t from = textStart_ + std::max(searched, kGetMark.size());
  if (held_.find_first_of(" \r\n", from) != kNone) return TakeAsGet();
  if (!full) return Outcome::kWaiting;
  ReadFields("GET");
  return Bad();
}

Reception::Outcome Reception::JudgeOther(std::size_t searched, bool full) {
  state_ = State::kHeader;
  if (FindNoCase(held_, kNoBodyMark, textStart_ + Resume(searched, kNoBodyMark)) != kNone) return TakeAsGet();
  if (blankLine_.Found() || full) return TakeHeader();
  return Outcome::kHolding;
}

std::string_view Reception::Text() const { return Trim(held_); }

std::string_view Reception::Behind() const {
  return blankLine_.Found() ? std::string_view(held_).substr(blankLine_.End()) : std::string_view();
}

void Reception::ReadFields(std::string_view method) {
  fields_.RequestMethod = method;
  ReadRequestLine(Text(), fields_);
  ReadHeaderFields(Text(), fields_);
}

Reception::Outcome Reception::TakeAsGet() {
  ReadFields("GET");
  const auto announced = AnnouncedLength(Text()).value_or(0);
  inputMayCome_ = !blankLine_.Found() || static_cast<std::int64_t>(Behind().size()) != announced;
  Finish();
  return Outcome::kComplete;
}

// Takes the held text as the start of a request with a body, whether its blank line has come or not.
Reception::Outcome Reception::TakeHeader() {
  ReadFields("POST");
  fields_.HeaderEndPos =
      blankLine_.Found() ? static_cast<std::int64_t>(blankLine_.End() - BlankLineFinder::kBlankLine.size()) + 1 : 0;
  const auto length = AnnouncedLength(Text());
  if (!length || *length > std::min(maxBodyBytes_, kMaxBodyBytes)) return Bad();
  length_ = *length;
  fields_.ContentLengthText = std::to_string(length_);
  fields_.BodyPending = true;
  state_ = State::kBody;
  Store(Behind());
  Release(held_);
  return BodyOutcome();
}

Reception::Outcome Reception::TakeBody(std::string_view bytes) {
  Store(bytes.substr(blankLine_.Feed(bytes)));
  return BodyOutcome();
}

// Counts body bytes and keeps those within the announced length.
void Reception::Store(std::string_view bytes) {
  received_ += static_cast<std::int64_t>(bytes.size());
  auto& body = fields_.RequestBody;
  const auto length = static_cast<std::size_t>(length_);
  const auto kept = bytes.substr(0, length - body.size());
  const std::size_t needed = body.size() + kept.size();
  // Grows by what arrives, doubling, but never beyond what was announced.
  if (needed > body.capacity()) body.reserve(std::min(length, 2 * needed));
  body += kept;
  fields_.BodyWritePos = static_cast<std::int64_t>(body.size()) + 1;
}

Reception::Outcome Reception::BodyOutcome() {
  if (received_ >= length_) return Complete();
  return length_ - received_ > kBodyTolerance ? Outcome::kWaiting : Outcome::kGrace;
}

Reception::Outcome Reception::Complete() {
  inputMayCome_ = !blankLine_.Found() || received_ != length_;
  Finish();
  return Outcome::kComplete;
}

Reception::Outcome Reception::Bad() {
  if (fields_.RequestPath.empty()) fields_.RequestPath = '/';  // what is answered has a path
  Finish();
  return Outcome::kBad;
}

Reception::Outcome Reception::Ignore() {
  Finish();
  return Outcome::kIgnored;
}

void Reception::Finish() {
  state_ = State::kTaken;
  fields_.BodyPending = false;
  Release(held_);
}

}  // namespace TesselServer
