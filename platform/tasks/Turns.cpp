#include "platform/tasks/Turns.h"

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"

namespace TesselServer {

NextTurn::~NextTurn() {
  if (isPosted_) loop_.Core().Withdraw(task_);
}

bool NextTurn::MustWait() {
  task_ = loop_.Core().Post(this, [this] {
    isPosted_ = false;
    Resume();
  });
  isPosted_ = true;
  return true;
}

void Turns::Begin() { loop_.Core().BeginWork(); }

bool Turns::TimeIsUp() const { return loop_.Core().WorkIsLong(); }

}  // namespace TesselServer
