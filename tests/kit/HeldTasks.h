// What a test holds up: programs and names that are waited for until the test lets them come.
#pragma once

#include <cassert>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "net/NameSource.h"
#include "platform/programs/ProgramRunner.h"
#include "platform/tasks/Task.h"

namespace TesselServer::Kit {

// Something that is waited for; at most one at a time.
template <typename Value>
class Held {
 public:
  bool IsWaitedFor() const { return waiting_ != nullptr; }

  // Lets it come.
  void Come(Value value) {
    assert(waiting_ != nullptr);
    waiting_->value = std::move(value);
    waiting_->GoOn();
  }

  Task<Value> Wanted() {
    Waiting waiting(waiting_);
    co_return co_await waiting;
  }

 private:
  struct Waiting final : Wait<Value> {
    explicit Waiting(Waiting*& given) : place(given) {}
    ~Waiting() { place = nullptr; }
    bool MustWait() override {
      place = this;
      return true;
    }
    Value Take() override { return std::move(value); }
    void GoOn() { this->Resume(); }

    Waiting*& place;
    Value value{};
  };

  Waiting* waiting_ = nullptr;
};

class HeldPrograms : public ProgramRunner {
 public:
  std::vector<ProgramStart> starts;
  Held<ProgramResult> result;

  void Print(std::string_view output) {
    ProgramResult printed;
    printed.ended = true;
    printed.output = output;
    result.Come(std::move(printed));
  }

  Task<void> Run(ProgramStart start, ProgramResult& given) override {
    start.Complete();
    starts.push_back(std::move(start));
    return Give(given);
  }

 private:
  Task<void> Give(ProgramResult& given) {
    auto wanted = result.Wanted();
    given = co_await wanted;
  }
};

class HeldNames : public NameSource {
 public:
  std::vector<std::string> asked;  // addresses
  std::vector<std::string> askedNow;
  Held<std::string> name;

  Task<std::string> NameOf(std::string address) override {
    asked.push_back(std::move(address));
    return name.Wanted();
  }
  std::string NameNow(std::string_view address) override {
    askedNow.emplace_back(address);
    return "name-now";
  }
};

}  // namespace TesselServer::Kit
