#include "http/modern/ResponseHead.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "http/modern/FieldTexts.h"
#include "http/modern/FieldValues.h"
#include "http/modern/HostFields.h"
#include "http/modern/HttpDate.h"
#include "http/modern/StatusText.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

// Two takers of the same lines: the one finds how many bytes they are at most, so that the text grows once, the other
// writes. A line without a value is none.
class HeadBound {
 public:
  void Put(std::string_view text) { bytes_ += text.size(); }
  void Field(std::string_view name, std::string_view value) { bytes_ += name.size() + value.size(); }
  void OwnField(std::string_view name, std::string_view value) { Field(name, value); }
  std::size_t Bytes() const { return bytes_; }

 private:
  std::size_t bytes_ = 0;
};

class HeadWriter {
 public:
  explicit HeadWriter(char* to) : to_(to) {}
  void Put(std::string_view text) {
    std::char_traits<char>::copy(to_, text.data(), text.size());  // "" may have no data at all
    to_ += text.size();
  }
  void Field(std::string_view name, std::string_view value) {
    if (!value.empty() && IsFieldText(value)) OwnField(name, value);
  }
  // One whose value was made here.
  void OwnField(std::string_view name, std::string_view value) {
    if (value.empty()) return;
    Put(name);
    Put(value);
  }
  const char* End() const { return to_; }

 private:
  char* to_;
};

// A date whose text is kept until another one is asked for.
class KnownDate {
 public:
  std::string_view TextOf(std::int64_t utcSeconds) {
    if (second_ != utcSeconds) {
      WriteHttpDate(text_, utcSeconds);
      second_ = utcSeconds;
    }
    return {text_, kHttpDateBytes};
  }

 private:
  std::int64_t second_ = 0;
  char text_[kHttpDateBytes + 1] = "Thu, 01 Jan 1970 00:00:00 GMT";
};

// The date changes once a second, and answers come by the thousand.
std::string_view DateOfNow(std::int64_t utcSeconds) {
  constinit thread_local KnownDate known;
  return known.TextOf(utcSeconds);
}

// Making the text of a file's time takes a third as long as the rest of a head. Few files are asked for often, and
// their times stay; where this does not find one it has cost some ten instructions.
std::string_view DateOfFile(std::int64_t utcSeconds) {
  constexpr std::size_t kKnownDates = 16;
  constinit thread_local std::array<KnownDate, kKnownDates> known;
  return known[static_cast<std::uint64_t>(utcSeconds) % kKnownDates].TextOf(utcSeconds);
}

using LengthDigits = std::array<char, std::numeric_limits<std::int64_t>::digits10 + 1>;

std::string_view TextOfLength(std::int64_t length, LengthDigits& digits) {
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), std::max<std::int64_t>(length, 0));
  return {digits.data(), end.ptr};
}

// What is written in place of some values of a head, or beside them.
struct HeadTexts {
  std::string_view reason, server, date, contentType, charset, contentLength, lastModified, cacheControl, hostLines,
      connection;
  bool isChunked = false;
};

void SetFraming(HeadTexts& texts, const ResponseHead& head, LengthDigits& digits) {
  if (head.status == 205) {
    texts.contentLength = "0";
  } else if (!NeverHasBody(head.status)) {
    if (head.framing == ResponseFraming::kLength) texts.contentLength = TextOfLength(head.contentLength, digits);
    texts.isChunked = head.framing == ResponseFraming::kChunked;
  }
}

void SetBodyTexts(HeadTexts& texts, const ResponseHead& head) {
  const bool isNotModified = head.status == 304;
  if (!isNotModified && IsFieldText(head.contentType)) {
    texts.contentType = head.contentType;
    if (TakesCharset(head.contentType)) texts.charset = head.charset;
  }
  if (head.lastModified && !(isNotModified && !head.entityTag.empty())) {
    texts.lastModified = DateOfFile(std::min(*head.lastModified, head.utcSeconds));
  }
}

// Makes room for the lines of the host.
void LeaveToHost(HeadTexts& texts, const HostFields& host) {
  texts.hostLines = host.Lines();
  if (host.ReplacesContentType()) texts.contentType = texts.charset = {};
  if (host.ReplacesServer()) texts.server = {};
  if (host.ReplacesDate()) texts.date = {};
  if (host.ReplacesCacheControl()) texts.cacheControl = {};
}

HeadTexts TextsOf(const ResponseHead& head, LengthDigits& digits) {
  HeadTexts texts;
  texts.reason = StatusText(std::clamp(head.status, 100, 599));
  texts.server = head.server;
  texts.date = DateOfNow(head.utcSeconds);
  texts.cacheControl = head.cacheControl;
  if (head.connection == ConnectionNotice::kClose) texts.connection = "close";
  if (head.connection == ConnectionNotice::kKeepAlive) texts.connection = "keep-alive";
  SetFraming(texts, head, digits);
  SetBodyTexts(texts, head);
  if (head.hostFields) LeaveToHost(texts, *head.hostFields);
  return texts;
}

template <typename Taker>
void PutStatusLine(Taker& taker, int status, std::string_view reason) {
  const int code = std::clamp(status, 100, 599);
  const char digits[] = {static_cast<char>('0' + code / 100), static_cast<char>('0' + code / 10 % 10),
                         static_cast<char>('0' + code % 10), ' '};
  taker.Put("HTTP/1.1 ");
  taker.Put({digits, sizeof digits});
  taker.Put(reason);
}

// From here on a line's end is put by what comes after it.
template <typename Taker>
void PutBodyFields(Taker& taker, const ResponseHead& head, const HeadTexts& texts) {
  taker.OwnField("\r\nContent-Type: ", texts.contentType);
  taker.Field("; charset=", texts.charset);
  taker.OwnField("\r\nContent-Length: ", texts.contentLength);
  if (texts.isChunked) taker.Put("\r\nTransfer-Encoding: chunked");
  taker.OwnField("\r\nLast-Modified: ", texts.lastModified);
  taker.Field("\r\nETag: ", head.entityTag);
  if (head.status == 304) return;
  taker.Field("\r\nContent-Encoding: ", head.contentEncoding);
  if (head.acceptsRanges) taker.Put("\r\nAccept-Ranges: bytes");
  taker.Field("\r\nContent-Range: ", head.contentRange);
}

template <typename Taker>
void PutControlFields(Taker& taker, const ResponseHead& head) {
  taker.Field("\r\nVary: ", head.vary);
  taker.Field("\r\nLocation: ", head.location);
  taker.Field("\r\nAllow: ", head.allow);
  taker.Field("\r\nWWW-Authenticate: ", head.authenticate);
  if (head.noSniff) taker.Put("\r\nX-Content-Type-Options: nosniff");
  taker.Field("\r\nContent-Security-Policy: ", head.contentSecurityPolicy);
}

template <typename Taker>
void PutHead(Taker& taker, const ResponseHead& head, const HeadTexts& texts) {
  PutStatusLine(taker, head.status, texts.reason);
  taker.Field("\r\nServer: ", texts.server);
  taker.OwnField("\r\nDate: ", texts.date);
  PutBodyFields(taker, head, texts);
  taker.Field("\r\nCache-Control: ", texts.cacheControl);
  PutControlFields(taker, head);
  taker.OwnField("\r\nConnection: ", texts.connection);
  taker.Put(kLineEnd);
  taker.Put(texts.hostLines);
  taker.Put(kLineEnd);
}

}  // namespace

void AppendResponseHead(std::string& to, const ResponseHead& head) {
  LengthDigits digits;
  const HeadTexts texts = TextsOf(head, digits);
  HeadBound bound;
  PutHead(bound, head, texts);
  const std::size_t begin = to.size();
  to.resize(begin + bound.Bytes());
  HeadWriter writer(to.data() + begin);
  PutHead(writer, head, texts);
  to.resize(static_cast<std::size_t>(writer.End() - to.data()));
}

}  // namespace TesselServer::Modern
