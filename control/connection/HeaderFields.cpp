#include "control/connection/HeaderFields.h"

#include "files/cls_Base64.h"
#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kAcceptSeparator = ", ";
constexpr std::string_view kContinue = "100-continue";

bool HoldsNul(std::string_view text) { return text.find('\0') != kNpos; }

// The text from `from` to the end of its line, without the blanks around it.
std::string_view RawValue(std::string_view text, std::size_t from) {
  const auto rest = text.substr(from);
  return Trim(rest.substr(0, rest.find(kLineEnd)));
}

// The value that begins at `from`; "" when there is none (kNpos) or it holds a NUL.
std::string_view Value(std::string_view text, std::size_t from) {
  if (from == kNpos) return {};
  const auto value = RawValue(text, from);
  return HoldsNul(value) ? std::string_view() : value;
}

// Finds all names in one pass: each ends in a ":", so only the text before each ":" is looked at.
class NameSearch {
 public:
  explicit NameSearch(std::string_view text) : text_(text) {}

  // `accept` receives the values of all "accept:", each followed by ", ".
  void Run(std::string& accept) {
    for (auto colon = text_.find(':', 1); colon != kNpos; colon = text_.find(':', colon + 1)) Look(colon, accept);
  }

  // Where the value after the first occurrence of the name begins, kNpos when the name was not found.
  std::size_t referer = kNpos;
  std::size_t userAgent = kNpos;
  std::size_t contentType = kNpos;
  std::size_t authorization = kNpos;
  std::size_t contentLength = kNpos;
  std::size_t expect = kNpos;

 private:
  void Look(std::size_t colon, std::string& accept) {
    switch (text_[colon - 1]) {
      case 't':
        if (text_.substr(0, colon).ends_with("User-Agent")) Take(userAgent, colon);
        [[fallthrough]];
      case 'T':
        if (IsBefore(colon, kAccept)) TakeAccept(colon, accept);
        if (IsBefore(colon, "\r\nexpect")) Take(expect, colon);
        break;
      case 'r':
      case 'R':
        if (IsBefore(colon, "referer")) Take(referer, colon);
        break;
      case 'e':
      case 'E':
        if (IsBefore(colon, "\r\ncontent-type")) Take(contentType, colon);
        break;
      case 'h':
      case 'H':
        if (IsBefore(colon, "content-length")) Take(contentLength, colon);
        break;
      case 'n':
        if (text_.substr(0, colon).ends_with("Authorization")) Take(authorization, colon);
        break;
    }
  }

  bool IsBefore(std::size_t colon, std::string_view name) const { return EndsWithNoCase(text_.substr(0, colon), name); }

  static void Take(std::size_t& place, std::size_t colon) {
    if (place == kNpos) place = colon + 1;
  }

  // Each value collects two bytes or more, so the steps grow: even a text of nothing but names has few values.
  void TakeAccept(std::size_t colon, std::string& accept) {
    const std::size_t at = colon - kAccept.size();
    if (at < nextAccept_) return;
    accept.append(RawValue(text_, colon + 1)).append(kAcceptSeparator);
    nextAccept_ = at + accept.size();
  }

  static constexpr std::string_view kAccept = "accept";

  const std::string_view text_;
  std::size_t nextAccept_ = 0;  // where the next "accept:" may begin
};

// kept: the scheme may be anywhere after the field's name; without a ":" there is neither user nor password.
void ReadCredentials(std::string_view text, std::size_t field, RequestFields& fields) {
  constexpr std::string_view kScheme = "Basic";
  if (field == kNpos) return;
  const auto scheme = text.find(kScheme, field);
  const auto token = scheme == kNpos ? std::string_view() : Value(text, scheme + kScheme.size());
  if (token.empty() || token.size() > kMaxCredentialBytes) return;
  const std::string decoded = cls_Base64().DecodeStr(token);
  const auto colon = decoded.find(':');
  if (colon == kNpos || HoldsNul(decoded)) return;
  const std::string_view pair = decoded;
  fields.AuthUser = Trim(pair.substr(0, colon));
  fields.AuthPassword = Trim(pair.substr(colon + 1));
}

}  // namespace

std::optional<std::int64_t> ReadHeaderFields(std::string_view text, std::size_t blankLine, RequestFields& fields) {
  if (blankLine != kNpos) fields.RequestHeader = text.substr(0, blankLine + kLineEnd.size());
  std::string& accept = fields.RequestAccept;
  accept.clear();
  NameSearch names(text);
  names.Run(accept);
  if (HoldsNul(accept)) accept.clear();
  if (!accept.empty()) accept.resize(accept.size() - kAcceptSeparator.size());
  fields.RequestReferer = Value(text, names.referer);
  fields.RequestUserAgent = Value(text, names.userAgent);
  const auto inBlock = [blankLine](std::size_t at) { return at <= blankLine ? at : kNpos; };
  fields.RequestContentType = Value(text, inBlock(names.contentType));
  fields.ExpectsContinue = EqualNoCase(Value(text, inBlock(names.expect)), kContinue);
  ReadCredentials(text, names.authorization, fields);
  return LeadingNumber(Value(text, names.contentLength));
}

}  // namespace TesselServer
