#include "benchmarks/comparison/Paced.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "benchmarks/comparison/Percentile.h"

namespace Comparison {
namespace {

constexpr std::chrono::seconds kSilence{20};  // a server that keeps silent for so long has failed

}  // namespace

Paced::~Paced() {
  for (const Question& question : open_) close(question.socket);
}

PacedResult Paced::Run(int ending) {
  next_ = Clock::now();
  while (!isEnding_ || !open_.empty()) {
    if (!isEnding_ && Clock::now() >= next_) Ask();
    Wait(ending);
  }
  return Result();
}

void Paced::Ask() {
  const auto now = Clock::now();
  open_.emplace_back(order_, now);
  next_ += every_;
  if (next_ < now) next_ = now;  // this process was kept from asking: what was missed is not made up for
}

// Waits for bytes, for the next moment to ask, and for the end.
void Paced::Wait(int ending) {
  std::vector<pollfd> watched{{isEnding_ ? -1 : ending, POLLIN, 0}};
  for (const Question& question : open_) {
    watched.push_back({question.socket, static_cast<short>(question.isSent ? POLLIN : POLLOUT), 0});
  }
  const auto latest = isEnding_ ? open_.front().begin + kSilence : next_;
  const auto left = std::max(latest - Clock::now(), Clock::duration::zero());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
  const timespec patience{seconds.count(), (left - seconds).count()};
  const int count = ppoll(watched.data(), watched.size(), &patience, nullptr);
  if (!open_.empty() && Clock::now() - open_.front().begin > kSilence) {
    throw std::runtime_error("the server keeps silent");
  }
  if (count <= 0) return;
  isEnding_ = isEnding_ || watched.front().revents != 0;
  auto question = open_.begin();
  for (std::size_t i = 1; i < watched.size(); ++i) {
    question = watched[i].revents == 0 || Serve(*question) ? std::next(question) : open_.erase(question);
  }
}

// False when the answer has ended.
bool Paced::Serve(Question& question) {
  if (!question.isSent) {
    question.isSent = SendAll(question.socket, order_.request);
    return true;
  }
  return Receive(question);
}

bool Paced::Receive(Question& question) {
  std::string buffer(65536, '\0');
  const ssize_t count = recv(question.socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (count > 0) {
    question.check.Take(std::string_view(buffer).substr(0, static_cast<std::size_t>(count)));
    return true;
  }
  times_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - question.begin).count());
  close(question.socket);
  const std::string wrong = count == 0 ? question.check.End() : std::string("an error: ") + std::strerror(errno);
  ++result_.requests;
  if (!wrong.empty() && result_.wrong++ == 0) result_.firstWrong = wrong;
  return false;
}

PacedResult Paced::Result() {
  std::sort(times_.begin(), times_.end());
  result_.medianMilliseconds = Percentile(times_, 500);
  result_.p999Milliseconds = Percentile(times_, 999);
  result_.longestMilliseconds = times_.empty() ? 0 : times_.back();
  return result_;
}

}  // namespace Comparison
