// An event of a control or a loop: a host connects a callable to it.
//
// Thread:    the loop's thread; debug builds assert it.
// Ownership: keeps a copy of the callable. A callable may replace or disconnect itself, stop the server or destroy the
//            control while it runs.
// Errors:    what a callable of a control's event throws is caught by the control and reported through LogEvent; it
//            never reaches the loop.
#pragma once

#include <cassert>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace TesselServer {

class EventLoop;

// Whether this thread may use the loop and everything made for it (see EventLoop); nullptr is no loop.
bool IsOnThreadOf(const EventLoop* loop);

//   tessel.HTTPLog = [](std::string& line) { std::puts(line.c_str()); };
//   tessel.HTTPLog = nullptr;
template <typename... Args>
class Event {
 public:
  using Handler = std::function<void(Args...)>;

  // `loop` is the one whose thread the event belongs to.
  explicit Event(const EventLoop* loop = nullptr) : loop_(loop) {}
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // Connects `handler` in place of the one before; nullptr or an empty function disconnects.
  Event& operator=(Handler handler) {
    assert(IsOnThreadOf(loop_));
    handler_ = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
    return *this;
  }
  Event& operator=(std::nullptr_t) {
    assert(IsOnThreadOf(loop_));
    handler_.reset();
    return *this;
  }

  bool IsConnected() const { return handler_ != nullptr; }

  // Calls the handler, if there is one. Raises what it raises.
  void Raise(Args... args) const {
    assert(IsOnThreadOf(loop_));
    const auto handler = handler_;  // the handler outlives its own replacement and the control
    if (handler) (*handler)(std::forward<Args>(args)...);
  }

 private:
  const EventLoop* loop_;
  std::shared_ptr<const Handler> handler_;
};

}  // namespace TesselServer
