// The threads that all workers of the process share: made one by one as there is work for them, and kept until nothing
// uses them any more.
//
// Thread:    any.
// Ownership: shared by what uses them. The last one to let go of them ends them: it waits for work under way, for as
//            long as kPatience; a thread that is still held up then, by a disk that does not answer, ends with its
//            work.
// Errors:    Add returns false where no thread can be started.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/tasks/Workers.h"

namespace TesselServer {

class WorkerThreads {
 public:
  // Longer than a look-up of a name takes.
  static constexpr std::chrono::milliseconds kPatience{2000};

  // Those of the process.
  static std::shared_ptr<WorkerThreads> Shared();

  // Makes `threads` those of the process, for as long as anything uses them: a test's own, which does work when it
  // likes. What uses others already keeps those.
  static void Share(const std::shared_ptr<WorkerThreads>& threads);

  WorkerThreads();
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;
  virtual ~WorkerThreads();

  // Has `work`, which does not throw, done by a thread, in the order of adding. Makes a thread where all are at work
  // and there are fewer than `most` of them. False, and nothing is added, when there is none and none can be made.
  // `owner`, which has no other work here, can take it back.
  virtual bool Add(Workers::Kind kind, const void* owner, std::function<void()> work, std::int32_t most);

  // For a process that ends: work under way is not waited for.
  void WaitForNone();

  // Drops the work of that owner which no thread has begun.
  virtual void Withdraw(const void* owner) noexcept;

 private:
  struct Shelf;

  bool HasThread(std::int32_t most);

  std::shared_ptr<Shelf> shelf_;  // what the threads work from; theirs too
  std::mutex mutex_;              // for the threads themselves
  std::vector<std::thread> threads_;
  std::chrono::milliseconds patience_ = kPatience;
};

}  // namespace TesselServer
