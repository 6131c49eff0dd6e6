// A whole answer as it is handed to a socket in one call: a head and a body, where the body is text, shared bytes, or
// an open file whose size costs no memory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "platform/files/FileSystem.h"

namespace TesselServer {

// `size` bytes of `file` from `first` on.
struct FileBody {
  OpenFile file;
  std::int64_t size = 0;
  std::int64_t first = 0;
};

struct Answer {
  using SharedBytes = std::shared_ptr<const std::string>;

  std::string head;                                       // the header block, or the whole answer
  std::variant<std::string, SharedBytes, FileBody> body;  // what follows it; "" for nothing

  // The length of the body, and of the whole, in bytes.
  std::int64_t BodySize() const {
    if (const auto* text = std::get_if<std::string>(&body)) return static_cast<std::int64_t>(text->size());
    if (const auto* shared = std::get_if<SharedBytes>(&body))
      return *shared ? static_cast<std::int64_t>((*shared)->size()) : 0;
    return std::get<FileBody>(body).size;
  }
  std::int64_t Size() const { return static_cast<std::int64_t>(head.size()) + BodySize(); }
};

}  // namespace TesselServer
