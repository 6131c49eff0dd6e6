// What one request on one connection brought, field by field, as reception fills it and everything after reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/loop/LongMemory.h"
#include "support/Text.h"

namespace TesselServer {

struct RequestFields {
  // So much memory each text keeps from one request to the next, so that usual requests need not ask for it again.
  // What is larger goes: one large request does not hold its memory for as long as the server runs.
  static constexpr std::size_t kKeptBytes = 128;

  std::string RequestLine;    // the request line as received, without its line end
  std::string DocumentURI;    // the URL's path exactly as sent, leading "/" included, query removed
  std::string RequestPath;    // the same without its single leading "/"; the root itself stays "/". "" = no URL
  std::string RequestQuery;   // the text after the first "?"
  std::string RequestMethod;  // "GET" or "POST", whatever the method is called in the request line
  std::string RequestHeader;  // the header block: request line and header lines, each with its CR LF; "" when its
                              // end was not in the chunk that started the request
  std::string RequestAccept;  // the values of all Accept headers, joined with ", "
  std::string RequestReferer;
  std::string RequestUserAgent;
  std::string RequestContentType;  // value of the Content-Type header line
  std::string AuthUser;            // from a Basic Authorization header
  std::string AuthPassword;
  std::string AuthType = "Basic";  // of the client's authentication, as server variables show it
  std::string ContentLengthText;   // the announced length in decimal; "" when none was announced
  std::string RequestBody;         // what arrived of the body, never more than announced
  bool ExpectsContinue = false;    // a header line "Expect: 100-continue": the client is in no hurry with its body
  bool BodyPending = false;        // a body is still being collected
  std::int64_t BodyWritePos = 1;   // 1-based position in RequestBody at which the next body byte goes
  std::int64_t HeaderEndPos = 1;   // 1-based position of the blank line's CR LF CR LF in what started a POST, 0 when it
                                   // held none; stays 1 for a GET

  // As new, but for kKeptBytes. The body's memory goes entirely.
  void Reset() {
    for (std::string* text :
         {&RequestLine, &DocumentURI, &RequestPath, &RequestQuery, &RequestMethod, &RequestHeader, &RequestAccept,
          &RequestReferer, &RequestUserAgent, &RequestContentType, &AuthUser, &AuthPassword, &ContentLengthText}) {
      Empty(*text, kKeptBytes);
    }
    GiveBack(RequestBody);
    ExpectsContinue = false;
    BodyPending = false;
    BodyWritePos = 1;
    HeaderEndPos = 1;
  }
};

}  // namespace TesselServer
