#include "http/modern/RequestReader.h"

#include <algorithm>

#include "http/modern/HeadParser.h"
#include "http/modern/Status.h"

namespace TesselServer::Modern {
void RequestReader::Begin(const Limits& limits) {
  place_ = Place::kEmptyLines;
  limits_ = limits;
  refusal_ = emptyLines_ = 0;
  hasReturn_ = false;
  announced_ = received_ = 0;
}

RequestReader::Step RequestReader::Next(std::string_view bytes, Request& request) {
  switch (place_) {
    case Place::kEmptyLines: {
      const std::size_t skipped = SkipEmptyLines(bytes, request);
      if (emptyLines_ > kMaxEmptyLines) {
        request.Reset();
        return Refuse(Status::kBadRequest, skipped);
      }
      if (place_ == Place::kEmptyLines) return {State::kMore, skipped, {}};
      Step step = TakeHead(bytes.substr(skipped), request);
      step.used += skipped;
      return step;
    }
    case Place::kHead:
      return TakeHead(bytes, request);
    case Place::kFixedBody:
      return TakeFixedBody(bytes);
    case Place::kChunkedBody:
      return TakeChunkedBody(bytes);
    case Place::kEnd:
      return {State::kEnd, 0, {}};
    case Place::kRefused:
      break;
  }
  return {State::kRefused, 0, {}};
}

RequestReader::Step RequestReader::Refuse(int status, std::size_t used) {
  place_ = Place::kRefused;
  refusal_ = status;
  return {State::kRefused, used, {}};
}

// Returns how many bytes are of empty lines. The first byte that is not begins the request.
std::size_t RequestReader::SkipEmptyLines(std::string_view bytes, Request& request) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] == '\n') {
      hasReturn_ = false;
      if (++emptyLines_ > kMaxEmptyLines) return i + 1;
    } else if (bytes[i] == '\r' && !hasReturn_) {
      hasReturn_ = true;
    } else {
      place_ = Place::kHead;
      request.Reset();
      head_.Begin(limits_.headerBytes);
      if (hasReturn_) TakeHead("\r", request);  // it was no empty line
      return i;
    }
  }
  return bytes.size();
}

RequestReader::Step RequestReader::TakeHead(std::string_view bytes, Request& request) {
  const auto step = head_.Take(bytes);
  request.head_.append(bytes.substr(0, step.used));
  if (step.state == HeadScanner::State::kEnd) return EndHead(step.used, request);
  if (step.state == HeadScanner::State::kMore) return {State::kMore, step.used, {}};
  request.head_.resize(head_.HeadBytes());
  if (head_.LineBytes() > 0) HeadParser(request).ParseLine();
  return Refuse(head_.RefusalStatus(), step.used);
}

RequestReader::Step RequestReader::EndHead(std::size_t used, Request& request) {
  request.head_.resize(head_.HeadBytes());
  request.fields_.reserve(std::max(head_.FieldCount(), Request::kMostKeptFields));
  const int refusal = HeadParser(request).Parse();
  if (refusal != 0) return Refuse(refusal, used);
  if (request.IsChunked()) {
    place_ = Place::kChunkedBody;
    chunks_.Begin(limits_.bodyBytes, limits_.headerBytes);
    return {State::kHead, used, {}};
  }
  announced_ = request.ContentLength().value_or(0);
  if (announced_ > limits_.bodyBytes) return Refuse(Status::kContentTooLarge, used);
  place_ = announced_ > 0 ? Place::kFixedBody : Place::kEnd;
  return {State::kHead, used, {}};
}

RequestReader::Step RequestReader::TakeFixedBody(std::string_view bytes) {
  if (bytes.empty()) return {State::kMore, 0, {}};
  const auto left = static_cast<std::uint64_t>(announced_ - received_);
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), left));
  received_ += static_cast<std::int64_t>(size);
  if (received_ == announced_) place_ = Place::kEnd;
  return {State::kBody, size, bytes.substr(0, size)};
}

RequestReader::Step RequestReader::TakeChunkedBody(std::string_view bytes) {
  const auto step = chunks_.Next(bytes);
  received_ = chunks_.Received();
  switch (step.state) {
    case ChunkedBody::State::kPiece:
      return {State::kBody, step.used, step.piece};
    case ChunkedBody::State::kEnd:
      place_ = Place::kEnd;
      return {State::kEnd, step.used, {}};
    case ChunkedBody::State::kRefused:
      return Refuse(chunks_.RefusalStatus(), step.used);
    case ChunkedBody::State::kMore:
      break;
  }
  return {State::kMore, step.used, {}};
}

}  // namespace TesselServer::Modern
