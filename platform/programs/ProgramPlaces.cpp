#include "platform/programs/ProgramPlaces.h"

#include <new>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/programs/TimeLimit.h"

namespace TesselServer {

ProgramPlaces::~ProgramPlaces() { loop_.Core().Withdraw(this); }

void ProgramPlaces::Most(std::int32_t most) {
  most_ = most;
  LetIn();
}

void ProgramPlaces::Release() noexcept {
  --used_;
  LetIn();
}

// Sees to it that the first one that waits is let in, in a turn of the loop, for it is resumed then.
void ProgramPlaces::LetIn() noexcept {
  if (isPosted_ || waiting_.empty() || !IsFree()) return;
  try {
    loop_.Core().Post(this, [this] {
      isPosted_ = false;
      if (waiting_.empty() || !IsFree()) return;
      Arrival& first = *waiting_.front();
      waiting_.pop_front();
      ++used_;
      LetIn();  // the next one
      first.LetIn();
    });
    isPosted_ = true;
  } catch (const std::bad_alloc&) {
    // the next one that comes or goes tries again
  }
}

ProgramPlaces::Arrival::~Arrival() {
  if (isWaiting_) {
    places_.waiting_.erase(queued_);
    limit_.OnOver(nullptr);
  }
  if (isIn_) places_.Release();
}

bool ProgramPlaces::Arrival::MustWait() {
  if (places_.waiting_.empty() && places_.IsFree()) {
    ++places_.used_;
    isIn_ = true;
    return false;
  }
  if (limit_.IsOver()) return false;
  queued_ = places_.waiting_.insert(places_.waiting_.end(), this);
  isWaiting_ = true;
  limit_.OnOver([this] {
    places_.waiting_.erase(queued_);
    isWaiting_ = false;
    Resume();
  });
  places_.LetIn();
  return true;
}

void ProgramPlaces::Arrival::LetIn() {
  isWaiting_ = false;
  isIn_ = true;
  limit_.OnOver(nullptr);
  Resume();
}

ProgramPlaces::Place ProgramPlaces::Arrival::Take() {
  // released as well where there is no memory for the pointer
  if (!std::exchange(isIn_, false)) return nullptr;
  return {&places_, [](ProgramPlaces* places) { places->Release(); }};
}

}  // namespace TesselServer
