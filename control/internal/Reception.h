// Turns the bytes of one connection into one request. Pure: text in, fields and an outcome out; no socket, no clock.
// The caller runs the two short timers that an outcome asks for.
//
// Thread:    any one at a time.
// Ownership: keeps copies of what it needs; a connection's memory is bounded by kMaxHeldBytes and the body limit.
// Errors:    none are raised by input; every input ends in an outcome.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "control/internal/RequestFields.h"

namespace TesselServer {

//   Reception reception;
//   if (reception.Data("GET /a.htm HTTP/1.0\r\n\r\n") == Reception::Outcome::kComplete) Serve(reception.Fields());
class Reception {
 public:
  // The header block of a request that is not a GET, or the request line of a GET, is waited for up to this many
  // bytes; a longer one is answered as it stands (a header block) or refused (a request line).
  static constexpr std::size_t kMaxHeldBytes = 64 * 1024;
  // How long the header block of a request that is not a GET is waited for.
  static constexpr std::int32_t kHoldMilliseconds = 2000;
  // How long the last one to eight announced bytes of a body are waited for.
  static constexpr std::int32_t kGraceMilliseconds = 250;
  // A body may fall this many bytes short of its announced length.
  static constexpr std::int64_t kBodyTolerance = 8;
  // A longer body is refused at once. The host may set another limit.
  static constexpr std::int64_t kDefaultMaxBodyBytes = 64 * 1024 * 1024;
  // Base64 credentials longer than this are not decoded: the request carries none.
  static constexpr std::size_t kMaxCredentialBytes = 8 * 1024;

  enum class Outcome {
    kWaiting,   // more must arrive; nothing to do until then, however long it takes
    kHolding,   // more must arrive; call TimeUp() kHoldMilliseconds after the first outcome of this kind
    kGrace,     // more may arrive; call TimeUp() kGraceMilliseconds after the first outcome of this kind
    kComplete,  // the request is complete: dispatch it. Comes at most once
    kBad,       // the request is bad: answer with status 400. Comes at most once, and never beside kComplete
    kIgnored,   // the request was taken already (complete or bad): the bytes are dropped
  };

  explicit Reception(std::int64_t maxBodyBytes = kDefaultMaxBodyBytes) : maxBodyBytes_(maxBodyBytes) {}

  // Takes the next chunk as it arrived.
  Outcome Data(std::string_view chunk);

  // The time asked for by kHolding or kGrace is over. kIgnored when nothing was being waited for by time.
  Outcome TimeUp();

  // The peer sends nothing more. kComplete, kBad, or kIgnored when what has come makes no request.
  Outcome EndOfInput();

  // True until everything the client announced has been read: its blank line seen and its body complete, nothing
  // behind it. While true, closing must be orderly, for a close with unread input would destroy the answer.
  bool InputMayCome() const { return inputMayCome_; }

  RequestFields& Fields() { return fields_; }
  const RequestFields& Fields() const { return fields_; }

  // Forgets everything, for the next connection.
  void Reset();

 private:
  // (the implementer's private members go here)
  std::int64_t maxBodyBytes_;
  bool inputMayCome_ = true;
  RequestFields fields_;
};

}  // namespace TesselServer
