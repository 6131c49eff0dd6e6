// Base64: any text decodes to the length that its characters give, and what was encoded comes back.
#include <algorithm>
#include <string>
#include <vector>

#include "files/cls_Base64.h"
#include "fuzz/Require.h"
#include "support/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  const auto text = AsText(data, size);
  const cls_Base64 base64;
  const auto bytes = base64.DecodeArr(text);
  const auto characters = ReplaceAll(ReplaceAll(text, "\r\n", ""), "=", "").size();
  Require(bytes.size() == characters * 3 / 4, "four characters are three bytes");
  Require(base64.DecodeStr(text) == std::string(bytes.begin(), bytes.end()), "both decoders agree");
  if (text.empty()) return 0;  // nothing to encode is an error
  const auto encoded = base64.EncodeStr(text);
  Require(base64.DecodeStr(encoded) == text, "what was encoded comes back");
  for (std::size_t at = 0; at < encoded.size(); at += cls_Base64::kLineLength + 2) {
    const auto line = encoded.substr(at, cls_Base64::kLineLength);
    Require(line.find_first_of("\r\n") == std::string::npos, "lines are full");
  }
  return 0;
}
