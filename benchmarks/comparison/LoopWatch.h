// Runs a control's loop the way a program with a loop of its own does, and times how long the control keeps that
// program waiting: a turn begins when the loop's descriptor is readable, and until RunOnce(0) returns the program does
// nothing else. A timer of one millisecond hangs on the same loop, and its ticks are timed too.
//
// Thread:    the main thread, once.
// Ownership: none.
// Errors:    those of the loop.
#pragma once

namespace TesselServer {
class EventLoop;
}

namespace Comparison {

// Runs `loop` until SIGTERM or SIGINT. Each SIGUSR1 prints one line of JSON and begins anew:
//
//   turns          how many there were
//   long_turns     how many of them took more than a millisecond of this thread's processor time
//   turn_wall_ms   the longest turn by the clock on the wall, on which other programs of the same processor count too
//   turn_kept_ms   the longest turn by that clock, without the time that this thread waited for a processor: it was
//                  running, or waited for something else, such as a disk or a program
//   turn_cpu_ms    the longest turn by the processor time of this thread
//   tick_wall_ms   by how much the latest tick of the timer was later than its millisecond
//   tick_cpu_ms    the same, as far as this thread was running meanwhile
void RunWatched(TesselServer::EventLoop& loop);

}  // namespace Comparison
