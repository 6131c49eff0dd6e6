#include "platform/loop/EventLoop.h"

#include "platform/loop/LoopCore.h"
#include "platform/world/World.h"

namespace TesselServer {

EventLoop::EventLoop() : EventLoop(SystemWorld()) {}

EventLoop::EventLoop(World& world) : core_(std::make_unique<LoopCore>(world)) {}

EventLoop::~EventLoop() = default;

void EventLoop::Run() { core_->Run(); }

bool EventLoop::RunOnce(std::int32_t milliseconds) { return core_->Turn(milliseconds); }

void EventLoop::Stop() noexcept { core_->Wake(); }

void EventLoop::DoEvents() { core_->DoEvents(); }

void EventLoop::Yield() { core_->Yield(); }

void EventLoop::Flush() noexcept { core_->EndTurn(); }

bool EventLoop::TurnIsLong() const { return core_->TurnIsLong(); }

int EventLoop::Descriptor() { return core_->Descriptor(); }

World& EventLoop::TheWorld() const { return core_->TheWorld(); }

}  // namespace TesselServer
