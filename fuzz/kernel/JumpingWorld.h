// A world whose clocks a script moves, and in which each look at the clock may take time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tests/kit/FakeWorld.h"

namespace TesselServer::Pretended {

class JumpingWorld final : public Kit::FakeWorld {
 public:
  std::int64_t lookTakes = 0;  // microseconds

  std::int64_t MonotonicMicroseconds() const override {
    looked_ += lookTakes;
    return Microseconds();
  }
  std::int64_t MonotonicMilliseconds() const override { return Microseconds() / 1000; }
  std::optional<std::string> HostNameOf(std::uint32_t) const override { return "client.example"; }

 private:
  std::int64_t Microseconds() const { return monotonicMilliseconds * 1000 + microseconds + looked_; }

  mutable std::int64_t looked_ = 0;
};

}  // namespace TesselServer::Pretended
