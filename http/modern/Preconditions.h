// Conditions that a client puts to a request: "only if it is still what I know", "only if it is new to me"
// (RFC 9110 section 13).
//
// Thread:    any; pure.
// Ownership: views given are read during the call.
// Errors:    none; a date that is none is ignored, a tag that is none is equal to none.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace TesselServer::Modern {

// The values of a request's fields; nothing when it has no such field.
struct Conditions {
  std::optional<std::string_view> ifMatch{}, ifUnmodifiedSince{}, ifNoneMatch{}, ifModifiedSince{};

  bool HasAny() const { return ifMatch || ifUnmodifiedSince || ifNoneMatch || ifModifiedSince; }
};

// What is there to be sent.
struct Validators {
  std::string_view tag;                        // with its quotes; "" when it has none
  std::optional<std::int64_t> lastModified{};  // whole seconds since 1 January 1970 UTC; nothing when it has none
};

enum class Precondition {
  kGoOn,         // answer as without conditions
  kNotModified,  // 304
  kFailed,       // 412
};

// What the conditions say of a request for something that exists and would be answered with success, at the moment
// `now`, in the order of section 13.2.2. `isRetrieval` says that the method is GET or HEAD. A thing that was last
// modified in the future counts as modified now, since that is what its answer says.
Precondition EvaluateConditions(const Conditions& conditions, const Validators& current, bool isRetrieval,
                                std::int64_t now);

// Whether `ifRange`, the value of If-Range, names exactly what is there now, so that the part asked for fits to what
// the client has (section 13.1.5): the tag, neither of the two weak; or the date, when that is at least a second older
// than `now`, the moment of the answer's Date: in its last second a file may have changed once more.
bool IfRangeHolds(std::string_view ifRange, const Validators& current, std::int64_t now);

}  // namespace TesselServer::Modern
