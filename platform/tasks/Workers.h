// Work that waits for something else than the network (a name server, a slow disk, a program that has not taken over
// yet), done beside the loop by a few threads.
//
//   auto contents = workers.Do(Workers::Kind::kFiles, [file] { return ReadWhole(file); });
//   Use(co_await contents);
//
// The threads belong to the process, at most kMaxThreads for all loops together. There is none until the first piece of
// work, and the last loop that has used them ends them. All signals are blocked in them, and they never call code of
// the host. At most kMaxOfAKind do work of one kind, so that a silent name server does not keep a disk waiting.
//
// Thread:    the loop's thread.
// Ownership: the loop outlives it. When the task that waits for a piece of work is destroyed, the work is dropped where
//            no thread has begun with it; where one has, it goes on with what it owns, and its result is dropped on
//            either thread.
// Errors:    what the work throws comes out of the co_await. Where no thread can be started, and where the host wants
//            none (Count 0), the work is done in the call, and the loop waits for it.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "platform/tasks/Task.h"

namespace TesselServer {

class EventLoop;
class WorkerThreads;

class Workers {
 public:
  static constexpr std::int32_t kMaxThreads = 4;
  static constexpr std::int32_t kMaxOfAKind = 3;

  enum class Kind { kNames, kFiles, kPrograms, kPasswords };
  static constexpr std::size_t kKinds = 4;

  explicit Workers(EventLoop& loop);
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  ~Workers();

  // How many threads may be made for its work: 0 to kMaxThreads; a value outside is moved to its nearer end. Threads
  // that others have made serve as well. Default: kMaxThreads.
  std::int32_t Count() const { return count_; }
  void Count(std::int32_t count);

  template <typename Work>
  class Result;

  // Has `work` done on a thread; await the result under a name. `work` is copied or moved, and may be destroyed on
  // either thread.
  template <typename Work>
  Result<std::decay_t<Work>> Do(Kind kind, Work&& work) {
    return Result<std::decay_t<Work>>(*this, kind, std::forward<Work>(work));
  }

  // A piece of work on its way. Platform only.
  class Piece {
   public:
    Piece() = default;
    Piece(const Piece&) = delete;
    Piece& operator=(const Piece&) = delete;
    virtual ~Piece() = default;

    // On a thread, or in the call where there is none. Does not throw.
    virtual void Run() noexcept = 0;

    // Resumes the task that waits for it; empty when there is none any more. The loop's thread only.
    std::function<void()> resume;
  };

 private:
  class Gate;

  // Hands the piece over to a thread. False where there is none, and nothing has happened.
  bool Submit(Kind kind, const std::shared_ptr<Piece>& piece);
  // Drops it, unless a thread has begun with it.
  void Withdraw(const Piece& piece) noexcept;

  EventLoop& loop_;
  std::shared_ptr<Gate> gate_;
  std::shared_ptr<WorkerThreads> threads_;  // once there is a piece of work
  std::int32_t count_ = kMaxThreads;
};

template <typename Work>
class Workers::Result final : public Wait<std::invoke_result_t<Work&>> {
 public:
  using Value = std::invoke_result_t<Work&>;

  template <typename Given>
  Result(Workers& workers, Kind kind, Given&& work)
      : workers_(workers), kind_(kind), piece_(std::make_shared<WorkPiece>(std::forward<Given>(work))) {}
  ~Result() {
    piece_->resume = nullptr;
    if (isSubmitted_) workers_.Withdraw(*piece_);
  }

 private:
  struct WorkPiece final : Piece {
    explicit WorkPiece(Work given) : work(std::move(given)) {}
    void Run() noexcept override {
      try {
        value.emplace(work());
      } catch (...) {
        failure = std::current_exception();
      }
    }
    Work work;
    std::optional<Value> value;
    std::exception_ptr failure;
  };

  bool MustWait() override {
    piece_->resume = [this] { this->Resume(); };
    isSubmitted_ = workers_.Submit(kind_, piece_);
    if (isSubmitted_) return true;
    piece_->Run();
    return false;
  }
  Value Take() override {
    isSubmitted_ = false;
    if (piece_->failure) std::rethrow_exception(piece_->failure);
    return std::move(*piece_->value);
  }

  Workers& workers_;
  Kind kind_;
  std::shared_ptr<WorkPiece> piece_;
  bool isSubmitted_ = false;
};

}  // namespace TesselServer
