// Places for programs: at most so many run at once, and the others wait in order of arrival.
//
//   ProgramPlaces::Arrival arrival(places, limit);
//   const ProgramPlaces::Place place = co_await arrival;  // freed with its last copy
//   if (!place) ...                                       // the time was over before there was one
//
// Thread:    the loop's thread.
// Ownership: the loop outlives it; it outlives its places and what waits for one.
// Errors:    none but those of memory running out, which come out of the co_await.
#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include "platform/tasks/Task.h"

namespace TesselServer {

class EventLoop;
class TimeLimit;

class ProgramPlaces {
 public:
  using Place = std::shared_ptr<void>;
  class Arrival;

  ProgramPlaces(EventLoop& loop, std::int32_t most) : loop_(loop), most_(most) {}
  ProgramPlaces(const ProgramPlaces&) = delete;
  ProgramPlaces& operator=(const ProgramPlaces&) = delete;
  ~ProgramPlaces();

  // Property Most: how many places there are. More of them let waiting ones in, in the next turns; where there are
  // fewer, those that have a place keep it. 0 lets no one in.
  std::int32_t Most() const { return most_; }
  void Most(std::int32_t most);

 private:
  bool IsFree() const { return used_ < most_; }
  void Release() noexcept;
  void LetIn() noexcept;

  EventLoop& loop_;
  std::int32_t most_;
  std::int32_t used_ = 0;
  std::list<Arrival*> waiting_;
  bool isPosted_ = false;  // the task that lets the first one in
};

class ProgramPlaces::Arrival final : public Wait<ProgramPlaces::Place> {
 public:
  // `limit` outlives it.
  Arrival(ProgramPlaces& places, TimeLimit& limit) : places_(places), limit_(limit) {}
  ~Arrival();

 private:
  friend class ProgramPlaces;

  bool MustWait() override;
  Place Take() override;
  // The place is its own from here on.
  void LetIn();

  ProgramPlaces& places_;
  TimeLimit& limit_;
  bool isWaiting_ = false;
  std::list<Arrival*>::iterator queued_;  // its place in the queue, while it waits
  bool isIn_ = false;
};

}  // namespace TesselServer
