#include "http/modern/HtmlText.h"

#include <algorithm>
#include <cstddef>

#include "http/modern/Utf8.h"

namespace TesselServer::Modern {
namespace {

std::string_view EntityOf(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

}  // namespace

void AppendHtmlText(std::string& to, std::string_view text) {
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of("&<>\"'"), text.size());
    to.append(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) return;
    to.append(EntityOf(text.front()));
    text.remove_prefix(1);
  }
}

std::string HtmlText(std::string_view text) {
  std::string html;
  html.reserve(text.size());
  AppendHtmlText(html, text);
  return html;
}

std::string Utf8OrReplacement(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const Utf8Piece piece = FirstUtf8(text);
    valid.append(piece.isCharacter ? text.substr(0, piece.bytes) : kReplacement);
    text.remove_prefix(piece.bytes);
  }
  return valid;
}

}  // namespace TesselServer::Modern
