// Turns the bytes of one connection into requests, one after the other. Pure: bytes in, requests and pieces of their
// bodies out; no socket, no clock. However the bytes are cut into chunks, the requests are the same.
//
// Strict where a request could be understood in two ways, and bounded: it keeps the header block of one request at
// most, and nothing of a body. A request that lies in one chunk costs one copy, that of its header block.
//
// Thread:    any one at a time.
// Ownership: pieces of a body look into the bytes that were given. The request given to Next is the same one from
//            Begin to kEnd.
// Errors:    none are raised by input; a request that is refused has a status. No memory: the exception goes on, and
// the
//            connection is to be closed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "http/modern/ChunkedBody.h"
#include "http/modern/HeadScanner.h"
#include "http/modern/Request.h"

namespace TesselServer::Modern {

//   reader.Begin(limits);
//   for (;;) {
//     const auto step = reader.Next(bytes, request);
//     bytes.remove_prefix(step.used);
//     if (step.state == RequestReader::State::kMore) return;       // called again when more has come
//     if (step.state == RequestReader::State::kHead) Decide(request);
//     if (step.state == RequestReader::State::kBody) Use(step.body);
//     if (step.state == RequestReader::State::kEnd) Answer(request), reader.Begin(limits);
//     if (step.state == RequestReader::State::kRefused) return Refuse(reader.RefusalStatus());
//   }
class RequestReader {
 public:
  // Empty lines before a request are left over from bodies of old clients (RFC 9112 2.2). More are refused with 400.
  static constexpr int kMaxEmptyLines = 4;

  struct Limits {
    // The request line and the field lines together; also the line of a chunk's size, and the trailer fields. At most
    // 1 MiB.
    std::size_t headerBytes = std::size_t{64} * 1024;
    // A body, decoded.
    std::int64_t bodyBytes = std::int64_t{64} * 1024 * 1024;
  };

  enum class State {
    kMore,     // all was taken, more must come
    kHead,     // the request is valid; nothing of its body was taken
    kBody,     // a piece of the body
    kEnd,      // the request is over; what follows belongs to the next one. Again and again until Begin
    kRefused,  // see RefusalStatus; the connection cannot go on. Again and again until Begin
  };
  struct Step {
    State state;
    std::size_t used;       // bytes taken from the front; the rest is to be given again
    std::string_view body;  // of kBody, decoded, never empty
  };

  // Expects the first byte of a request.
  void Begin(const Limits& limits);

  // Takes bytes up to the next event. The first byte of a request resets `request`. Each request has one kHead, then
  // its pieces, then kEnd; kRefused may come in place of any of them. `bytes` may be empty.
  Step Next(std::string_view bytes, Request& request);

  // 400, 413, 414, 431, 501 or 505. The request has its Line() where that came whole, and is valid where the status is
  // that of a body: 413, or what follows kHead.
  int RefusalStatus() const { return refusal_; }

  // Whether a byte of the request has come; empty lines before it are none.
  bool HasBegun() const { return place_ != Place::kEmptyLines; }

  // The bytes of the body until now, decoded.
  std::int64_t BodyReceived() const { return received_; }

 private:
  enum class Place { kEmptyLines, kHead, kFixedBody, kChunkedBody, kEnd, kRefused };

  std::size_t SkipEmptyLines(std::string_view bytes, Request& request);
  Step TakeHead(std::string_view bytes, Request& request);
  Step EndHead(std::size_t used, Request& request);
  Step TakeFixedBody(std::string_view bytes);
  Step TakeChunkedBody(std::string_view bytes);
  Step Refuse(int status, std::size_t used);

  Place place_ = Place::kEmptyLines;
  Limits limits_;
  int refusal_ = 0;
  int emptyLines_ = 0;
  bool hasReturn_ = false;  // among the empty lines: a CR whose LF has not come
  HeadScanner head_;
  ChunkedBody chunks_;
  std::int64_t announced_ = 0;  // length of a body that is not chunked
  std::int64_t received_ = 0;
};

}  // namespace TesselServer::Modern
