// An event of the control: a host connects a callable to it.
//
// Thread:    the loop's thread.
// Ownership: keeps a copy of the callable. A callable may replace or disconnect itself, stop the server or destroy the
//            control while it runs.
// Errors:    what a callable throws is caught by the control and reported through LogEvent; it never reaches the loop.
#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace TesselServer {

//   tessel.HTTPLog = [](std::string& line) { std::puts(line.c_str()); };
//   tessel.HTTPLog = nullptr;
template <typename... Args>
class Event {
 public:
  using Handler = std::function<void(Args...)>;

  Event() = default;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // Connects `handler` in place of the one before; nullptr or an empty function disconnects.
  Event& operator=(Handler handler) {
    handler_ = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
    return *this;
  }
  Event& operator=(std::nullptr_t) {
    handler_.reset();
    return *this;
  }

  bool IsConnected() const { return handler_ != nullptr; }

  // Calls the handler, if there is one. Raises what it raises.
  void Raise(Args... args) const {
    const auto handler = handler_;  // the handler outlives its own replacement and the control
    if (handler) (*handler)(std::forward<Args>(args)...);
  }

 private:
  std::shared_ptr<const Handler> handler_;
};

}  // namespace TesselServer
