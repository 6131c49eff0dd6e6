// What the values of header fields are made of (RFC 9110 section 5.6): blanks, tokens, lists, and which bytes a value
// may have at all.
//
// Thread:    any; pure.
// Ownership: a returned view looks into the view that was given.
// Errors:    none.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/world/AsciiCase.h"  // IsControl

namespace TesselServer::Modern {

// The blanks that may be between the parts of a value ("OWS").
constexpr bool IsFieldBlank(char c) { return c == ' ' || c == '\t'; }

constexpr bool IsDecimal(char c) { return c >= '0' && c <= '9'; }

// Whether `c` may be in a token, such as a field's name.
constexpr bool IsTokenCharacter(char c) {
  const bool isLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  return isLetter || IsDecimal(c) ||
         (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
}

// Whether all of `text` is one token; "" is none.
constexpr bool IsTokenText(std::string_view text) {
  for (const char c : text) {
    if (!IsTokenCharacter(c)) return false;
  }
  return !text.empty();
}

// Whether `text` may be a field's value as it is: no control in it but tabs, so that it cannot end its line. Every
// answer asks it of each of its texts, hence eight bytes at a time.
bool IsFieldText(std::string_view text);

// `text` without the blanks in front, and without those at both ends.
constexpr std::string_view WithoutLeadingBlanks(std::string_view text) {
  while (!text.empty() && IsFieldBlank(text.front())) text.remove_prefix(1);
  return text;
}
constexpr std::string_view TrimmedField(std::string_view text) {
  text = WithoutLeadingBlanks(text);
  while (!text.empty() && IsFieldBlank(text.back())) text.remove_suffix(1);
  return text;
}

// `list` without the empty elements and blanks that it begins with; RFC 9110 section 5.6.1.2 lets a list have them.
constexpr std::string_view WithoutEmptyElements(std::string_view list) {
  list = WithoutLeadingBlanks(list);
  while (!list.empty() && list.front() == ',') list = WithoutLeadingBlanks(list.substr(1));
  return list;
}

// Removes what follows an element of `list`: blanks, a comma, empty elements. False, where something else does.
constexpr bool TakeListComma(std::string_view& list) {
  list = WithoutLeadingBlanks(list);
  if (!list.empty() && list.front() != ',') return false;
  list = WithoutEmptyElements(list);
  return true;
}

}  // namespace TesselServer::Modern
