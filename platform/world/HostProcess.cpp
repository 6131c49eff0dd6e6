#include "platform/world/HostProcess.h"

#include <sys/resource.h>

#include "platform/world/World.h"

namespace TesselServer {

std::int64_t RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  return SystemWorld().DescriptorLimit();
}

}  // namespace TesselServer
