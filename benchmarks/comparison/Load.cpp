#include "benchmarks/comparison/Load.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Comparison {
namespace {

constexpr std::size_t kBufferBytes = 1 << 18;
constexpr int kSilenceMilliseconds = 20'000;  // a server that keeps silent for so long has failed
constexpr std::size_t kEventsAtOnce = 256;

std::string WithNumber(std::string text, std::int64_t number) {
  const auto digits = std::to_string(LoadOrder::kMaxNumbers + number).substr(1);
  const auto at = text.find(LoadOrder::kNumberMark);
  return at == std::string::npos ? text : text.replace(at, LoadOrder::kNumberMark.size(), digits);
}

}  // namespace

std::vector<Load::Question> Load::Questions(const LoadOrder& order) {
  std::vector<Question> questions;
  for (std::int64_t i = 0; i < order.numbers; ++i) {
    questions.push_back({WithNumber(order.request, i), {order.expected.status, WithNumber(order.expected.body, i)}});
  }
  return questions;
}

Load::Load(const LoadOrder& order)
    : order_(order),
      questions_(Questions(order)),
      clients_(static_cast<std::size_t>(order.atOnce), Client(questions_.front())),
      buffer_(kBufferBytes, '\0'),
      epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ < 0) throw std::runtime_error("epoll_create1");
}

Load::~Load() {
  for (const Client& client : clients_) {
    if (client.socket >= 0) close(client.socket);
  }
  close(epoll_);
}

LoadResult Load::Run() {
  const auto begin = std::chrono::steady_clock::now();
  end_ = begin + std::chrono::milliseconds(order_.milliseconds);
  for (Client& client : clients_) Start(client);
  while (open_ > 0) {
    std::array<epoll_event, kEventsAtOnce> events;
    const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), kSilenceMilliseconds);
    if (count == 0) throw std::runtime_error("the server keeps silent");
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = events[static_cast<std::size_t>(i)];
      Serve(*static_cast<Client*>(event.data.ptr), event.events);
    }
  }
  result_.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return result_;
}

bool Load::MoreWanted() const {
  if (order_.requests > 0) return started_ < order_.requests;
  return std::chrono::steady_clock::now() < end_;
}

void Load::Start(Client& client) {
  if (!MoreWanted()) return;
  client = Client(questions_[static_cast<std::size_t>(started_ % order_.numbers)]);
  client.socket = BeginConnect(order_.route);
  client.compared = started_++ % order_.compareEvery == 0;
  ++open_;
  const bool sent = SendAll(client.socket, client.question->request);
  Watch(client, sent ? EPOLLIN : EPOLLOUT, EPOLL_CTL_ADD);
}

void Load::Watch(Client& client, std::uint32_t events, int operation) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = &client;
  if (epoll_ctl(epoll_, operation, client.socket, &event) != 0) throw std::runtime_error("epoll_ctl");
}

void Load::Serve(Client& client, std::uint32_t events) {
  if ((events & EPOLLOUT) != 0) {
    if (SendAll(client.socket, client.question->request)) Watch(client, EPOLLIN, EPOLL_CTL_MOD);
    return;
  }
  while (Receive(client)) {
  }
}

// Takes what has come. False when there is no more for now, or the answer has ended.
bool Load::Receive(Client& client) {
  const bool skips = client.check.InBody() && !client.compared;
  const ssize_t count = recv(client.socket, buffer_.data(), buffer_.size(), skips ? MSG_TRUNC : 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (count <= 0) {
    Finish(client, count == 0 ? client.check.End() : std::string("an error: ") + std::strerror(errno));
    return false;
  }
  if (skips) {
    client.check.Skip(static_cast<std::size_t>(count));
  } else {
    client.check.Take(std::string_view(buffer_).substr(0, static_cast<std::size_t>(count)));
  }
  return true;
}

void Load::Finish(Client& client, const std::string& wrong) {
  close(client.socket);
  client.socket = -1;
  --open_;
  ++result_.requests;
  result_.bodyBytes += client.check.BodyBytes();
  if (!wrong.empty() && result_.wrong++ == 0) result_.firstWrong = wrong;
  Start(client);
}

}  // namespace Comparison
