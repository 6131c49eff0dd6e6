#include "platform/sockets/Closings.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace TesselServer {
namespace {

// Whether bytes have arrived that nobody has read.
bool HasUnread(int descriptor) {
  int count = 0;
  return ioctl(descriptor, FIONREAD, &count) == 0 && count > 0;
}

// Closes the descriptors `first` to `last`.
void CloseRun(int first, int last) {
  // close_range(2) is not there before Linux 5.9, and a sandbox may refuse it
  if (first != last && close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0) return;
  for (int descriptor = first; descriptor <= last; ++descriptor) close(descriptor);
}

}  // namespace

void Closings::Add(int descriptor) noexcept {
  if (count_ == kMost) CloseAll();
  descriptors_[count_++] = descriptor;
}

void Closings::CloseAll() noexcept {
  LetUnreadLinger();
  const auto end = descriptors_.begin() + static_cast<std::ptrdiff_t>(count_);
  count_ = 0;
  std::sort(descriptors_.begin(), end);
  for (auto first = descriptors_.begin(); first != end;) {
    auto last = first;
    while (last + 1 != end && *(last + 1) == *last + 1) ++last;
    CloseRun(*first, *last);
    first = last + 1;
  }
}

void Closings::LetUnreadLinger() noexcept {
  std::array<pollfd, kMost> asked;
  for (std::size_t i = 0; i < count_; ++i) asked[i] = {descriptors_[i], POLLIN, 0};
  // one alone is asked at once; the end of a connection is an event as well, so those that have one are asked too
  const bool isKnown = count_ > 1 && poll(asked.data(), static_cast<nfds_t>(count_), 0) >= 0;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count_; ++i) {
    const int descriptor = asked[i].fd;
    if ((!isKnown || asked[i].revents != 0) && HasUnread(descriptor)) {
      lingering_.Take(descriptor);
    } else {
      descriptors_[kept++] = descriptor;
    }
  }
  count_ = kept;
}

}  // namespace TesselServer
