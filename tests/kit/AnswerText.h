// An answer as the bytes that a client would get.
#pragma once

#include <limits>
#include <stdexcept>
#include <string>
#include <variant>

#include "platform/sockets/Answer.h"

namespace TesselServer::Kit {

inline std::string BodyText(const Answer& answer) {
  if (const auto* text = std::get_if<std::string>(&answer.body)) return *text;
  if (const auto* shared = std::get_if<Answer::SharedBytes>(&answer.body)) return *shared ? **shared : std::string();
  const auto& file = std::get<FileBody>(answer.body);
  std::string bytes;
  if (!file.file.ReadAll(bytes, std::numeric_limits<std::int64_t>::max())) throw std::runtime_error("unreadable body");
  bytes.resize(static_cast<std::size_t>(file.size));
  return bytes;
}

inline std::string WholeText(const Answer& answer) { return answer.head + BodyText(answer); }

}  // namespace TesselServer::Kit
