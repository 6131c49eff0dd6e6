// One pass over a page that replaces its tags of one group.
//
// Most pages are short and wait for nothing: their passes are made in the call, without a coroutine.
//
// Thread:    the host's thread only.
// Ownership: borrows the record and the page, which outlive it and do not move; it outlives the task that it gives.
// Errors:    those of Go and of its task end the pass: what it has put in stays, and it is of no further use.
#pragma once

#include <memory>
#include <utility>

#include "http/Pace.h"
#include "http/PageRewriter.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

//   for (auto wait = processor.Go(); wait; wait = processor.Go()) co_await wait;
class PageProcessor {
 public:
  PageProcessor() = default;
  PageProcessor(const PageProcessor&) = delete;
  PageProcessor& operator=(const PageProcessor&) = delete;
  virtual ~PageProcessor() = default;

  // Goes on until all is done, which an empty task says, or until something has to be waited for: await the task, and
  // call it again.
  virtual Task<void> Go() = 0;
};

// Goes on until all is done.
Task<void> RunToEnd(std::unique_ptr<PageProcessor> processor);

// The way of a processor from tag to tag, cut into turns.
class PacedSearch {
 public:
  using Found = PageRewriter::Found;

  explicit PacedSearch(Turns* turns) : pace_(turns) {}

  // Goes to the next tag that the steps of `search` find for `pass`. False when there is none, or when `wait` is to be
  // awaited before the next call.
  template <typename Pass, typename Search>
  bool Find(Pass& pass, Task<void>& wait, const Search& search) {
    for (;;) {
      if (found_ == Found::kNotYet) found_ = search();
      if (found_ == Found::kNone) return IsTag();
      if (pace_.IsOver(pass.TakeWork())) {
        wait = NextTurn();
        return false;
      }
      if (IsTag()) return true;
    }
  }

 private:
  bool IsTag() { return std::exchange(found_, Found::kNotYet) == Found::kTag; }
  Task<void> NextTurn();

  Pace pace_;
  Found found_ = Found::kNotYet;  // and not handed out yet
};

}  // namespace TesselServer
