// Runs programs as children of this process, beside the loop and without harm to the host.
//
// The loop's thread spends 10 microseconds on handing a program over and some 20 in each of the two or three turns in
// which it has to do with it. The start itself takes a thread 60 to 160 microseconds; of a host with 10,000 descriptors
// and 4 GiB in memory 0.6 to 2.5 milliseconds, all for the descriptors. Without threads the loop's thread is held for
// that time. A program that prints as fast as it can takes 4 % of the loop's time for as long as it is waited for.
//
// A child gets its own environment, standard input from and standard error to /dev/null, standard output into a pipe,
// and no other descriptor, not even one that the host forgot to mark close-on-exec. Its signals have their default
// dispositions and none is blocked, but SIGPIPE is ignored: a child whose time was over may go on writing. Working
// folder, user and limits are this process's.
//
// A child that outlives its time, or whose task is destroyed, is not killed; it is collected later (waitpid(2) with its
// own number), by a timer that runs only while there is one. SIGCHLD and other children of the host are never touched.
// A host that ignores SIGCHLD, or that waits for every child itself, may: then only the end of the child is known.
// (Should such a host get a new child with the number of one that it collected for us, within the second until our
// timer looks, that one may be collected too.)
//
// Thread:    the loop's thread. Programs are started on threads of `workers`, unless there are none.
// Ownership: the loop outlives it and its tasks, and the workers outlive it. Children that still run when it is
//            destroyed run on; the next object of this kind in the process collects them. A task that is not done by
//            then starts no program any more, and goes on with one that runs.
// Errors:    as ProgramRunner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

class EventLoop;
class TimeLimit;
class Workers;

class ChildPrograms : public ProgramRunner {
 public:
  // How many children may live on after their time. Beyond it no program is started (kStart, EAGAIN): requests for a
  // program that never ends must not fill the machine. Those that are running then may still be left over, so that
  // there are fewer than kMaxLeftOver + MaxPrograms at any time.
  static constexpr std::size_t kMaxLeftOver = 64;

  // Each running program takes a process and two descriptors.
  static constexpr std::int32_t kDefaultMaxPrograms = 32;
  static constexpr std::int32_t kHighestMaxPrograms = 1000;

  ChildPrograms(EventLoop& loop, Workers& workers);
  ChildPrograms(const ChildPrograms&) = delete;
  ChildPrograms& operator=(const ChildPrograms&) = delete;
  ~ChildPrograms() override;

  // Property MaxPrograms: how many programs run at once, 1 to kHighestMaxPrograms; a value outside is moved to its
  // nearer end. Further ones wait in order of arrival. A higher number lets waiting ones start, a lower one ends none.
  // Default: kDefaultMaxPrograms.
  std::int32_t MaxPrograms() const;
  void MaxPrograms(std::int32_t most);

  // Runs the program beside the loop, which has its turns meanwhile. The time counts from here on, for waiting for a
  // place as well: one that gets none in time is not started (kStart, EAGAIN), and with a time of 0 only where one is
  // free. A place is free again when the task is done, whether its child runs on or not. Where the
  // task is destroyed before, it is free when the child has ended or the time is over: clients that leave at once do
  // not get more programs run than others. Output is read as it comes, so a child with much output ends too. A
  // grandchild that keeps the pipe open is not waited for.
  Task<void> Run(ProgramStart start, ProgramResult& result) override;

  // How many children have outlived their time and not been collected yet.
  std::size_t LeftOver() const;

 private:
  struct Inside;
  class WaitedFor;

  static Task<void> RunInTurn(std::shared_ptr<Inside> inside, ProgramStart start, ProgramResult& result);
  static Task<void> RunIn(Inside& inside, ProgramStart start, std::shared_ptr<void> place, TimeLimit& limit,
                          ProgramResult& result);

  std::shared_ptr<Inside> inside_;  // the tasks' too
};

}  // namespace TesselServer
