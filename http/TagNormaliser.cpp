#include "http/TagNormaliser.h"

#include <cstring>
#include <string_view>

#include "http/TagSearch.h"

namespace TesselServer {
namespace {

// Text that is made shorter in its own place: what is kept moves up to what was kept before.
class Shortened {
 public:
  explicit Shortened(std::string& text) : text_(text) {}

  // Keeps the text up to `end`, with its blanks and quotes or without them.
  void Keep(std::size_t end) {
    if (kept_ != read_) std::memmove(text_.data() + kept_, text_.data() + read_, end - read_);
    kept_ += end - read_;
    read_ = end;
  }
  void KeepWithoutBlanks(std::size_t end) {
    for (; read_ < end; ++read_) {
      const char c = text_[read_];
      if (c != ' ' && c != '"') text_[kept_++] = c;
    }
  }

  // What was read last: everything in front of it is kept or dropped.
  std::size_t Read() const { return read_; }

  void Finish() {
    Keep(text_.size());
    text_.resize(kept_);
  }

 private:
  std::string& text_;
  std::size_t kept_ = 0;
  std::size_t read_ = 0;
};

void RemoveBlanksBehind(std::string_view opener, std::string& page) {
  std::size_t tag = FindOpener(page, opener);
  if (tag == std::string::npos) return;
  Shortened text(page);
  for (; tag != std::string::npos; tag = FindOpener(page, opener, text.Read())) {
    const std::size_t end = page.find('>', tag);
    if (end == std::string::npos) break;
    text.Keep(tag);
    text.KeepWithoutBlanks(end);
  }
  text.Finish();
}

}  // namespace

std::string NormaliseTags(std::string page) {
  RemoveBlanksBehind(kDirectiveStart, page);
  RemoveBlanksBehind(kScriptStart, page);
  return page;
}

}  // namespace TesselServer
