// The second manner: HTTP/1.1 (RFC 9110, RFC 9112) for today's clients, with persistent connections. What arrives is
// turned into requests by Modern::RequestReader, one after the other, and answered by ModernAnswers.
//
// Thread:    the host's thread.
// Ownership: keeps references to the control's state and its sending part.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "control/answer/Sending.h"
#include "control/connection/Manner.h"
#include "control/life/ControlState.h"
#include "control/modern/Deadlines.h"
#include "control/modern/ModernAnswers.h"
#include "control/modern/ModernInput.h"

namespace TesselServer {

class ModernManner final : public Manner {
 public:
  ModernManner(ControlState& state, Sending& sending);

  NameMatch Names() const override { return NameMatch::kExact; }
  // Addresses of both families.
  void Bind(std::int32_t Index, std::int32_t port, const std::string& ip) override;
  // A source of passwords that protects nothing.
  void CheckSettings() const override { answers_.Passwords().CheckSettings(); }
  void Started() override { answers_.Passwords().ReportAtStart(); }
  std::unique_ptr<RequestInput> NewInput() override;

  std::vector<std::string> StartLines() const override;

  void Accepted(std::int32_t Index) override;
  void DataArrival(std::int32_t Index) override;
  void Close(std::int32_t Index) override;
  void SendComplete(std::int32_t Index) override;
  // The connection that has been idle longest goes.
  bool MakeRoom() override;

  void AnswerAsHostSays(std::int32_t Index) override;
  std::string StatusOfHost(std::string_view code) const override;
  // By its whole name, in any case; "" is the whole header block.
  std::string HeaderField(const Slot& slot, std::string_view name) const override;

 private:
  template <typename Step>
  void OrGiveUp(std::int32_t Index, const Step& step);
  void Take(std::int32_t Index, Slot& slot, std::string_view bytes);
  bool TakeHead(std::int32_t Index, Slot& slot, bool bodyHasCome);
  bool TakeBody(std::int32_t Index, Slot& slot, std::string_view piece);
  void TakeEnd(std::int32_t Index, Slot& slot, std::string_view rest);
  void Refuse(std::int32_t Index, Slot& slot, int status);
  void Overdue(Deadlines::Entry& place, Deadlines::Wait wait);
  void ClientIsOverdue(Deadlines::Entry& place, Slot& slot);
  Modern::RequestReader::Limits Limits() const;

  ControlState& state_;
  Sending& sending_;
  Deadlines deadlines_;
  ModernAnswers answers_;
};

}  // namespace TesselServer
