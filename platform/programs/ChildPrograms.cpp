#include "platform/programs/ChildPrograms.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/loop/EventLoop.h"
#include "platform/programs/ChildWait.h"
#include "platform/programs/LeftOverChildren.h"
#include "platform/programs/StartChild.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

ProgramResult Failed(ProgramResult::Failure failure, int error) {
  ProgramResult result;
  result.failure = failure;
  result.error = error;
  return result;
}

// Starts the program with the pipe's write end as its output, and closes that end here.
StartedChild StartInto(const ProgramStart& start, UniqueDescriptor writeEnd) {
  const UniqueDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nothing.IsOpen()) return {-1, errno};
  return StartChild(start, nothing.Get(), writeEnd.Get());
}

ProgramResult ResultOf(WaitedChild waited) {
  using Failure = ProgramResult::Failure;
  return {.failure = waited.error == 0 ? Failure::kNone : Failure::kRead,
          .error = waited.error,
          .ended = waited.ended,
          .output = std::move(waited.output),
          .exitCode = waited.exitCode,
          .signal = waited.signal,
          .milliseconds = waited.milliseconds,
          .outputWasCut = waited.outputWasCut};
}

}  // namespace

ChildPrograms::ChildPrograms(EventLoop& loop) : leftOver_(std::make_unique<LeftOverChildren>(loop)) {}

ChildPrograms::~ChildPrograms() = default;

ProgramResult ChildPrograms::Run(const ProgramStart& start) {
  leftOver_->Collect();
  if (LeftOver() >= kMaxLeftOver) return Failed(ProgramResult::Failure::kStart, EAGAIN);
  leftOver_->MakeRoom();

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return Failed(ProgramResult::Failure::kPipe, errno);
  const UniqueDescriptor readEnd(ends[0]);
  const StartedChild child = StartInto(start, UniqueDescriptor(ends[1]));
  if (child.number < 0) return Failed(ProgramResult::Failure::kStart, child.error);
  leftOver_->Add(child.number);

  fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);  // of this end only: the child's own is as programs expect it
  WaitedChild waited = WaitForChild(child.number, readEnd.Get(), start.waitMilliseconds, start.outputLimit);
  leftOver_->Collect();
  return ResultOf(std::move(waited));
}

std::size_t ChildPrograms::LeftOver() const { return leftOver_->Count(); }

}  // namespace TesselServer
