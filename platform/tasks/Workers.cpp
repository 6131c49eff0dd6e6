#include "platform/tasks/Workers.h"

#include <algorithm>
#include <mutex>

#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/tasks/WorkerThreads.h"

namespace TesselServer {

// The way back from the threads to the loop, as long as there is one.
class Workers::Gate {
 public:
  explicit Gate(EventLoop& loop) : loop_(&loop) {}

  void Close() {
    const std::scoped_lock lock(mutex_);
    loop_ = nullptr;
  }
  void Post(LoopCore::PreparedTask& done) {
    const std::scoped_lock lock(mutex_);
    if (loop_ != nullptr) loop_->Core().Post(done);
  }

 private:
  std::mutex mutex_;
  EventLoop* loop_;
};

Workers::Workers(EventLoop& loop) : loop_(loop), gate_(std::make_shared<Gate>(loop)) {}

Workers::~Workers() {
  gate_->Close();
  loop_.Core().WithdrawPosted(gate_.get());
}

void Workers::Count(std::int32_t count) { count_ = std::clamp(count, 0, kMaxThreads); }

bool Workers::Submit(Kind kind, const std::shared_ptr<Piece>& piece) {
  if (count_ == 0) return false;
  if (!threads_) {
    threads_ = WorkerThreads::Shared();
    loop_.Core().KeepToTheEnd(threads_);  // the control may go at once; the loop waits for what is under way
  }
  // made before there is something to be lost for want of memory
  auto done = std::make_shared<LoopCore::PreparedTask>(LoopCore::Prepare(gate_.get(), [piece] {
    if (piece->resume) piece->resume();
  }));
  return threads_->Add(
      kind, piece.get(),
      [piece, done, gate = gate_] {
        piece->Run();
        gate->Post(*done);
      },
      count_);
}

void Workers::Withdraw(const Piece& piece) noexcept { threads_->Withdraw(&piece); }

}  // namespace TesselServer
