// What of a file a request gets, by its conditions and ranges (RFC 9110 13, 14).
//
// Thread:    any; pure.
// Ownership: values.
// Errors:    none.
#pragma once

#include <cstdint>

#include "http/modern/ByteRange.h"
#include "http/modern/Preconditions.h"
#include "http/modern/Request.h"

namespace TesselServer::Modern {

struct FileChoice {
  enum class Kind {
    kWhole,          // 200
    kPart,           // 206: `range`
    kNotModified,    // 304: the client has it already
    kFailed,         // 412: it is not what the client expects
    kUnsatisfiable,  // 416: nothing of it is where the client asks
  };

  Kind kind = Kind::kWhole;
  ByteRange range{};
};

// Chooses for a GET or HEAD, of a file of `size` bytes, at `now` (seconds since 1 January 1970 UTC, as the Date of the
// answer says). Conditions come first; GET alone has ranges.
FileChoice ChooseOfFile(const Request& request, const Validators& file, std::int64_t size, std::int64_t now);

}  // namespace TesselServer::Modern
