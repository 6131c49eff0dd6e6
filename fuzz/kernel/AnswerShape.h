// What a client has been sent, as far as it came: at most one answer, of the length that it announces.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace TesselServer::Pretended {

struct AnswerShape {
  bool isWhole = false;                   // its header is, and as many bytes follow as it announces
  std::string_view body;                  // what follows the header, as far as it came
  std::optional<std::int64_t> announced;  // its Content-Length
};

// Breaks a rule where the bytes cannot be the beginning of one answer. Built-in error pages announce one byte less than
// they have.
AnswerShape ShapeOf(std::string_view got);

}  // namespace TesselServer::Pretended
