// Turns the bytes of one connection into one request. Pure: text in, fields and an outcome out; no socket, no clock.
// The caller runs the two short timers that an outcome asks for.
//
// A request that begins with "GET " is complete as soon as its URL is; its header fields are taken from what came up
// to then and later ones are not seen. Any other request is waited for up to its blank line and then up to the length
// it announces. One that holds "Content-Length: 0" is complete at once and counts as a GET, whatever its method is.
//
// Thread:    any one at a time.
// Ownership: keeps copies of what it needs; a connection's memory is bounded by kMaxHeldBytes and the body limit.
// Errors:    none are raised by input; every input ends in an outcome. Where there is no memory for it, the request is
//            given up: the exception goes on, and what comes after it is kIgnored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "control/connection/BlankLineFinder.h"
#include "control/connection/RequestFields.h"
#include "control/connection/RequestInput.h"

namespace TesselServer {

//   Reception reception;
//   if (reception.Data("GET /a.htm HTTP/1.0\r\n\r\n") == Reception::Outcome::kComplete) Serve(reception.Fields());
class Reception final : public RequestInput {
 public:
  // The header block of a request that is not a GET, or the request line of a GET, is waited for up to this many
  // bytes; a longer one is answered as it is (a header block) or refused (a request line). Nothing after these
  // bytes is searched for header fields, however the bytes were split into chunks.
  static constexpr std::size_t kMaxHeldBytes = 64 * 1024;
  // How long the header block of a request that is not a GET is waited for.
  static constexpr std::int32_t kHoldMilliseconds = 2000;
  // How long the last one to eight announced bytes of a body are waited for once it has begun.
  static constexpr std::int32_t kGraceMilliseconds = 250;
  // How long they are waited for where the body may come well after its header: none of it has come yet, or the client
  // expects "100 Continue". That is not sent, and the client sends the body after a second or so (RFC 9110, 10.1.1).
  static constexpr std::int32_t kLateBodyMilliseconds = 2000;
  // A body may fall this many bytes short of its announced length.
  static constexpr std::int64_t kBodyTolerance = 8;
  // A longer body is refused at once. The host may set another limit.
  static constexpr std::int64_t kDefaultMaxBodyBytes = 64 * 1024 * 1024;
  // No limit of the host's goes beyond this: the announced length is kept as a number of 32 bits.
  static constexpr std::int64_t kMaxBodyBytes = 2147483647;

  // So much of a body is moved at most, in 50 us, where room for more of it is needed.
  static constexpr std::size_t kMovedAtMost = 256 * 1024;

  enum class Outcome {
    kWaiting,   // more must arrive; nothing to do until then, however long it takes
    kHolding,   // more must arrive; call TimeUp() kHoldMilliseconds after the first outcome of this kind
    kGrace,     // more may arrive; call TimeUp() kGraceMilliseconds after the first outcome of this kind
    kLateBody,  // more may arrive; call TimeUp() kLateBodyMilliseconds after the first outcome of this kind
    kComplete,  // the request is complete: dispatch it. Comes at most once
    kBad,       // the request is bad: answer with status 400. Comes at most once, and never beside kComplete
    kIgnored,   // the request was taken already (complete or bad), or there will be none: the bytes are dropped
  };

  explicit Reception(std::int64_t maxBodyBytes = kDefaultMaxBodyBytes) : maxBodyBytes_(maxBodyBytes) {}

  // Takes the next chunk as it arrived.
  Outcome Data(std::string_view chunk);

  // The time asked for by kHolding, kGrace or kLateBody is over. kIgnored when nothing was being waited for by time.
  Outcome TimeUp();

  // The peer sends nothing more. kComplete, kBad, or kIgnored when what has come makes no request.
  Outcome EndOfInput();

  // Whether the host can read the body. The caller decides once the length is known; until then, and with
  // kKept, what comes of it is kept. With kDropped what has come is let go, and what comes is counted only.
  enum class BodyUse { kUndecided, kKept, kDropped };
  BodyUse Body() const { return bodyUse_; }
  void Body(BodyUse use);

  // The length of the body as announced, 0 while it is not known.
  std::int64_t AnnouncedBytes() const { return length_; }

  // What the body takes of memory beside this object: the room it has, and of a room above kMovedAtMost the part that
  // is written to, for the system gives no memory to the rest.
  std::int64_t BodyBytes() const;

  // The caller has no room for the body: the request is bad, even one that was complete. Always kBad.
  Outcome Refuse();

  // True until everything the client announced has been read: its blank line seen and its body complete, nothing
  // after it. While true, closing must be orderly, since a close with unread input would destroy the answer.
  bool InputMayCome() const { return inputMayCome_; }

  RequestFields& Fields() override { return fields_; }
  const RequestFields& Fields() const override { return fields_; }

  // Property MaxBodyBytes (write): bodies longer than this are refused.
  void MaxBodyBytes(std::int64_t value) { maxBodyBytes_ = value; }

  // Forgets everything, for the next connection; see RequestFields::Reset for what memory stays.
  void LetGoOfBody() override { GiveBack(fields_.RequestBody); }
  void Reset(std::int64_t maxBodyBytes) override {
    MaxBodyBytes(maxBodyBytes);
    Reset();
  }
  // The same, but for the limit.
  void Reset();

 private:
  enum class State {
    kStart,   // what is held is blank or may become a GET
    kHeader,  // what is held is no GET and has no blank line yet
    kBody,    // the length is known; a header block that was given up may still have to end
    kTaken,   // complete, bad or given up
  };

  // Runs `step`. One that fails may have stopped half-way, and the bytes after it would be misread: after a failure
  // nothing more is read.
  template <typename Step>
  Outcome OrGiveUp(const Step& step);
  Outcome Take(std::string_view chunk);
  Outcome TakeWhatCame();

  // `start` is what has come of the request until now, from its first byte.
  Outcome Start(std::string_view chunk);
  Outcome Judge(std::string_view start, std::size_t judgedBefore, bool full);
  Outcome JudgeGet(std::string_view start, std::size_t searched, bool full);
  Outcome JudgeOther(std::string_view start, std::size_t searched, bool full);

  // The part of `start` after the blank line.
  std::string_view Behind(std::string_view start) const noexcept;
  std::optional<std::int64_t> ReadFields(std::string_view start, std::string_view method);

  Outcome TakeAsGet(std::string_view start);
  Outcome TakeHeader(std::string_view start);
  Outcome TakeBody(std::string_view bytes);
  void Store(std::string_view bytes);
  void MakeRoom(std::size_t needed);
  Outcome BodyOutcome();

  Outcome Complete();
  Outcome Bad();
  Outcome Ignore();
  void Finish();

  std::int64_t maxBodyBytes_;
  State state_ = State::kStart;
  bool inputMayCome_ = true;
  std::string held_;           // the start of the request, while more of it must come
  std::size_t textStart_ = 0;  // how many bytes of the start are leading blanks
  BlankLineFinder blankLine_;
  BodyUse bodyUse_ = BodyUse::kUndecided;
  std::int64_t length_ = 0;    // announced length of the body
  std::int64_t received_ = 0;  // bytes after the blank line, those beyond the length included
  RequestFields fields_;
};

}  // namespace TesselServer
