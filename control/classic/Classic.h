// The first manner: HTTP/1.0 (RFC 1945), GET and POST, one request a connection. What arrives is turned into a request
// by Reception, with its times to wait for the rest, and answered by Dispatch.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "control/answer/Dispatch.h"
#include "control/answer/Sending.h"
#include "control/connection/Manner.h"
#include "control/connection/Reception.h"
#include "control/life/ControlState.h"

namespace TesselServer {

class Classic final : public Manner {
 public:
  Classic(ControlState& state, Sending& sending) : state_(state), sending_(sending), dispatch_(state, sending) {}

  NameMatch Names() const override { return NameMatch::kAnyCase; }
  // IPv4 alone.
  void Bind(std::int32_t Index, std::int32_t port, const std::string& ip) override;
  std::unique_ptr<RequestInput> NewInput() override;

  std::vector<std::string> StartLines() const override { return {}; }

  void Accepted(std::int32_t) override {}
  void DataArrival(std::int32_t Index) override;
  void Close(std::int32_t Index) override;
  void SendComplete(std::int32_t Index) override;
  // Each connection has its request under way.
  bool MakeRoom() override { return false; }

  void AnswerAsHostSays(std::int32_t Index) override;
  // A trimmed code of three characters, else "200".
  std::string StatusOfHost(std::string_view code) const override;
  // See HeaderValue.
  std::string HeaderField(const Slot& slot, std::string_view name) const override;

 private:
  template <typename Step>
  void OrGiveUp(std::int32_t Index, const Step& step);
  void Follow(std::int32_t Index, Slot& slot, Reception::Outcome outcome);
  Reception::Outcome BoundBody(Slot& slot, Reception::Outcome outcome);
  void Wait(std::int32_t Index, Slot& slot, Reception::Outcome reason, std::int32_t milliseconds);
  void TimeUp(std::int32_t Index);

  ControlState& state_;
  Sending& sending_;
  Dispatch dispatch_;
};

}  // namespace TesselServer
