#include "http/modern/HeadParser.h"

#include <algorithm>

#include "http/modern/Authority.h"
#include "http/modern/ByteClasses.h"
#include "http/modern/HeadScanner.h"
#include "http/modern/RequestLine.h"
#include "http/modern/Status.h"
#include "http/modern/TargetPath.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

static_assert(HeadScanner::kMaxFields <= UINT8_MAX, "the counts of fields have eight bits");

}  // namespace

int HeadParser::Parse() {
  const int refusal = TakeRequestLine(NextLine());
  if (refusal != 0) return refusal;
  while (read_ < request_.head_.size()) {
    if (!TakeField(NextLine())) return Status::kBadRequest;
  }
  return JudgeFields();
}

void HeadParser::ParseLine() { TakeRequestLine(NextLine()); }

// The next line without its end, CR LF or LF alone.
std::string_view HeadParser::NextLine() {
  const std::string_view head = request_.head_;
  const std::size_t end = std::min(head.find('\n', read_), head.size());
  auto line = head.substr(read_, end - read_);
  read_ = std::min(end + 1, head.size());
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// `part` lies in the head, or is empty.
Request::Span HeadParser::SpanOf(std::string_view part) const {
  if (part.empty()) return {};
  return {static_cast<std::uint32_t>(part.data() - request_.head_.data()), static_cast<std::uint32_t>(part.size())};
}

int HeadParser::TakeRequestLine(std::string_view line) {
  auto& facts = request_.facts_;
  facts.line = SpanOf(line);
  const RequestLine parsed = ParseRequestLine(line);
  facts.method = SpanOf(parsed.method);
  if (parsed.refusal != 0) return parsed.refusal;
  const RequestTarget target = ParseTarget(parsed.method, parsed.target);
  if (!target.isValid) return Status::kBadRequest;
  facts.target = SpanOf(parsed.target);
  facts.minorVersion = parsed.minorVersion;
  facts.isAsterisk = target.isAsterisk;
  facts.host = SpanOf(target.authority);
  facts.query = SpanOf(target.query);
  facts.hasQuery = target.hasQuery;
  const bool hasPath = !target.isAsterisk && parsed.target != target.authority;
  if (hasPath) TakePath(target.path);
  return 0;
}

// An absolute form without a path means the root.
void HeadParser::TakePath(std::string_view sent) {
  auto& facts = request_.facts_;
  auto& decoded = request_.decodedPath_;
  const PathForm form = sent.empty() ? PathForm::kDecoded : ReadPath(sent, decoded);
  if (sent.empty()) decoded = "/";
  switch (form) {
    case PathForm::kAsSent:
      facts.path = SpanOf(sent);
      break;
    case PathForm::kDecoded:
      facts.pathIsDecoded = true;
      facts.hasHiddenSegment = HasHiddenSegment(decoded);
      break;
    case PathForm::kBad:
      facts.pathStatus = Status::kBadRequest;
      break;
  }
}

// A name, a colon behind it at once, a value. A line that begins with a blank has no name: it would continue the line
// before it, which was given up because it was read differently by different programs (RFC 9112 5.2).
bool HeadParser::TakeField(std::string_view line) {
  std::size_t colon = 0;
  while (colon < line.size() && kTokenBytes.Has(line[colon])) ++colon;
  if (colon == 0 || colon == line.size() || line[colon] != ':') return false;
  const auto name = line.substr(0, colon);
  const auto value = TrimBlanks(line.substr(colon + 1));
  if (HasBadControl(value)) return false;
  request_.fields_.push_back({SpanOf(name), SpanOf(value)});
  const Known field = Identify(name);
  if (field != kOther) TakeKnownField(field, value);
  return true;
}

HeadParser::Known HeadParser::Identify(std::string_view name) {
  const auto either = [&](std::string_view known, Known field) { return EqualNoCase(name, known) ? field : kOther; };
  switch (name.size()) {
    case 4:
      return either("Host", kHost);
    case 5:
      return either("Range", kRange);
    case 6:
      return either("Expect", kExpect);
    case 8:
      return either("If-Range", kIfRange);
    case 10:
      return either("Connection", kConnection);
    case 12:
      return either("Content-Type", kContentType);
    case 13:
      return either("Authorization", kAuthorization);
    case 14:
      return either("Content-Length", kContentLength);
    case 17:
      return LowerAscii(name[0]) == 't' ? either("Transfer-Encoding", kTransferEncoding)
                                        : either("If-Modified-Since", kIfModifiedSince);
    case 19:
      return either("If-Unmodified-Since", kIfUnmodifiedSince);
    default:
      return kOther;
  }
}

void HeadParser::TakeKnownField(Known field, std::string_view value) {
  ++seen_[field];
  if (field == kHost) hostField_ = value;
  if (field == kContentLength) framing_.AddContentLength(value);
  if (field == kTransferEncoding) framing_.AddTransferEncoding(value);
  if (field == kConnection) TakeConnection(value);
  if (field == kExpect) TakeExpectation(value);
}

void HeadParser::TakeConnection(std::string_view value) {
  while (!value.empty()) {
    const auto option = NextElement(value);
    closes_ = closes_ || EqualNoCase(option, "close");
    asksToKeep_ = asksToKeep_ || EqualNoCase(option, "keep-alive");
  }
}

void HeadParser::TakeExpectation(std::string_view value) {
  auto& expectation = request_.facts_.expectation;
  if (request_.facts_.minorVersion == 0) return;
  while (!value.empty()) {
    const auto expected = NextElement(value);
    if (expected.empty() || expectation == Request::Expectation::kUnknown) continue;
    expectation =
        EqualNoCase(expected, "100-continue") ? Request::Expectation::kContinue : Request::Expectation::kUnknown;
  }
}

// What can be said only when all fields are known. The host of the target counts before that of the field, which has to
// be valid all the same (RFC 9112 3.2).
int HeadParser::JudgeFields() {
  auto& facts = request_.facts_;
  constexpr Known kSingle[] = {kHost,    kAuthorization,   kContentType,      kRange,
                               kIfRange, kIfModifiedSince, kIfUnmodifiedSince};
  for (const Known field : kSingle) {
    if (seen_[field] > 1) return Status::kBadRequest;
  }
  if (seen_[kHost] == 0 && facts.minorVersion > 0) return Status::kBadRequest;
  if (!hostField_.empty() && !IsAuthority(hostField_)) return Status::kBadRequest;
  if (facts.host.size == 0) facts.host = SpanOf(hostField_);
  const int refusal = framing_.Refusal(facts.minorVersion);
  if (refusal != 0) return refusal;
  facts.contentLength = framing_.ContentLength();
  facts.isChunked = framing_.IsChunked();
  facts.keepsOpen = KeepsOpen();
  return 0;
}

bool HeadParser::KeepsOpen() const {
  if (closes_ || request_.Method() == "CONNECT") return false;
  return request_.facts_.minorVersion > 0 || asksToKeep_;
}

}  // namespace TesselServer::Modern
