// Decodes a body that is sent in chunks (RFC 9112 7.1). Strict: every line of the coding ends with CR LF, and nothing
// but what the grammar has is taken. Extensions of chunks and trailer fields are checked and dropped.
//
// Thread:    any one at a time.
// Ownership: keeps numbers only; pieces look into the bytes that were given.
// Errors:    none; a body that is refused has a status.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace TesselServer::Modern {

class ChunkedBody {
 public:
  enum class State {
    kMore,     // all was taken, more must come
    kPiece,    // a piece of the body
    kEnd,      // the last byte of the coding was taken
    kRefused,  // see RefusalStatus
  };
  struct Step {
    State state;
    std::size_t used;        // bytes taken from the front
    std::string_view piece;  // of kPiece, never empty
  };

  // Expects the first byte of a body that may have `bodyBytes` bytes when it is decoded. The line of a chunk's size may
  // have `lineBytes` bytes with its extensions, and all trailer fields together, too.
  void Begin(std::int64_t bodyBytes, std::size_t lineBytes);

  // Takes bytes up to the end of the next piece. Not to be called again after kEnd and kRefused.
  Step Next(std::string_view bytes);

  // 400, 413 (the body is too long) or 431 (extensions or trailer fields are).
  int RefusalStatus() const { return refusal_; }

  // The bytes of the body until now, decoded.
  std::int64_t Received() const { return received_; }

 private:
  // What is expected next. "Return" is a CR, "LineFeed" an LF, "Mark" the ";" before an extension.
  enum class Place : std::uint8_t {
    kSizeStart,
    kSize,
    kBeforeMark,
    kBeforeName,
    kName,
    kAfterName,
    kBeforeValue,
    kValue,
    kQuoted,
    kEscaped,
    kAfterQuoted,
    kSizeLineFeed,
    kData,
    kDataReturn,
    kDataLineFeed,
    kTrailerStart,
    kTrailerName,
    kTrailerValue,
    kTrailerLineFeed,
    kLastLineFeed,
    kDone,
  };

  void Take(char c);
  void TakeOfSize(char c);
  void TakeOfExtension(char c);
  void TakeOfTrailer(char c);
  void TakeDigit(char c);
  void EndElement(char c);
  void Expect(bool isRight, Place next);
  Step TakeData(std::string_view bytes, std::size_t used);

  Place place_ = Place::kSizeStart;
  int refusal_ = 0;
  std::int64_t bodyBytes_ = 0;
  std::size_t lineBytes_ = 0;
  std::size_t lineRead_ = 0;  // bytes of this line of a size, or of the trailer fields
  std::int64_t left_ = 0;     // bytes of this chunk that have not come; while its size is read, the size
  std::int64_t received_ = 0;
};

}  // namespace TesselServer::Modern
