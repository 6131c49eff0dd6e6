#include "net/HostNames.h"

#include <exception>
#include <functional>
#include <new>
#include <utility>

#include "net/HostLookUp.h"
#include "platform/loop/EventLoop.h"
#include "platform/loop/LoopCore.h"
#include "platform/loop/Timer.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

std::string KeyOf(std::int32_t address) { return std::to_string(address); }

}  // namespace

// A task that waits for a name: until the look-up is settled, or its patience is at its end.
class HostNames::Waiting final : public Wait<std::string> {
 public:
  Waiting(HostNames& names, std::int32_t addressOfHost)
      : address(addressOfHost), names_(names), patience_(names.loop_) {}
  ~Waiting() { names_.Leave(*this); }

  // With what is known by now.
  void GoOn() {
    TakeName();
    patience_.Enabled(false);
    Resume();
  }

  const std::int32_t address;
  LookUp* lookUp = nullptr;  // that it waits for
  std::list<Waiting*>::iterator place;

 private:
  bool MustWait() override {
    names_.Join(*this);
    if (lookUp->stage == &names_.settled_) {
      TakeName();
      return false;
    }
    patience_.Interval(kPatienceMilliseconds);
    patience_.OnTick([this] { GoOn(); });
    patience_.Enabled(true);
    return true;
  }
  std::string Take() override { return std::move(name_); }

  void TakeName() {
    if (lookUp->stage == &names_.settled_) name_ = lookUp->name;
    names_.Leave(*this);
  }

  HostNames& names_;
  Timer patience_;
  std::string name_{HostLookUp::kUnknown};
};

HostNames::HostNames(EventLoop& loop, Workers& workers) : loop_(loop), workers_(workers), world_(loop.TheWorld()) {}

HostNames::~HostNames() { loop_.Core().Withdraw(this); }

Task<std::string> HostNames::NameOf(std::string address) {
  const std::int32_t number = HostLookUp::AddressFromDottedText(address);
  if (number == HostLookUp::kNoAddress) co_return std::string(HostLookUp::kUnknown);
  if (const std::string* known = Known(number)) co_return *known;
  Waiting waiting(*this, number);
  co_return co_await waiting;
}

std::string HostNames::NameNow(std::string_view address) {
  const std::int32_t number = HostLookUp::AddressFromDottedText(address);
  if (number == HostLookUp::kNoAddress) return std::string(HostLookUp::kUnknown);
  if (const std::string* known = Known(number)) return *known;
  std::string name = HostLookUp(world_).HostNameFromLong(number);
  Remember(number, name);
  return name;
}

const std::string* HostNames::Known(std::int32_t address) {
  const Remembered* known = known_.Find(KeyOf(address));
  const bool isFresh = known != nullptr && world_.MonotonicMilliseconds() - known->at < kRememberedMilliseconds;
  return isFresh ? &known->name : nullptr;
}

void HostNames::Remember(std::int32_t address, const std::string& name) {
  known_.Put(KeyOf(address), {name, world_.MonotonicMilliseconds()}, 1);
}

void HostNames::Join(Waiting& waiting) {
  std::list<Waiting*> itself{&waiting};  // all memory first: half a look-up would never be settled
  Addresses turn{waiting.address};
  const auto [lookUp, isNew] = lookUps_.try_emplace(waiting.address);
  waiting.lookUp = &lookUp->second;
  waiting.place = itself.begin();
  lookUp->second.waiting.splice(lookUp->second.waiting.end(), itself);
  if (!isNew) return;
  lookUp->second.stage = &queue_;
  lookUp->second.place = turn.begin();
  queue_.splice(queue_.end(), turn);
  BeginLookUps();
}

// A look-up that has begun goes on.
void HostNames::Leave(Waiting& waiting) {
  LookUp* const lookUp = std::exchange(waiting.lookUp, nullptr);
  if (lookUp == nullptr) return;
  lookUp->waiting.erase(waiting.place);
  if (!lookUp->waiting.empty() || lookUp->stage == &begun_) return;
  lookUp->stage->erase(lookUp->place);
  lookUps_.erase(waiting.address);
}

void HostNames::Move(LookUp& lookUp, Addresses& stage) {
  stage.splice(stage.end(), *lookUp.stage, lookUp.place);
  lookUp.stage = &stage;
}

// One that is settled in the call, where there are no threads, makes room for the next in this loop and not in a call
// of its own.
void HostNames::BeginLookUps() {
  if (isBeginning_) return;
  isBeginning_ = true;
  while (begun_.size() < kAtOnce && !queue_.empty()) {
    const std::int32_t address = queue_.front();
    Move(lookUps_.at(address), begun_);
    try {
      auto look = RunningTask::Start(Look(address));
      if (!look.IsDone()) underWay_[address] = std::move(look);
    } catch (const std::bad_alloc&) {
      Settle(address, std::nullopt);
    }
  }
  isBeginning_ = false;
}

Task<void> HostNames::Look(std::int32_t address) {
  std::optional<std::string> name;
  try {
    std::function<std::string()> look = [&world = world_, address] {
      return HostLookUp(world).HostNameFromLong(address);
    };
    auto work = workers_.Do(Workers::Kind::kNames, std::move(look));
    name = co_await work;
  } catch (const std::exception&) {
    // no memory: nothing is known of the host
  }
  Settle(address, std::move(name));
}

void HostNames::Settle(std::int32_t address, std::optional<std::string> name) {
  underWay_.erase(address);  // this very task, which goes on to its end
  LookUp& lookUp = lookUps_.at(address);
  const bool isCertain = name.has_value();
  lookUp.name = std::move(name).value_or(std::string(HostLookUp::kUnknown));
  Move(lookUp, settled_);
  try {
    if (isCertain) Remember(address, lookUp.name);
  } catch (const std::bad_alloc&) {
    // it is looked up again
  }
  if (lookUp.waiting.empty()) {
    settled_.erase(lookUp.place);
    lookUps_.erase(address);
  } else {
    PostResume();
  }
  BeginLookUps();
}

// Each task that waits goes on in a notification of its own, for there may be one for every connection. Without memory
// for that they go on when their patience ends.
void HostNames::PostResume() noexcept {
  try {
    loop_.Core().Post(this, [this] { ResumeOne(); });
  } catch (const std::bad_alloc&) {
  }
}

// Whoever goes on may destroy this.
void HostNames::ResumeOne() {
  if (settled_.empty()) return;
  Waiting* const next = lookUps_.at(settled_.front()).waiting.front();
  PostResume();
  next->GoOn();
}

}  // namespace TesselServer
