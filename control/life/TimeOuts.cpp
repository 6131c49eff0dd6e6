#include "control/life/TimeOuts.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "control/answer/RecordSetup.h"

namespace TesselServer {

namespace {

// A sum that stays a number of 32 bits.
std::int32_t Add(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(std::int64_t{a} + b, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

void TimeOuts::TimerCheckConnections() {
  state_.reporter.Trap(ErrorPrefix::kTimerCheckConnections, [&] { WatchListener(); });
  if (state_.terminated || !state_.running) return;  // an event of the above stopped the server
  state_.reporter.Trap(ErrorPrefix::kTimerCheckConnections, [&] { Sweep(); });
}

void TimeOuts::WatchListener() {
  const auto quiet = [&] { return state_.TickCount() - state_.lastConnectionTick > kQuietMilliseconds; };
  const bool listening = state_.sckWS.State(kListener) == SocketState::kListening;
  if (listening && !quiet()) return;
  const std::uint32_t stops = state_.stopCount;
  state_.sckWS.OfferWaiting(kListener);  // a client in the queue is a connection request, and is not dropped
  if (state_.terminated || state_.stopCount != stops || (listening && !quiet())) return;
  // kept: the tick is not updated, so a server without visitors rebuilds its listener on every check
  OpenListener();
}

void TimeOuts::OpenListener() {
  auto kept = state_.sckWS.Keep(kListener);  // a client that has connected and not sent yet is not lost
  state_.sckWS.Close(kListener);
  state_.sckWS.Unload(kListener);
  state_.sckWS.Load(kListener);
  state_.manner->Bind(kListener, state_.listenPort, state_.listenIP);
  state_.sckWS.Listen(kListener, std::move(kept));
  if (state_.listenPort != 0) return;
  state_.listenPort = state_.sckWS.BoundPort(kListener);
  ApplySettings(state_);  // the port that pages show
}

void TimeOuts::Sweep() {
  if (state_.settings.ConnectionTimeout == 0) return;
  state_.tmrCheckConn.Interval(kCheckMilliseconds);
  elapsedSeconds_ = Add(elapsedSeconds_, state_.tmrCheckConn.Interval() / 1000);
  // kept: the seconds are not taken back when a minute is full, so from the first minute on every check adds to it
  elapsedMinutes_ = Add(elapsedMinutes_, elapsedSeconds_ / 60);
  if (elapsedMinutes_ < state_.settings.ConnectionTimeout) return;
  elapsedSeconds_ = 0;
  elapsedMinutes_ = 0;
  std::int16_t free = 0;
  for (std::int32_t i = kFirstConnection; i <= state_.HighestConnection(); ++i) {
    const SocketState element = state_.sckWS.State(i);
    if (element == SocketState::kError || element == SocketState::kClosing) sending_.CloseConnection(i);
    if (state_.sckWS.State(i) == SocketState::kClosed) ++free;
  }
  state_.statistics.FreeConnections = free;
}

}  // namespace TesselServer
