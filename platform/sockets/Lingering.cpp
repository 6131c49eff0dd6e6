#include "platform/sockets/Lingering.h"

#include <algorithm>
#include <new>

#include "platform/loop/EventLoop.h"
#include "platform/world/World.h"

namespace TesselServer {

namespace {

constexpr std::int32_t kTickMilliseconds = 250;

}  // namespace

Lingering::Lingering(EventLoop& loop) : loop_(loop), timer_(loop) {
  timer_.Interval(kTickMilliseconds);
  timer_.OnTick([this] { CloseOverdue(); });
}

void Lingering::End(std::shared_ptr<TcpConnection>& connection) noexcept {
  try {
    if (connection->Linger(*this)) Take(connection);
  } catch (const std::bad_alloc&) {
    if (connection) connection->Close();
  }
}

void Lingering::Take(std::shared_ptr<TcpConnection>& connection) {
  timer_.Enabled(true);
  std::list<Entry> added;
  added.push_back({nullptr, loop_.TheWorld().MonotonicMilliseconds() + kMilliseconds});
  added.front().connection = std::move(connection);
  if (entries_.size() >= kMaxCount) Remove(entries_.begin());
  entries_.splice(entries_.end(), added);
}

void Lingering::OnLingered(TcpConnection& connection) {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& each) { return each.connection.get() == &connection; });
  if (found != entries_.end()) Remove(found);
}

void Lingering::CloseOverdue() {
  const std::int64_t now = loop_.TheWorld().MonotonicMilliseconds();
  while (!entries_.empty() && entries_.front().due <= now) Remove(entries_.begin());
  if (entries_.empty()) timer_.Enabled(false);
}

// The connection may be in the middle of a report: it is closed now and deleted later.
void Lingering::Remove(std::list<Entry>::iterator entry) {
  std::list<Entry> removed;
  removed.splice(removed.end(), entries_, entry);
  removed.front().connection->Close();
  loop_.DeleteLater(std::move(removed.front().connection));
}

}  // namespace TesselServer
