// Work that can be suspended: a C++20 coroutine that returns a Task. It waits for another task, or for something that
// is not there yet (class Wait), and goes on in a later turn of the loop.
//
//   Task<std::string> Greeting(Names& names) {
//     auto name = names.NameOf(7);           // named first: what is awaited lives in the frame, under a name
//     co_return "Hello " + co_await name;    // the frame is suspended here until the name is there
//   }
//
//   RunningTask greeting = RunningTask::Start(Say(names));  // owned; destroying it is how a task is cancelled
//
// Only something with a name can be awaited, for GCC 12 destroys temporaries of such an expression twice or never.
// References that a coroutine is given outlive it: it is destroyed with its owner, so what the owner keeps alive is
// good. A task that is resumed is resumed by TaskRun alone, one frame after the other and never one inside the other,
// so no chain of tasks takes any stack.
//
// Thread:    the one that starts it.
// Ownership: a Task owns its frame, which owns the tasks and waits in it. A RunningTask owns what it runs; destroyed
//            while that is on the stack, it lets it go on until it is suspended or done, and then it is destroyed.
// Errors:    what a task throws comes out of the co_await that waits for it; what a started one throws is lost. A frame
//            needs memory: a coroutine that gets none throws std::bad_alloc when it is called.
#pragma once

#include <cassert>
#include <coroutine>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

namespace TesselServer {

class TaskRun;

// What all frames have.
struct TaskPromise {
  TaskPromise() { ++living; }
  TaskPromise(const TaskPromise&) = delete;
  TaskPromise& operator=(const TaskPromise&) = delete;
  ~TaskPromise() { --living; }

  std::suspend_always initial_suspend() const noexcept { return {}; }
  auto final_suspend() const noexcept;
  void unhandled_exception() noexcept { failure = std::current_exception(); }

  TaskRun* run = nullptr;          // what drives it
  std::coroutine_handle<> waiter;  // the task that waits for it; null for the one that was started
  std::exception_ptr failure;

  static inline thread_local std::int64_t living = 0;  // frames of this thread, for tests that count them
};

template <typename Value>
struct TaskResult : TaskPromise {
  void return_value(Value&& given) { value.emplace(std::move(given)); }
  void return_value(const Value& given) { value.emplace(given); }
  Value&& Take() {
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
    return std::move(*value);
  }
  std::optional<Value> value;
};

template <>
struct TaskResult<void> : TaskPromise {
  void return_void() const noexcept {}
  void Take() {
    if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
  }
};

template <typename Value = void>
class [[nodiscard]] Task {
 public:
  struct promise_type : TaskResult<Value> {
    Task get_return_object() { return Task(std::coroutine_handle<promise_type>::from_promise(*this)); }
  };

  Task() = default;
  Task(Task&& other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      Destroy();
      frame_ = std::exchange(other.frame_, nullptr);
    }
    return *this;
  }
  ~Task() { Destroy(); }

  // False for one that was made without a coroutine: what it would have done is done, and it is not awaited.
  explicit operator bool() const { return frame_ != nullptr; }

  // Waits until it is done and gives its value, once: where it is in the frame of this task, so that the one that
  // waits need not keep a second one.
  auto operator co_await() & noexcept;

 private:
  friend class TaskRun;
  struct Awaiter;

  explicit Task(std::coroutine_handle<promise_type> frame) : frame_(frame) {}
  void Destroy() noexcept {
    if (frame_) std::exchange(frame_, nullptr).destroy();
  }

  std::coroutine_handle<promise_type> frame_;
};

// Drives the frames of one task, from the one that was started down to the one that waits.
class TaskRun : public std::enable_shared_from_this<TaskRun> {
 public:
  explicit TaskRun(Task<void> task) : task_(std::move(task)) {
    task_.frame_.promise().run = this;
    next_ = task_.frame_;
  }
  TaskRun(const TaskRun&) = delete;
  TaskRun& operator=(const TaskRun&) = delete;

  // Goes on until the task waits or is done. Nothing of it may be on the stack.
  void Resume() {
    assert(!isOnStack_);
    const auto held = shared_from_this();  // its owner may let go of it meanwhile
    isOnStack_ = true;
    while (next_) std::exchange(next_, nullptr).resume();
    isOnStack_ = false;
    if (task_.frame_.done()) task_ = {};
  }
  bool IsDone() const { return !task_.frame_; }

  // Which frame goes on when the present one is suspended.
  void Next(std::coroutine_handle<> frame) { next_ = frame; }

 private:
  Task<void> task_;
  std::coroutine_handle<> next_;
  bool isOnStack_ = false;
};

inline auto TaskPromise::final_suspend() const noexcept {
  struct Final {
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<>) const noexcept { run->Next(waiter); }
    void await_resume() const noexcept {}
    TaskRun* run;
    std::coroutine_handle<> waiter;
  };
  return Final{run, waiter};
}

template <typename Value>
struct Task<Value>::Awaiter {
  bool await_ready() const noexcept { return false; }
  template <typename Promise>
  void await_suspend(std::coroutine_handle<Promise> waiter) const noexcept {
    TaskPromise& promise = frame.promise();
    promise.run = waiter.promise().run;
    promise.waiter = waiter;
    promise.run->Next(frame);
  }
  decltype(auto) await_resume() const { return frame.promise().Take(); }

  std::coroutine_handle<promise_type> frame;
};

template <typename Value>
auto Task<Value>::operator co_await() & noexcept {
  return Awaiter{frame_};
}

// Something that a task waits for and that gives it a `Value`: each kind of waiting derives from it. It is a named
// local of the task, and its destructor takes back what MustWait has set up, for the task may be destroyed while it
// waits.
template <typename Value = void>
class Wait {
 public:
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;

  auto operator co_await() & noexcept { return Awaiter{*this}; }

 protected:
  Wait() = default;
  ~Wait() = default;

  // Whether there is something to wait for; it then sees to it that Resume is called, in a later notification of the
  // loop.
  virtual bool MustWait() = 0;
  // What the task gets when it goes on.
  virtual Value Take() = 0;

  // The waiting is over. The last thing that its caller does: the task, and this with it, may be gone afterwards.
  void Resume() {
    run_->Next(frame_);
    run_->Resume();
  }

 private:
  struct Awaiter {
    bool await_ready() const { return !wait.MustWait(); }
    template <typename Promise>
    void await_suspend(std::coroutine_handle<Promise> frame) const noexcept {
      wait.run_ = frame.promise().run;
      wait.frame_ = frame;
    }
    Value await_resume() const { return wait.Take(); }
    Wait& wait;
  };

  TaskRun* run_ = nullptr;
  std::coroutine_handle<> frame_;
};

// A task that runs by itself. Destroying it cancels the task.
class RunningTask {
 public:
  RunningTask() = default;

  // Runs the task until it waits for the first time, or to its end.
  static RunningTask Start(Task<void> task) {
    RunningTask running;
    running.run_ = std::make_shared<TaskRun>(std::move(task));
    running.run_->Resume();
    return running;
  }

  // Whether nothing is left to be run.
  bool IsDone() const { return !run_ || run_->IsDone(); }

 private:
  std::shared_ptr<TaskRun> run_;
};

// Runs a task that has nothing to wait for to its end, in the place of the call, and gives its value.
template <typename Value>
Value RunNow(Task<Value> task) {
  std::optional<Value> value;
  std::exception_ptr failure;
  const auto whole = [](Task<Value>& inner, std::optional<Value>& result, std::exception_ptr& thrown) -> Task<void> {
    try {
      result.emplace(co_await inner);
    } catch (...) {
      thrown = std::current_exception();
    }
  };
  const RunningTask running = RunningTask::Start(whole(task, value, failure));
  if (failure) std::rethrow_exception(failure);
  assert(value && "it had to wait for something");
  return std::move(*value);
}
inline void RunNow(Task<void> task) {
  const auto whole = [](Task<void>& inner) -> Task<bool> {
    co_await inner;
    co_return true;
  };
  RunNow(whole(task));
}

}  // namespace TesselServer
