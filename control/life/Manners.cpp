#include "control/life/Manners.h"

#include "control/modern/ModernManner.h"

namespace TesselServer {

Manners::Manners(ControlState& state, Sending& sending) : state_(state), sending_(sending), classic_(state, sending) {
  state.manner = &classic_;
}

Manners::~Manners() = default;

Manner& Manners::For(e_HTTPMode mode) {
  if (mode != e_HTTPMode::Modern) return classic_;
  if (!modern_) modern_ = std::make_unique<ModernManner>(state_, sending_);
  return *modern_;
}

}  // namespace TesselServer
