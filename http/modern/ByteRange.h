// Which part of a file a client asks for with "Range: bytes=..." (RFC 9110 section 14), and how the answer says it.
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none; a value that cannot be read as ranges asks for the whole file (section 14.2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer::Modern {

// The ranges one request may name; with more it gets the whole file. Players and resumed downloads name one, readers of
// documents some ten.
inline constexpr std::size_t kMaxByteRanges = 64;

// The bytes `first` to `last` of a file, both included: 0 <= first <= last < size.
struct ByteRange {
  std::int64_t first = 0;
  std::int64_t last = 0;

  std::int64_t Length() const { return last - first + 1; }
  bool operator==(const ByteRange&) const = default;
};

enum class RangeOutcome {
  kWhole,          // 200: nothing that could be honoured was asked for
  kPart,           // 206: one range
  kUnsatisfiable,  // 416: all that was asked for lies behind the file's end
};

struct ChosenRange {
  RangeOutcome outcome = RangeOutcome::kWhole;
  ByteRange range;  // of kPart only
};

// What to send of a file of `size` bytes (0 or more) for `value`, the value of a Range field. Several ranges are one
// when they overlap or touch, whatever their order; with a gap between two of them the whole file is sent. A part that
// happens to be all of the file is still a part.
//
//   ChooseRange("bytes=-5", 100);      // kPart, 95 to 99
//   ChooseRange("bytes=0-9, 10-", 20); // kPart, 0 to 19
//   ChooseRange("bytes=100-", 100);    // kUnsatisfiable
ChosenRange ChooseRange(std::string_view value, std::int64_t size);

// The value of Content-Range: "bytes 95-99/100" of a part, "bytes */100" where nothing could be sent.
std::string ContentRangeText(const ByteRange& range, std::int64_t size);
std::string UnsatisfiedRangeText(std::int64_t size);

}  // namespace TesselServer::Modern
