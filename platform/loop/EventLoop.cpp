#include "platform/loop/EventLoop.h"

#include <cassert>
#include <utility>

#include "platform/loop/LoopCore.h"
#include "platform/world/World.h"

namespace TesselServer {

bool IsOnThreadOf(const EventLoop* loop) { return loop == nullptr || loop->Core().Thread().MayUse(); }

EventLoop::EventLoop() : EventLoop(SystemWorld()) {}

EventLoop::EventLoop(World& world)
    : core_(std::make_unique<LoopCore>(world, [this](std::string text) {
        try {
          HandlerFailed.Raise(text);
        } catch (...) {  // there is no handler left to report it to
        }
      })) {}

EventLoop::~EventLoop() = default;

void EventLoop::Run() { core_->Run(); }

bool EventLoop::RunOnce(std::int32_t milliseconds) { return core_->Turn(milliseconds); }

void EventLoop::Stop() noexcept { core_->Stop(); }

void EventLoop::Post(std::function<void()> task) { core_->Post(std::move(task)); }

void EventLoop::DoEvents() { core_->DoEvents(); }

bool EventLoop::TurnIsLong() const {
  assert(IsOnThreadOf(this));
  return core_->TurnIsLong();
}

void EventLoop::DeleteLater(std::shared_ptr<void> thing) {
  assert(IsOnThreadOf(this));
  core_->DeleteLater(std::move(thing));
}

int EventLoop::Descriptor() {
  assert(IsOnThreadOf(this));
  return core_->Descriptor();
}

World& EventLoop::TheWorld() const { return core_->TheWorld(); }

}  // namespace TesselServer
