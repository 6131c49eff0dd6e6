#include "host/Echo.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "host/Names.h"

namespace TesselServer {
namespace {

constexpr std::string_view kKey = "text=";

// The text after the "?" of the request line that `header` begins with.
std::string_view UrlQuery(std::string_view header) {
  const auto line = header.substr(0, header.find_first_of("\r\n"));
  const auto url = line.substr(std::min(line.size(), line.find(' ') + 1));
  const auto mark = url.substr(0, url.find(' ')).find('?');
  return mark == std::string_view::npos ? std::string_view() : url.substr(mark + 1, url.find(' ') - mark - 1);
}

// Undoes %XX; a "%" without two hexadecimal digits after it stays.
std::string Decode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    const char* digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      decoded += static_cast<char>(byte);
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

}  // namespace

std::string EscapeHtml(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string EchoText(std::string_view query, std::string_view header) {
  const auto own = UrlQuery(header);
  auto arguments = query.starts_with(own) ? query.substr(own.size()) : query;
  const auto key = std::find_end(arguments.begin(), arguments.end(), kKey.begin(), kKey.end(), EqualLetters);
  if (key == arguments.end()) return {};
  arguments.remove_prefix(static_cast<std::size_t>(key - arguments.begin()) + kKey.size());
  return EscapeHtml(Decode(arguments.substr(0, arguments.find('&'))));
}

}  // namespace TesselServer
