// Takes secrets out of memory.
#pragma once

#include <string>

namespace TesselServer {

// Overwrites the bytes of `text`, also where an optimising compiler would omit it, and empties it.
void Wipe(std::string& text);

// Wipes a text at the end of the block, however that is left.
class WipeAtEnd {
 public:
  explicit WipeAtEnd(std::string& text) : text_(text) {}
  WipeAtEnd(const WipeAtEnd&) = delete;
  WipeAtEnd& operator=(const WipeAtEnd&) = delete;
  ~WipeAtEnd() { Wipe(text_); }

 private:
  std::string& text_;
};

}  // namespace TesselServer
