// Runs programs as children of this process, without harm to it.
//
// A child gets its own environment, standard input from and standard error to /dev/null, standard output into a pipe,
// and no other descriptor, not even one that the host forgot to mark close-on-exec. Its signals have their default
// dispositions and none is blocked, but SIGPIPE is ignored: a child whose time was over may go on writing. Working
// folder, user and limits are this process's.
//
// A child that outlives its time is not killed; it is collected later (waitpid(2) with its own number), by a timer that
// runs only while there is one. SIGCHLD and other children of the host are never touched. A host that ignores SIGCHLD,
// or that waits for every child itself, may: then only the end of the child is known. (Should such a host get a new
// child with the number of one that it collected for us, within the second until our timer looks, that one may be
// collected too.)
//
// Thread:    the loop's thread.
// Ownership: the loop outlives it. Children that still run when it is destroyed run on; the next object of this kind in
//            the process collects them.
// Errors:    as ProgramRunner.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

class EventLoop;
class LeftOverChildren;

class ChildPrograms : public ProgramRunner {
 public:
  // How many children may live on after their time. Beyond it no program is started (kStart, EAGAIN): requests for a
  // program that never ends must not fill the machine.
  static constexpr std::size_t kMaxLeftOver = 64;

  explicit ChildPrograms(EventLoop& loop);
  ChildPrograms(const ChildPrograms&) = delete;
  ChildPrograms& operator=(const ChildPrograms&) = delete;
  ~ChildPrograms() override;

  // Waits inside the call, by the real clock, for the child's end and its output; nothing else of the loop runs
  // meanwhile, and no processor time is used. Output is read as it comes, so a child with much output ends too. A
  // grandchild that keeps the pipe open is not waited for.
  Task<ProgramResult> Run(ProgramStart start) override;

  // How many children have outlived their time and not been collected yet.
  std::size_t LeftOver() const;

 private:
  std::unique_ptr<LeftOverChildren> leftOver_;
};

}  // namespace TesselServer
