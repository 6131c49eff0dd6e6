#include "http/modern/ChunkedBody.h"

#include <algorithm>

#include "http/modern/ByteClasses.h"
#include "http/modern/Status.h"

namespace TesselServer::Modern {
void ChunkedBody::Begin(std::int64_t bodyBytes, std::size_t lineBytes) {
  *this = ChunkedBody();
  bodyBytes_ = bodyBytes;
  lineBytes_ = lineBytes;
}

ChunkedBody::Step ChunkedBody::Next(std::string_view bytes) {
  for (std::size_t used = 0; used < bytes.size();) {
    if (place_ == Place::kData) return TakeData(bytes, used);
    Take(bytes[used++]);
    if (refusal_ != 0) return {State::kRefused, used, {}};
    if (place_ == Place::kDone) return {State::kEnd, used, {}};
  }
  return {State::kMore, bytes.size(), {}};
}

ChunkedBody::Step ChunkedBody::TakeData(std::string_view bytes, std::size_t used) {
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size() - used, static_cast<std::uint64_t>(left_)));
  left_ -= static_cast<std::int64_t>(size);
  received_ += static_cast<std::int64_t>(size);
  if (left_ == 0) place_ = Place::kDataReturn;
  return {State::kPiece, used + size, bytes.substr(used, size)};
}

void ChunkedBody::Expect(bool isRight, Place next) {
  if (isRight) {
    place_ = next;
  } else {
    refusal_ = Status::kBadRequest;
  }
}

void ChunkedBody::Take(char c) {
  switch (place_) {
    case Place::kSizeStart:
    case Place::kSize:
    case Place::kSizeLineFeed:
      return TakeOfSize(c);
    case Place::kData:
    case Place::kDone:
      return;
    case Place::kDataReturn:
      return Expect(c == '\r', Place::kDataLineFeed);
    case Place::kDataLineFeed:
      return Expect(c == '\n', Place::kSizeStart);
    case Place::kTrailerStart:
    case Place::kTrailerName:
    case Place::kTrailerValue:
    case Place::kTrailerLineFeed:
    case Place::kLastLineFeed:
      return TakeOfTrailer(c);
    default:
      return TakeOfExtension(c);
  }
}

void ChunkedBody::TakeOfSize(char c) {
  if (place_ == Place::kSizeLineFeed) {
    lineRead_ = 0;
    return Expect(c == '\n', left_ > 0 ? Place::kData : Place::kTrailerStart);
  }
  if (place_ == Place::kSizeStart) left_ = 0;
  if (HexValue(c) >= 0) return TakeDigit(c);
  if (place_ == Place::kSizeStart) {
    refusal_ = Status::kBadRequest;
  } else {
    EndElement(c);
  }
}

// A size is refused at the digit that makes it too large, whatever comes after it.
void ChunkedBody::TakeDigit(char c) {
  place_ = Place::kSize;
  if (++lineRead_ > lineBytes_) refusal_ = Status::kFieldsTooLarge;
  const std::int64_t most = bodyBytes_ - received_;
  const int digit = HexValue(c);
  if (left_ > (most - digit) / 16 || most < digit) {
    refusal_ = Status::kContentTooLarge;
  } else {
    left_ = left_ * 16 + digit;
  }
}

// What may follow a size, an extension's name without a value, or its value.
void ChunkedBody::EndElement(char c) {
  if (c == '\r') {
    place_ = Place::kSizeLineFeed;
  } else if (++lineRead_ > lineBytes_) {
    refusal_ = Status::kFieldsTooLarge;
  } else if (IsBlank(c)) {
    place_ = place_ == Place::kName ? Place::kAfterName : Place::kBeforeMark;
  } else {
    Expect(c == ';', Place::kBeforeName);
  }
}

// *( BWS ";" BWS name [ BWS "=" BWS ( token / quoted-string ) ] )
void ChunkedBody::TakeOfExtension(char c) {
  const bool isToken = kTokenBytes.Has(c), isBlank = IsBlank(c);
  const bool isText = isBlank || !IsControl(c);
  if (place_ == Place::kName && c != '=' && !isToken) return EndElement(c);
  if ((place_ == Place::kValue && !isToken) || place_ == Place::kAfterQuoted) return EndElement(c);
  if (++lineRead_ > lineBytes_) {
    refusal_ = Status::kFieldsTooLarge;
    return;
  }
  switch (place_) {
    case Place::kBeforeMark:
      return Expect(isBlank || c == ';', isBlank ? Place::kBeforeMark : Place::kBeforeName);
    case Place::kBeforeName:
      return Expect(isBlank || isToken, isBlank ? Place::kBeforeName : Place::kName);
    case Place::kName:
      return Expect(true, c == '=' ? Place::kBeforeValue : Place::kName);
    case Place::kAfterName:
      if (c == '=') return Expect(true, Place::kBeforeValue);
      return Expect(isBlank || c == ';', isBlank ? Place::kAfterName : Place::kBeforeName);
    case Place::kBeforeValue:
      if (isBlank) return;
      return Expect(isToken || c == '"', isToken ? Place::kValue : Place::kQuoted);
    case Place::kQuoted:
      if (c == '"') return Expect(true, Place::kAfterQuoted);
      return Expect(isText, c == '\\' ? Place::kEscaped : Place::kQuoted);
    case Place::kEscaped:
      return Expect(isText, Place::kQuoted);
    default:  // kValue, a byte of a token
      return;
  }
}

void ChunkedBody::TakeOfTrailer(char c) {
  if (place_ == Place::kLastLineFeed) return Expect(c == '\n', Place::kDone);
  if (place_ == Place::kTrailerStart && c == '\r') return Expect(true, Place::kLastLineFeed);
  if (++lineRead_ > lineBytes_) {
    refusal_ = Status::kFieldsTooLarge;
    return;
  }
  switch (place_) {
    case Place::kTrailerStart:
      return Expect(kTokenBytes.Has(c), Place::kTrailerName);
    case Place::kTrailerName:
      return Expect(c == ':' || kTokenBytes.Has(c), c == ':' ? Place::kTrailerValue : Place::kTrailerName);
    case Place::kTrailerValue:
      if (c == '\r') return Expect(true, Place::kTrailerLineFeed);
      return Expect(c == '\t' || !IsControl(c), Place::kTrailerValue);
    default:
      return Expect(c == '\n', Place::kTrailerStart);
  }
}

}  // namespace TesselServer::Modern
