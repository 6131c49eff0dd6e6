#include "http/modern/HostFields.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "http/modern/FieldValues.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kOwnFields[] = {
    "Content-Length", "Connection", "Keep-Alive", "Proxy-Connection", "TE", "Trailer", "Transfer-Encoding", "Upgrade"};

bool IsOwnField(std::string_view name) {
  return std::any_of(std::begin(kOwnFields), std::end(kOwnFields),
                     [name](std::string_view own) { return EqualNoCase(own, name); });
}

// Removes the first line of `text`, and returns it without its end.
std::string_view TakeFirstLine(std::string_view& text) {
  const std::size_t end = text.find(kLineEnd);
  const std::string_view line = text.substr(0, end);
  text = end == kNpos ? std::string_view() : text.substr(end + kLineEnd.size());
  return line;
}

// The name in front of a line's colon; "" when the line cannot be sent.
std::string_view NameOfLine(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == kNpos || !IsFieldText(line)) return {};
  const std::string_view name = line.substr(0, colon);
  return IsTokenText(name) ? name : std::string_view();
}

}  // namespace

HostFields::HostFields(std::string_view text) {
  while (!text.empty()) TakeLine(TakeFirstLine(text));
}

void HostFields::TakeLine(std::string_view line) {
  if (TrimmedField(line).empty()) return;
  const std::string_view name = NameOfLine(line);
  if (name.empty()) return Refuse(line);
  if (IsOwnField(name)) return;
  if (!TakesPlace(name)) return Refuse(line);
  lines_.append(line).append(kLineEnd);
}

// Notes what a line of this name replaces. False for a second one of what may be there but once.
bool HostFields::TakesPlace(std::string_view name) {
  if (EqualNoCase(name, "Content-Type")) return !std::exchange(contentType_, true);
  if (EqualNoCase(name, "Server")) return !std::exchange(server_, true);
  if (EqualNoCase(name, "Date")) return !std::exchange(date_, true);
  cacheControl_ = cacheControl_ || EqualNoCase(name, "Cache-Control");
  return true;
}

void HostFields::Refuse(std::string_view line) {
  if (refused_.size() < kMaxRefused) refused_.emplace_back(line.substr(0, kMaxRefusedBytes));
}

bool HostFields::Has(std::string_view name) const {
  for (std::string_view rest = lines_; !rest.empty();) {
    if (EqualNoCase(NameOfLine(TakeFirstLine(rest)), name)) return true;
  }
  return false;
}

}  // namespace TesselServer::Modern
