// Waits for the end of a child and reads its output meanwhile, beside the loop's other work.
//
// The child's pidfd and its pipe are watched. Where the kernel gives no pidfd, or cannot watch one of the two, both are
// looked at every kBlindMilliseconds. One notification reads kMaxBytesPerStep at most, some 30 microseconds. What comes
// after the limit of the output is read and dropped, so that the child comes to its end, and no more often than every
// kRestMilliseconds: a program that prints for ever costs the loop a few percent of a processor.
//
// Thread:    the loop's thread.
// Ownership: the child, the descriptor and `limit` stay the caller's and outlive it. The child is watched only: the
//            caller collects it.
// Errors:    in the result, as Failure::kRead; none is raised but those of memory running out, which come out of the
//            co_await.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>

#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "platform/programs/ProgramRunner.h"
#include "platform/tasks/Task.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class EventLoop;
class TimeLimit;

class ChildWait final : public Wait<ProgramResult> {
 public:
  static constexpr std::size_t kMaxBytesPerStep = 128 * 1024;
  static constexpr std::int32_t kRestMilliseconds = 1;
  static constexpr std::int32_t kBlindMilliseconds = 20;

  // What a pipe may hold when its writer has ended; a grandchild that writes on is not followed further.
  static constexpr std::size_t kMaxLastBytes = 1024 * 1024;

  // Waits until `child` has ended, as long as `limit` says (zero: does not wait, but reads what is there). `output` is
  // the read end of its pipe and does not block; the first `outputLimit` bytes are kept. Neither is the child waited
  // for once other code has collected it (a host that waits for every child), nor the end of the output once the child
  // has ended.
  ChildWait(EventLoop& loop, pid_t child, int output, std::size_t outputLimit, TimeLimit& limit);
  ~ChildWait();

 private:
  using Step = void (ChildWait::*)();

  // Has a step made for each notification of a descriptor, until it is taken off.
  class Watched final : public LoopClient {
   public:
    Watched(LoopCore& core, ChildWait& wait, Step step) : core_(core), wait_(wait), step_(step) {}
    ~Watched() { Off(); }
    void On(int descriptor) { watch_ = core_.Watch(descriptor, EPOLLIN, *this); }
    bool IsOn() const { return watch_ != 0; }
    void Rest(bool on) { core_.Change(watch_, on ? 0U : EPOLLIN); }
    void Off() noexcept { core_.Unwatch(std::exchange(watch_, 0)); }

   private:
    void OnEvents(std::uint32_t) override { wait_.Make(step_); }

    LoopCore& core_;
    ChildWait& wait_;
    Step step_;
    WatchId watch_ = 0;
  };

  bool MustWait() override;
  ProgramResult Take() override;

  void Make(Step step);
  void OutputCame();
  void ChildEnded();
  void TimerTicked();
  void TimeIsOver();

  void Look(bool hasEnded);
  bool ReadAll();
  std::size_t Read();
  bool IsGone() const;
  bool IsBlind() const;
  void TickIn(std::int32_t milliseconds);
  void StopWatching() noexcept;
  void LookHowItEnded();

  EventLoop& loop_;
  pid_t child_;
  int output_;  // -1 when nothing more will come
  std::size_t outputLimit_;
  TimeLimit& limit_;
  UniqueDescriptor handle_{-1};  // readable when the child has ended; none where the kernel refuses it
  Watched outputWatch_;
  Watched handleWatch_;
  std::optional<Timer> timer_;  // for rests, and where the loop is blind
  bool rests_ = false;          // the output is not watched until the timer ticks
  std::size_t lastBytes_ = 0;   // read after the child's end
  bool isOver_ = false;
  ProgramResult result_;
  std::exception_ptr thrown_;
};

}  // namespace TesselServer
