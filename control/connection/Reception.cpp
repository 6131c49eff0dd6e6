#include "control/connection/Reception.h"

#include <algorithm>
#include <new>

#include "control/connection/HeaderFields.h"
#include "control/connection/RequestLine.h"
#include "platform/loop/LongMemory.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kGetMark = "GET ";

// kept: a plain text search, so "Content-Length: 05" and "X-Content-Length: 0" count as well.
constexpr std::string_view kNoBodyName = "Content-Length";
constexpr std::string_view kNoBodyValue = ": 0";
constexpr std::size_t kNoBodyMarkBytes = kNoBodyName.size() + kNoBodyValue.size();

// Whether "Content-Length: 0" is in `text`, in any case, where its first `searched` bytes held none. Its value,
// which has no letters, is rarer than any letter of its name.
bool HoldsNoBodyMark(std::string_view text, std::size_t searched) {
  const std::size_t from = searched < kNoBodyMarkBytes ? 0 : searched - (kNoBodyMarkBytes - 1);
  for (auto at = text.find(kNoBodyValue, from); at != kNpos; at = text.find(kNoBodyValue, at + 1)) {
    if (EndsWithNoCase(text.substr(0, at), kNoBodyName)) return true;
  }
  return false;
}

bool EndsUrl(char c) { return c == ' ' || c == '\r' || c == '\n'; }

}  // namespace

template <typename Step>
Reception::Outcome Reception::OrGiveUp(const Step& step) {
  try {
    return step();
  } catch (...) {
    Ignore();
    inputMayCome_ = true;
    GiveBack(fields_.RequestBody);
    throw;
  }
}

Reception::Outcome Reception::Data(std::string_view chunk) {
  return OrGiveUp([&] { return Take(chunk); });
}

Reception::Outcome Reception::TimeUp() {
  return OrGiveUp([&] {
    if (state_ == State::kHeader) return TakeHeader(held_);
    if (state_ == State::kBody && length_ - received_ <= kBodyTolerance) return Complete();
    return Outcome::kIgnored;
  });
}

Reception::Outcome Reception::EndOfInput() {
  return OrGiveUp([&] { return TakeWhatCame(); });
}

Reception::Outcome Reception::Take(std::string_view chunk) {
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

Reception::Outcome Reception::TakeWhatCame() {
  if (state_ == State::kStart) return Trim(held_).size() > kGetMark.size() ? TakeAsGet(held_) : Ignore();
  if (state_ == State::kHeader) {
    const auto outcome = TakeHeader(held_);
    if (state_ == State::kTaken) return outcome;
  }
  if (state_ == State::kBody && length_ - received_ <= kBodyTolerance) return Complete();
  return Ignore();
}

// Judges what is held and what of the chunk still fits; the rest is taken as a chunk of its own. A request that is
// complete with its first chunk is never held.
Reception::Outcome Reception::Start(std::string_view chunk) {
  const std::size_t heldBefore = held_.size();
  const auto begin = chunk.substr(0, kMaxHeldBytes - heldBefore);
  const auto rest = chunk.substr(begin.size());
  blankLine_.Feed(begin);
  if (heldBefore != 0) held_ += begin;
  const auto outcome = Judge(heldBefore != 0 ? held_ : begin, heldBefore, !rest.empty());
  const bool undecided = state_ == State::kStart || state_ == State::kHeader;
  if (undecided && heldBefore == 0) held_ = begin;
  if (rest.empty()) return outcome;
  if (state_ == State::kBody) return TakeBody(rest);
  inputMayCome_ = true;
  return outcome;
}

// Decides on the start of the request, of which `judgedBefore` bytes were judged before; `full` says that no more of it
// can be held.
Reception::Outcome Reception::Judge(std::string_view start, std::size_t judgedBefore, bool full) {
  while (textStart_ < start.size() && start[textStart_] == ' ') ++textStart_;
  const auto text = start.substr(textStart_);
  const std::size_t searched = judgedBefore > textStart_ ? judgedBefore - textStart_ : 0;
  if (text.substr(0, kGetMark.size()) == kGetMark.substr(0, text.size())) return JudgeGet(start, searched, full);
  return JudgeOther(start, searched, full);
}

Reception::Outcome Reception::JudgeGet(std::string_view start, std::size_t searched, bool full) {
  const auto unsearched = start.substr(std::min(start.size(), textStart_ + std::max(searched, kGetMark.size())));
  if (std::any_of(unsearched.begin(), unsearched.end(), EndsUrl)) return TakeAsGet(start);
  if (!full) return Outcome::kWaiting;
  ReadFields(start, "GET");
  return Bad();
}

Reception::Outcome Reception::JudgeOther(std::string_view start, std::size_t searched, bool full) {
  state_ = State::kHeader;
  if (HoldsNoBodyMark(start.substr(textStart_), searched)) return TakeAsGet(start);
  if (blankLine_.Found() || full) return TakeHeader(start);
  return Outcome::kHolding;
}

std::string_view Reception::Behind(std::string_view start) const noexcept {
  return blankLine_.Found() ? start.substr(std::min(start.size(), blankLine_.End())) : std::string_view();
}

// Returns the announced length.
std::optional<std::int64_t> Reception::ReadFields(std::string_view start, std::string_view method) {
  const auto text = Trim(start);
  const std::size_t blankLine =
      blankLine_.Found() ? blankLine_.End() - BlankLineFinder::kBlankLine.size() - textStart_ : kNpos;
  fields_.RequestMethod = method;
  ReadRequestLine(text, fields_);
  return ReadHeaderFields(text, blankLine, fields_);
}

Reception::Outcome Reception::TakeAsGet(std::string_view start) {
  const auto announced = ReadFields(start, "GET").value_or(0);
  inputMayCome_ = !blankLine_.Found() || static_cast<std::int64_t>(Behind(start).size()) != announced;
  Finish();
  return Outcome::kComplete;
}

// Takes the start of a request with a body, whether its blank line has come or not.
Reception::Outcome Reception::TakeHeader(std::string_view start) {
  const auto length = ReadFields(start, "POST");
  fields_.HeaderEndPos =
      blankLine_.Found() ? static_cast<std::int64_t>(blankLine_.End() - BlankLineFinder::kBlankLine.size()) + 1 : 0;
  if (!length || *length > std::min(maxBodyBytes_, kMaxBodyBytes)) return Bad();
  length_ = *length;
  fields_.ContentLengthText = std::to_string(length_);
  fields_.BodyPending = true;
  state_ = State::kBody;
  Store(Behind(start));
  Release(held_);
  return BodyOutcome();
}

Reception::Outcome Reception::TakeBody(std::string_view bytes) {
  Store(bytes.substr(blankLine_.Feed(bytes)));
  return BodyOutcome();
}

// Counts body bytes; where the body is kept, stores those within the announced length.
void Reception::Store(std::string_view bytes) {
  received_ += static_cast<std::int64_t>(bytes.size());
  if (bodyUse_ == BodyUse::kDropped) return;
  auto& body = fields_.RequestBody;
  const auto length = static_cast<std::size_t>(length_);
  const auto kept = bytes.substr(0, length - body.size());
  MakeRoom(body.size() + kept.size());
  body += kept;
  fields_.BodyWritePos = static_cast<std::int64_t>(body.size()) + 1;
}

// Room for so many bytes of the body. It doubles where that is not beyond what was announced, as long as little is
// moved for it; then there is room for all that was announced, which takes no memory before it is written to. Where the
// system does not give so much, it goes on to double.
void Reception::MakeRoom(std::size_t needed) {
  auto& body = fields_.RequestBody;
  if (needed <= body.capacity()) return;
  const auto length = static_cast<std::size_t>(length_);
  const std::size_t doubled = std::max(needed, std::min(length, 2 * body.capacity()));
  std::string grown;  // for one that grows in place might take more than was asked for
  try {
    if (doubled > kMovedAtMost) grown.reserve(length);
  } catch (const std::bad_alloc&) {
    // then only as much as is needed
  }
  grown.reserve(std::max(doubled, grown.capacity()));
  grown += body;
  body.swap(grown);
}

std::int64_t Reception::BodyBytes() const {
  const auto& body = fields_.RequestBody;
  if (body.capacity() <= std::string().capacity()) return 0;
  return static_cast<std::int64_t>(body.capacity() > kMovedAtMost ? body.size() : body.capacity());
}

Reception::Outcome Reception::BodyOutcome() {
  if (received_ >= length_) return Complete();
  if (length_ - received_ > kBodyTolerance) return Outcome::kWaiting;
  return received_ == 0 || fields_.ExpectsContinue ? Outcome::kLateBody : Outcome::kGrace;
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

void Reception::Body(BodyUse use) {
  bodyUse_ = use;
  if (use == BodyUse::kDropped) GiveBack(fields_.RequestBody);
}

Reception::Outcome Reception::Refuse() {
  GiveBack(fields_.RequestBody);
  return Bad();
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

void Reception::Reset() {
  state_ = State::kStart;
  inputMayCome_ = true;
  Release(held_);
  textStart_ = 0;
  blankLine_ = BlankLineFinder();
  bodyUse_ = BodyUse::kUndecided;
  length_ = 0;
  received_ = 0;
  fields_.Reset();
}

}  // namespace TesselServer
