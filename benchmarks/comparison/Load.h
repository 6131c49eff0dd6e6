// Asks a server for one answer over and over, or for a number of answers in turn, a fixed number of connections at
// once, one request a connection, and checks every answer.
//
// Thread:    any.
// Ownership: closes what it opens.
// Errors:    std::system_error, and std::runtime_error when nothing comes any more. Wrong answers are counted.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/comparison/AnswerCheck.h"
#include "benchmarks/comparison/Sockets.h"

namespace Comparison {

struct LoadOrder {
  // Where it is in the request and in the body expected, the number of the question is put, in as many digits.
  static constexpr std::string_view kNumberMark = "####";
  static constexpr std::int64_t kMaxNumbers = 10'000;

  Route route;
  std::string request;            // its bytes, as sent
  Expectation expected;           // the answer
  std::int64_t numbers = 1;       // how many questions are asked in turn, from number 0 on; at most kMaxNumbers
  std::int64_t atOnce = 1;        // connections
  std::int64_t requests = 0;      // how many in all; 0 leaves it to `milliseconds`
  std::int64_t milliseconds = 0;  // how long new connections are made; 0 leaves it to `requests`
  std::int64_t compareEvery =
      1;  // of how many answers one is compared byte by byte; of the others the length is checked
};

struct LoadResult {
  std::int64_t requests = 0;
  std::int64_t wrong = 0;
  std::string firstWrong;
  std::uint64_t bodyBytes = 0;
  double seconds = 0;
};

class Load {
 public:
  explicit Load(const LoadOrder& order);
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;
  ~Load();

  LoadResult Run();

 private:
  struct Question {
    std::string request;
    Expectation expected;
  };

  struct Client {
    explicit Client(const Question& asked) : question(&asked), check(asked.expected) {}
    const Question* question;
    int socket = -1;
    bool compared = true;
    AnswerCheck check;
  };

  static std::vector<Question> Questions(const LoadOrder& order);
  bool MoreWanted() const;
  void Start(Client& client);
  void Serve(Client& client, std::uint32_t events);
  bool Receive(Client& client);
  void Finish(Client& client, const std::string& wrong);
  void Watch(Client& client, std::uint32_t events, int operation);

  const LoadOrder& order_;
  const std::vector<Question> questions_;
  std::vector<Client> clients_;
  std::string buffer_;
  int epoll_;
  std::int64_t started_ = 0;
  std::int64_t open_ = 0;
  std::chrono::steady_clock::time_point end_;
  LoadResult result_;
};

}  // namespace Comparison
