// A client that asks for one small thing at a fixed pace, whether or not earlier answers have come, and finds out how
// long each answer takes while the server is busy with something else.
//
// Thread:    any; it sleeps while there is nothing to do.
// Ownership: closes what it opens; the order outlives it.
// Errors:    as Load. An answer that does not come within 20 seconds is such an error, wrong ones are counted.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "benchmarks/comparison/Load.h"

namespace Comparison {

// Times are from the wish to connect to the end of the answer, in milliseconds.
struct PacedResult {
  std::int64_t requests = 0;
  std::int64_t wrong = 0;
  std::string firstWrong;
  double medianMilliseconds = 0;
  double p999Milliseconds = 0;
  double longestMilliseconds = 0;
};

class Paced {
 public:
  // Asks as `order` says every so many milliseconds; its atOnce and its amount do not count.
  Paced(const LoadOrder& order, std::chrono::milliseconds every) : order_(order), every_(every) {}
  Paced(const Paced&) = delete;
  Paced& operator=(const Paced&) = delete;
  ~Paced();

  // Goes on until `ending` is readable or at its end, then waits for what is still due.
  PacedResult Run(int ending);

 private:
  using Clock = std::chrono::steady_clock;
  struct Question {
    Question(const LoadOrder& order, Clock::time_point now)
        : check(order.expected), socket(BeginConnect(order.route)), begin(now) {}
    AnswerCheck check;
    int socket;
    Clock::time_point begin;
    bool isSent = false;
  };

  void Ask();
  void Wait(int ending);
  bool Serve(Question& question);
  bool Receive(Question& question);
  PacedResult Result();

  const LoadOrder& order_;
  const std::chrono::milliseconds every_;
  Clock::time_point next_ = Clock::now();
  bool isEnding_ = false;
  std::list<Question> open_;  // in the order of asking
  std::vector<double> times_;
  PacedResult result_;
};

}  // namespace Comparison
