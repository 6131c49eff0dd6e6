#include "benchmarks/comparison/Latency.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "benchmarks/comparison/Percentile.h"

namespace Comparison {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kSilence{20};  // a server that keeps silent for so long has failed

// Waits for bytes without sleeping; their number, 0 at the end of the answer.
std::size_t SpinReceive(int socket, std::string& buffer) {
  const auto giveUp = Clock::now() + kSilence;
  for (;;) {
    const ssize_t count = recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count >= 0) return static_cast<std::size_t>(count);
    if (errno != EAGAIN && errno != EINTR) throw std::runtime_error(std::strerror(errno));
    if (Clock::now() > giveUp) throw std::runtime_error("the server keeps silent");
  }
}

// One request: the time to its first byte; `wrong` becomes what was wrong with the answer.
Clock::duration AskOnce(const LoadOrder& order, std::string& buffer, std::string& wrong) {
  AnswerCheck check(order.expected);
  const auto begin = Clock::now();
  const int socket = Connect(order.route);
  SendAll(socket, order.request);
  std::size_t count = SpinReceive(socket, buffer);
  const auto waited = Clock::now() - begin;
  for (; count > 0; count = SpinReceive(socket, buffer)) check.Take(std::string_view(buffer).substr(0, count));
  close(socket);
  wrong = check.End();
  return waited;
}

}  // namespace

LatencyResult MeasureLatency(const LoadOrder& order) {
  LatencyResult result;
  std::vector<double> times;
  std::string buffer(65536, '\0');
  std::string wrong;
  const auto end = Clock::now() + std::chrono::milliseconds(order.milliseconds);
  while (order.requests > 0 ? result.requests < order.requests : Clock::now() < end) {
    times.push_back(std::chrono::duration<double, std::micro>(AskOnce(order, buffer, wrong)).count());
    ++result.requests;
    if (!wrong.empty() && result.wrong++ == 0) result.firstWrong = wrong;
  }
  std::sort(times.begin(), times.end());
  result.medianMicroseconds = Percentile(times, 500);
  result.p99Microseconds = Percentile(times, 990);
  return result;
}

}  // namespace Comparison
