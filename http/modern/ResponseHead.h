// The header block of an answer, from its status line to the blank line.
//
// Thread:    any; the text of the last date is kept for each thread.
// Ownership: views given are read during the call.
// Errors:    none; a text that could end its line (one with a control in it) is left out with its line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer::Modern {

class HostFields;

// What goes out ahead of the answer when the body of a request is waited for (RFC 9110 section 10.1.1).
inline constexpr std::string_view kContinueResponse = "HTTP/1.1 100 Continue\r\n\r\n";

// How the client sees where the body ends (RFC 9112 section 6).
enum class ResponseFraming {
  kUntilClose,  // by the end of the connection
  kLength,      // by Content-Length
  kChunked,     // by the last chunk; for clients of 1.1 only
};

enum class ConnectionNotice { kNone, kClose, kKeepAlive };

// All that a header block can say. An empty text, or nothing, means no such line.
//
// The answer to HEAD has the header of that to GET: give the same values.
struct ResponseHead {
  int status = 200;             // 100 to 599
  std::int64_t utcSeconds = 0;  // now: the moment of Date
  std::string_view server{};

  std::string_view contentType{};
  std::string_view charset{};  // a token; put behind the content type where it belongs there (TakesCharset)
  std::string_view contentEncoding{};
  ResponseFraming framing = ResponseFraming::kUntilClose;
  std::int64_t contentLength = 0;  // bytes; of kLength only

  std::optional<std::int64_t> lastModified{};  // seconds since 1 January 1970 UTC; never shown later than Date
  std::string_view entityTag{};                // with its quotes
  bool acceptsRanges = false;
  std::string_view contentRange{};
  std::string_view cacheControl{};
  std::string_view vary{};

  std::string_view location{};
  std::string_view allow{};
  std::string_view authenticate{};  // WWW-Authenticate
  bool noSniff = false;             // X-Content-Type-Options: nosniff
  std::string_view contentSecurityPolicy{};

  const HostFields* hostFields = nullptr;  // read during the call; nothing for none
  ConnectionNotice connection = ConnectionNotice::kNone;
};

// Appends the block to `to`, which grows at most once. What a status may not have is left out, whatever is given:
//   1xx, 204   neither Content-Length nor Transfer-Encoding (RFC 9110 section 8.6)
//   205        its Content-Length is 0 (section 15.3.6)
//   304        nothing that describes the body that is not sent, but what a cache goes by: ETag, or Last-Modified
//              without one (section 15.4.5)
void AppendResponseHead(std::string& to, const ResponseHead& head);

}  // namespace TesselServer::Modern
