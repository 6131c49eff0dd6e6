// Reads a whole header block, the request line and the field lines, and judges it.
//
// Thread:    any one at a time.
// Ownership: the request given outlives it.
// Errors:    none; a block that is refused has a status.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "http/modern/BodyFraming.h"
#include "http/modern/Request.h"

namespace TesselServer::Modern {

class HeadParser {
 public:
  explicit HeadParser(Request& request) : request_(request) {}

  // Fills in `request` from its Head(). 0, or the status that refuses the request and ends its connection: 400, 501 or
  // 505. A path that is refused is none of these, see Request::PathStatus. Called once.
  int Parse();

  // Fills in what the request line alone says. For a block that is refused before its end; called in place of Parse.
  void ParseLine();

 private:
  // Fields that say how the request is read, or may not be there twice.
  enum Known : std::uint8_t {
    kOther,
    kHost,
    kContentLength,
    kTransferEncoding,
    kConnection,
    kExpect,
    kAuthorization,
    kContentType,
    kRange,
    kIfRange,
    kIfModifiedSince,
    kIfUnmodifiedSince,
    kKnownFields,
  };
  static Known Identify(std::string_view name);

  std::string_view NextLine();
  Request::Span SpanOf(std::string_view part) const;

  int TakeRequestLine(std::string_view line);
  void TakePath(std::string_view sent);
  bool TakeField(std::string_view line);
  void TakeKnownField(Known field, std::string_view value);
  void TakeConnection(std::string_view value);
  void TakeExpectation(std::string_view value);
  int JudgeFields();
  bool KeepsOpen() const;

  Request& request_;
  std::size_t read_ = 0;                              // bytes of the head that were read
  std::array<std::uint8_t, kKnownFields> seen_ = {};  // how often, at most HeadScanner::kMaxFields each
  BodyFraming framing_;
  std::string_view hostField_;
  bool closes_ = false, asksToKeep_ = false;  // the options of Connection
};

}  // namespace TesselServer::Modern
