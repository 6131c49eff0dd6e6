// A world that stands still until a test moves it.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/files/FileStamp.h"
#include "platform/settings/RegistryStore.h"
#include "platform/world/World.h"

namespace TesselServer::Kit {

class FakeWorld : public World {
 public:
  std::int64_t monotonicMilliseconds = 1'000'000;
  std::int64_t microseconds = 0;         // beside the milliseconds
  std::int64_t utcSeconds = 1794766805;  // Sunday, 15 November 2026, 18:20:05 UTC
  std::int64_t fileNanoseconds = 0;      // so that every file has just changed, until LetFilesSettle
  std::function<std::int32_t(std::int64_t)> bias = [](std::int64_t) { return 0; };
  std::string localHostName = "testhost";
  std::string localAddress = "192.0.2.1";
  std::string applicationFolder = "/nonexistent/application";
  std::map<std::uint32_t, std::string> hostNames;
  mutable std::atomic<int> hostNameLookUps = 0;  // they may come from a thread of Workers
  std::map<std::string, std::uint32_t, std::less<>> addresses;
  RegistryStore registry;
  std::int64_t descriptorLimit = 1'000'000;
  std::vector<std::string> messages;

  // Lets all clocks run on.
  void Advance(std::int64_t milliseconds) {
    monotonicMilliseconds += milliseconds;
    fileNanoseconds += milliseconds * 1'000'000;
    passed_ += milliseconds;
    utcSeconds += passed_ / 1000;
    passed_ %= 1000;
  }

  // Sets the clock of files to the moment at which everything written so far has just settled (kSettledNanoseconds),
  // and what is written from now on has not. A file's time is that of a tick or finer, so the first tick after this
  // moment is waited for, some milliseconds.
  void LetFilesSettle() {
    const auto latest = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    std::int64_t next = SystemWorld().FileClockNanoseconds();
    while (next <= latest) next = SystemWorld().FileClockNanoseconds();
    fileNanoseconds = next - 1 + kSettledNanoseconds;
  }

  std::int64_t MonotonicMilliseconds() const override { return monotonicMilliseconds; }
  std::int64_t MonotonicMicroseconds() const override { return monotonicMilliseconds * 1000 + microseconds; }
  std::int64_t UtcSeconds() const override { return utcSeconds; }
  std::int64_t FileClockNanoseconds() const override { return fileNanoseconds; }
  std::int32_t BiasMinutes(std::int64_t seconds) const override { return bias(seconds); }
  std::string LocalHostName() const override { return localHostName; }
  std::string LocalAddress() const override { return localAddress; }
  std::string ApplicationFolder() const override { return applicationFolder; }
  std::optional<std::string> HostNameOf(std::uint32_t address) const override {
    ++hostNameLookUps;
    const auto found = hostNames.find(address);
    if (found == hostNames.end()) return std::nullopt;
    return found->second;
  }
  std::optional<std::uint32_t> AddressOf(std::string_view name) const override {
    const auto found = addresses.find(name);
    if (found == addresses.end()) return std::nullopt;
    return found->second;
  }
  RegistryStore& Registry() override { return registry; }
  std::int64_t DescriptorLimit() const override { return descriptorLimit; }
  void MessageBox(std::string_view text) override { messages.emplace_back(text); }

 private:
  std::int64_t passed_ = 0;
};

}  // namespace TesselServer::Kit
