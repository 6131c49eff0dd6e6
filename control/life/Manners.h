// The manners of speaking that a control has.
//
// Thread:    the host's thread.
// Ownership: owns them, for as long as the control lives.
// Errors:    none but those of memory running out.
#pragma once

#include <memory>

#include "control/answer/Sending.h"
#include "control/classic/Classic.h"
#include "control/life/ControlState.h"
#include "http/Enumerations.h"

namespace TesselServer {

class ModernManner;

class Manners {
 public:
  // Puts the first manner into the state: before any start a host may ask for what no run has.
  Manners(ControlState& state, Sending& sending);

  ~Manners();

  // The manner for this mode; the first for a number that is none.
  Manner& For(e_HTTPMode mode);

 private:
  ControlState& state_;
  Sending& sending_;
  Classic classic_;
  std::unique_ptr<ModernManner> modern_;  // made for the first run that needs it
};

}  // namespace TesselServer
