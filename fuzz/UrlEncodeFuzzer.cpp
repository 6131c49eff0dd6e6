// URL encoding: the result holds letters, digits, "%" and "+" alone, and says what was encoded.
#include <algorithm>
#include <string>

#include "fuzz/Require.h"
#include "support/mURLEncode.h"

namespace {

constexpr std::string_view kAlphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

std::string Decode(std::string_view encoded) {
  std::string text;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] != '%') {
      text += encoded[i] == '+' ? ' ' : encoded[i];
    } else {
      text += static_cast<char>(std::stoi(std::string(encoded.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    }
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  const auto text = AsText(data, size);
  // A byte below 16 has a single digit, which the next letter may seem to belong to; all other text can be decoded.
  const bool canBeDecoded = std::none_of(data, data + size, [](std::uint8_t byte) { return byte < 16; });
  for (const bool spaceAsPlus : {false, true}) {
    const auto encoded = URLEncode(text, spaceAsPlus);
    Require(encoded.size() >= size && encoded.size() <= 3 * size, "a byte is one to three characters");
    const auto known = std::string(kAlphabet) + (spaceAsPlus ? "%+" : "%");
    Require(encoded.find_first_not_of(known) == std::string::npos, "nothing else in a link");
    if (canBeDecoded) Require(Decode(encoded) == text, "what was encoded comes back");
  }
  return 0;
}
