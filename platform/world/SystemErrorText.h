// What the system says about an error number.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace TesselServer {

inline constexpr std::size_t kMaxSystemErrorBytes = 255;  // texts are for one line

// The system's text for an errno(3) value, at most kMaxSystemErrorBytes of it; "Unknown error." when it has none.
std::string SystemErrorText(std::int32_t code);

}  // namespace TesselServer
