// One play of a script: clients, host, programs and clock do what its steps say, with the rules checked after each.
// What the steps are: fuzz/ControlFuzzer.cpp.
//
// Thread:    one.
// Ownership: one play at a time, for there is one kernel.
// Errors:    a broken rule stops the program (fuzz/Require.h).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Require.h"
#include "fuzz/kernel/Faults.h"
#include "fuzz/kernel/HeldPool.h"
#include "fuzz/kernel/Host.h"
#include "fuzz/kernel/JumpingWorld.h"
#include "fuzz/kernel/Kernel.h"
#include "platform/loop/EventLoop.h"

namespace TesselServer::Pretended {

class Play {
 public:
  Play();
  Play(const Play&) = delete;
  Play& operator=(const Play&) = delete;

  // A step that is none is ignored.
  void Step(std::string_view step);

  // Takes away what holds things up, checks, and takes everything down.
  void Finish();

 private:
  struct Visitor {
    ClientPointer client = std::make_shared<Client>();
    std::string sent;
    bool isDisturbed = false;  // something may have kept it from its answer
  };

  void StepOfClient(char what, std::size_t which, std::string_view rest);
  void StepOfChild(char what, std::size_t which, std::string_view rest);
  void StepOfHost(char what, std::string_view rest);
  void StepOfSystem(char what, std::string_view rest);

  Visitor& At(std::size_t which);
  void Connect(Visitor& visitor);
  void Pass(std::int64_t milliseconds);
  void Turn();
  void Rest();
  std::size_t Progress() const;

  // ---- Rules.
  void Check();
  void NoteDisturbances();
  void CheckAnswer(const Visitor& visitor) const;
  void CheckStatistics();

  // ---- The end.
  void LetEverythingGo();
  void AllClientsLeave();
  void CheckAnswersAreThere() const;
  void MakeServerRun();
  void Probe();
  void CheckNothingIsLeft();

  Kernel& kernel_ = Kernel::The();
  Faults& faults_ = Faults::The();
  std::shared_ptr<HeldPool> pool_ = std::make_shared<HeldPool>();
  JumpingWorld world_;
  std::size_t descriptorsBefore_ = 0;
  std::int64_t framesBefore_ = 0;
  std::optional<EventLoop> loop_;
  std::optional<Host> host_;
  std::vector<std::unique_ptr<Visitor>> visitors_;
  std::array<Visitor*, 10> current_{};
  std::optional<unsigned> turns_;  // after each step; none: until all is at rest
  unsigned disturbances_ = 0;
  unsigned failures_ = 0;  // what HandlerFailed has reported
};

}  // namespace TesselServer::Pretended
