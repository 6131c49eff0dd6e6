#include "http/modern/JsonListing.h"

#include "http/modern/Utf8.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

void AppendJsonByte(std::string& to, char c) {
  if (c == '"' || c == '\\') {
    to += '\\';
    to += c;
  } else if (IsControl(c)) {
    const auto byte = static_cast<unsigned char>(c);
    to += "\\u00";
    to += kUpperHexDigits[byte >> 4];
    to += kUpperHexDigits[byte & 0xF];
  } else {
    to += c;
  }
}

void AppendJsonText(std::string& to, std::string_view text) {
  to += '"';
  while (!text.empty()) {
    const Utf8Piece piece = FirstUtf8(text);
    if (!piece.isCharacter) {
      to += kReplacement;
    } else if (piece.bytes == 1) {
      AppendJsonByte(to, text[0]);
    } else {
      to += text.substr(0, piece.bytes);
    }
    text.remove_prefix(piece.bytes);
  }
  to += '"';
}

void AppendJsonLink(std::string& to, const ListedEntry& entry) {
  if (!HasLink(entry.name)) {
    to += "null";
    return;
  }
  to += '"';
  AppendLink(to, entry);
  to += '"';
}

}  // namespace

void JsonListing::AppendRow(std::string& to, const ListedEntry& entry) {
  to += isEmpty_ ? "\n{\"name\":" : ",\n{\"name\":";
  isEmpty_ = false;
  AppendJsonText(to, entry.name);
  to += ",\"link\":";
  AppendJsonLink(to, entry);
  to += entry.isFolder ? ",\"type\":\"folder\",\"size\":null" : ",\"type\":\"file\",\"size\":";
  if (!entry.isFolder) to += std::to_string(entry.size);
  to += ",\"modified\":\"";
  AppendTimestamp(to, entry.modified);
  to += "\"}";
}

void JsonListing::End(std::string& to, bool) { to += isEmpty_ ? "]\n" : "\n]\n"; }

}  // namespace TesselServer::Modern
