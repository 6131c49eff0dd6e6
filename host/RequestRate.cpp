#include "host/RequestRate.h"

#include <algorithm>

namespace TesselServer {

void RequestRate::Count(TimePoint now, std::int64_t requests) {
  const auto passed = std::chrono::round<std::chrono::seconds>(now - counted_);
  const std::int64_t seconds = passed.count();
  if (seconds < 1) return;
  const std::int64_t came = std::max<std::int64_t>(requests - requests_, 0);
  const auto kept = std::min<std::int64_t>(seconds, kSeconds);
  for (std::int64_t i = seconds - kept; i < seconds; ++i) Add(came / seconds + (i < came % seconds ? 1 : 0));
  counted_ += passed;
  requests_ = requests;
}

void RequestRate::Add(std::int64_t requests) {
  perSecond_.push_back(requests);
  if (perSecond_.size() > kSeconds) perSecond_.pop_front();
}

}  // namespace TesselServer
