#include "http/modern/BodyFraming.h"

#include <limits>

#include "http/modern/ByteClasses.h"
#include "http/modern/Status.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

// `text`, digits and nothing else, as a number; the largest one where it is larger.
std::optional<std::int64_t> LengthOf(std::string_view text) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  if (text.empty()) return std::nullopt;
  std::int64_t value = 0;
  for (const char c : text) {
    if (!IsDigit(c)) return std::nullopt;
    const int digit = c - '0';
    value = value > (kMost - digit) / 10 ? kMost : value * 10 + digit;
  }
  return value;
}

}  // namespace

// A list of equal lengths is what a proxy makes of several fields (RFC 9110 8.6). No element of it may be empty.
void BodyFraming::AddContentLength(std::string_view value) {
  isBad_ = isBad_ || value.empty() || value.back() == ',';
  while (!value.empty()) {
    const auto length = LengthOf(NextElement(value));
    isBad_ = isBad_ || !length || (length_ && *length_ != *length);
    length_ = length;
  }
}

// Empty elements of the list say nothing (RFC 9110 5.6.1.2).
void BodyFraming::AddTransferEncoding(std::string_view value) {
  hasCodings_ = true;
  while (!value.empty()) {
    const auto coding = NextElement(value);
    if (!coding.empty()) AddCoding(coding);
  }
}

// Parameters of a coding are not looked at, for a coding that has some is not known here; chunked has none.
void BodyFraming::AddCoding(std::string_view coding) {
  const std::size_t nameEnd = coding.find_first_of("; \t");
  const auto name = coding.substr(0, nameEnd);
  const bool isChunked = EqualNoCase(name, "chunked");
  // Nothing may come after chunked, not even chunked.
  isBad_ = isBad_ || !IsToken(name) || endsChunked_ || (isChunked && nameEnd != kNpos);
  endsChunked_ = isChunked;
  hasOtherCoding_ = hasOtherCoding_ || !isChunked;
}

int BodyFraming::Refusal(int minorVersion) const {
  if (isBad_) return Status::kBadRequest;
  if (!hasCodings_) return 0;
  if (minorVersion == 0 || length_ || !endsChunked_) return Status::kBadRequest;
  return hasOtherCoding_ ? Status::kNotImplemented : 0;
}

}  // namespace TesselServer::Modern
