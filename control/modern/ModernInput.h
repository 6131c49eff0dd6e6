// What has come on one persistent connection: the request that is being read, and what the connection is to do after
// it.
//
// Thread:    the host's thread.
// Ownership: owned by its slot. The fields that the host and the pages ask for are made when they are asked for the
//            first time, so that an answer that needs none of them does not pay for them.
// Errors:    those of memory running out.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "control/connection/RequestInput.h"
#include "control/connection/Slot.h"
#include "control/modern/Deadlines.h"
#include "http/modern/Request.h"
#include "http/modern/RequestReader.h"

namespace TesselServer {

class ModernInput final : public RequestInput {
 public:
  explicit ModernInput(const Modern::RequestReader::Limits& limits) : limits_(limits) { reader_.Begin(limits); }

  RequestFields& Fields() override { return Made(); }
  const RequestFields& Fields() const override { return const_cast<ModernInput*>(this)->Made(); }  // as if it had been
  void LetGoOfBody() override;
  void Reset(std::int64_t maxBodyBytes) override;

  // The connection goes on: forgets the request, but for little memory.
  void BeginNext();

  // How long the header and the body of the next request may be.
  void Limits(const Modern::RequestReader::Limits& limits) {
    limits_ = limits;
    reader_.Begin(limits);
  }

  Modern::RequestReader& Reader() { return reader_; }
  Modern::Request& TheRequest() { return request_; }
  const Modern::Request& TheRequest() const { return request_; }
  Deadlines::Entry& Place() { return place_; }

  // The request is whole: its fields have its body from now on.
  void EndRequest();

  // The body, as far as it has come and is kept.
  void KeepBody(std::string_view piece) { body_.append(piece); }
  std::int64_t BodyBytes() const { return static_cast<std::int64_t>(body_.capacity()); }

  // Whether a password of the client was checked and right: server variables show it.
  void Authenticated(bool value);

  // What an answer says besides its status, where that is not success.
  struct Refusal {
    std::string allow, location, authenticate, contentRange;
  };
  Refusal& Refused() {
    if (!refusal_) refusal_ = std::make_unique<Refusal>();
    return *refusal_;
  }
  const Refusal* IfRefused() const { return refusal_.get(); }

  bool keepsOpen = false;      // the connection goes on after the answer
  bool keepsBody = false;      // the host may read the body
  std::int64_t sentBytes = 0;  // what of the answer had gone when the client was last looked after
  bool isInterim = false;      // what is on its way is no answer yet: 100 Continue

 private:
  RequestFields& Made();
  void Fill(RequestFields& fields) const;
  void FillBody();

  Modern::RequestReader::Limits limits_;
  Modern::RequestReader reader_;
  Modern::Request request_;
  Deadlines::Entry place_;
  bool isAuthenticated_ = false;
  std::unique_ptr<Refusal> refusal_;
  std::string body_;  // until the request is whole, and then until the fields are made, which take it
  bool isWhole_ = false;
  std::unique_ptr<RequestFields> fields_;
};

// The input of a slot of this run, which was made with ModernManner::NewInput.
inline ModernInput& InputOf(Slot& slot) { return static_cast<ModernInput&>(*slot.Input); }
inline const ModernInput& InputOf(const Slot& slot) { return static_cast<const ModernInput&>(*slot.Input); }

}  // namespace TesselServer
