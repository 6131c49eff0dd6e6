// The real world, whose clock a test may put forward instead of waiting.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/world/World.h"

namespace TesselServer::Kit {

class SkippingWorld : public World {
 public:
  // Lets so much time pass at once; timers that are due by then tick in the next turn.
  void Skip(std::int64_t milliseconds) { skipped_ += milliseconds; }

  // From now on each look at the clock of microseconds takes so long, so that work that looks at it is long work.
  void LooksTake(std::int64_t microseconds) { look_ = microseconds; }

  // What HostNameOf asks in place of the real world, on whatever thread.
  std::function<std::optional<std::string>(std::uint32_t)> nameOf;

  std::int64_t MonotonicMilliseconds() const override { return MicrosecondsNow() / 1000; }
  std::int64_t MonotonicMicroseconds() const override {
    looked_ += look_;
    return MicrosecondsNow();
  }
  std::int64_t UtcSeconds() const override { return real_.UtcSeconds() + skipped_ / 1000; }
  std::int64_t FileClockNanoseconds() const override { return real_.FileClockNanoseconds() + skipped_ * 1'000'000; }
  std::int32_t BiasMinutes(std::int64_t utcSeconds) const override { return real_.BiasMinutes(utcSeconds); }
  std::string LocalHostName() const override { return real_.LocalHostName(); }
  std::string LocalAddress() const override { return real_.LocalAddress(); }
  std::string ApplicationFolder() const override { return real_.ApplicationFolder(); }
  std::optional<std::string> HostNameOf(std::uint32_t address) const override {
    return nameOf ? nameOf(address) : real_.HostNameOf(address);
  }
  std::optional<std::uint32_t> AddressOf(std::string_view name) const override { return real_.AddressOf(name); }
  RegistryStore& Registry() override { return real_.Registry(); }
  std::int64_t DescriptorLimit() const override { return real_.DescriptorLimit(); }
  void MessageBox(std::string_view text) override { real_.MessageBox(text); }

 private:
  std::int64_t MicrosecondsNow() const { return real_.MonotonicMicroseconds() + skipped_ * 1000 + looked_; }

  World& real_ = SystemWorld();
  std::int64_t skipped_ = 0;
  std::int64_t look_ = 0;            // microseconds
  mutable std::int64_t looked_ = 0;  // what all looks have taken
};

}  // namespace TesselServer::Kit
