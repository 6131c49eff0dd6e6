// A process short of descriptors, for as long as an object lives.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <exception>

#include "platform/loop/EventLoop.h"
#include "platform/loop/Timer.h"
#include "platform/world/Error.h"
#include "platform/world/World.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer::Kit {

// Takes away all descriptors but the first `left` that are free.
//
// A sanitizer opens a pipe to look at an object of a type it has not seen before: what a test does during a famine, it
// does once before as well.
class DescriptorFamine {
 public:
  explicit DescriptorFamine(int left = 0) {
    ShowTheSanitizer();
    getrlimit(RLIMIT_NOFILE, &before_);
    int first = -1;
    int taken[16];
    for (int i = 0; i <= left; ++i) first = taken[i] = fcntl(0, F_DUPFD_CLOEXEC, 0);
    for (int i = 0; i <= left; ++i) close(taken[i]);
    rlimit lowered = before_;
    lowered.rlim_cur = static_cast<rlim_t>(first);  // the number of the first descriptor that cannot be had
    setrlimit(RLIMIT_NOFILE, &lowered);
  }
  DescriptorFamine(const DescriptorFamine&) = delete;
  DescriptorFamine& operator=(const DescriptorFamine&) = delete;
  ~DescriptorFamine() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  // Shows the sanitizer what a famine is likely to be met with: an error, and loops with a timer on either kind of
  // world.
  static void ShowTheSanitizer() {
    try {
      throw Error(0, "shown");
    } catch (const Error& error) {
      static_cast<void>(error.Number() + error.HelpContext());
      static_cast<void>(error.Source() + error.Description());
      const std::exception& base = error;
      static_cast<void>(base.what());
    }
    FakeWorld fake;
    for (World* world : {static_cast<World*>(&fake), &SystemWorld()}) {
      EventLoop loop(*world);
      Timer timer(loop);
      timer.Interval(1);
      timer.OnTick([&timer] { timer.Enabled(false); });
      timer.Enabled(true);
      loop.Descriptor();
      for (int turn = 0; turn < 3; ++turn) {
        fake.Advance(1);
        loop.RunOnce(2);
      }
    }
  }

  rlimit before_{};
};

}  // namespace TesselServer::Kit
