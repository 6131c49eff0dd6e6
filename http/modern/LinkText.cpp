#include "http/modern/LinkText.h"

#include <array>
#include <cstddef>

#include "http/modern/FieldValues.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

// Which bytes a part of a link may have as they are.
class LinkBytes {
 public:
  constexpr explicit LinkBytes(std::string_view others) {
    for (std::size_t byte = 0; byte < plain_.size(); ++byte) {
      const char c = static_cast<char>(byte);
      const bool isLetter = LowerAscii(c) >= 'a' && LowerAscii(c) <= 'z';
      plain_[byte] = isLetter || IsDecimal(c) || others.find(c) != kNpos;
    }
  }
  constexpr bool IsPlain(char c) const { return plain_[static_cast<unsigned char>(c)]; }

 private:
  std::array<bool, 256> plain_{};
};

constexpr LinkBytes kPathBytes("-._~/!$()*,;=@");
constexpr LinkBytes kQueryBytes("-._~/!$()*,;=@:?&'+%[]");

void AppendEncoded(std::string& to, std::string_view text, const LinkBytes& bytes) {
  to.reserve(to.size() + text.size());
  for (const char c : text) {
    if (bytes.IsPlain(c)) {
      to += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    to.append(1, '%').append(1, kUpperHexDigits[byte >> 4]).append(1, kUpperHexDigits[byte & 0xF]);
  }
}

}  // namespace

void AppendPathText(std::string& to, std::string_view path) { AppendEncoded(to, path, kPathBytes); }

std::string PathText(std::string_view path) {
  std::string text;
  AppendPathText(text, path);
  return text;
}

std::string LocationText(std::string_view path, std::string_view query, bool hasQuery) {
  const std::size_t start = path.find_first_not_of('/');
  std::string text = "/";
  if (start != kNpos) AppendPathText(text, path.substr(start));
  if (!hasQuery) return text;
  text += '?';
  AppendEncoded(text, query, kQueryBytes);
  return text;
}

}  // namespace TesselServer::Modern
