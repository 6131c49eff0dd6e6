// A process short of descriptors, for as long as an object lives.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace TesselServer::Kit {

// Takes away all descriptors but the first `left` that are free.
//
// A sanitizer opens a pipe to look at an object of a type it has not seen before: what a test does during a famine, it
// does once before as well.
class DescriptorFamine {
 public:
  explicit DescriptorFamine(int left = 0) {
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
  rlimit before_{};
};

}  // namespace TesselServer::Kit
