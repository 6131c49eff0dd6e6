// How many requests each of the last seconds answered.
//
// Thread:    one thread.
// Ownership: a value.
// Errors:    none.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace TesselServer {

//   RequestRate rate(now);
//   rate.Count(now + 1s, 7);    // PerSecond() is {7}
//   rate.Count(now + 3s, 10);   // PerSecond() is {7, 2, 1}: no call at 2 s
class RequestRate {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr std::size_t kSeconds = 300;  // five minutes; older seconds are forgotten

  // Counts from `start` on, when no request has been answered.
  explicit RequestRate(TimePoint start) : counted_(start) {}

  // Counts the requests since the last call. Meant to be called once a second; `requests` is the number of all requests
  // so far. Where the last call was several seconds ago, the requests are spread evenly over these seconds, the
  // remainder going to the earliest: the sum stays true, and each second shows the mean. A call within half a second of
  // the one before is left to the next; a number below the last one counts as no request.
  void Count(TimePoint now, std::int64_t requests);

  // The requests of each second, oldest first, at most kSeconds; seconds before the start are not in it.
  const std::deque<std::int64_t>& PerSecond() const { return perSecond_; }

 private:
  void Add(std::int64_t requests);

  TimePoint counted_;          // up to here the seconds are counted
  std::int64_t requests_ = 0;  // all requests up to there
  std::deque<std::int64_t> perSecond_;
};

}  // namespace TesselServer
