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

using Failure = ProgramResult::Failure;

// Starts the program with the pipe's write end as its output, and closes that end here.
StartedChild StartInto(const ProgramStart& start, UniqueDescriptor writeEnd) {
  const UniqueDescriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  if (!nothing.IsOpen()) return {-1, errno};
  return StartChild(start, nothing.Get(), writeEnd.Get());
}

}  // namespace

ChildPrograms::ChildPrograms(EventLoop& loop) : leftOver_(std::make_unique<LeftOverChildren>(loop)) {}

ChildPrograms::~ChildPrograms() = default;

Task<ProgramResult> ChildPrograms::Run(ProgramStart start) {
  leftOver_->Collect();
  if (LeftOver() >= kMaxLeftOver) co_return ProgramResult{.failure = Failure::kStart, .error = EAGAIN};
  leftOver_->MakeRoom();

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) co_return ProgramResult{.failure = Failure::kPipe, .error = errno};
  const UniqueDescriptor readEnd(ends[0]);
  const StartedChild child = StartInto(start, UniqueDescriptor(ends[1]));
  if (child.number < 0) co_return ProgramResult{.failure = Failure::kStart, .error = child.error};
  leftOver_->Add(child.number);

  fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);  // of this end only: the child's own is as programs expect it
  ProgramResult result = WaitForChild(child.number, readEnd.Get(), start.waitMilliseconds, start.outputLimit);
  leftOver_->Collect();
  co_return result;
}

std::size_t ChildPrograms::LeftOver() const { return leftOver_->Count(); }

}  // namespace TesselServer
