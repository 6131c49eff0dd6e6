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
  ~Waiting() {
    names_.Leave(*this);
    names_.loop_.Core().Withdraw(this);
  }

  // The look-up is settled, and does not know of this any more. Each task that waited goes on in a notification of its
  // own, for there may be one for every connection. One for which there is no memory goes on when its patience ends.
  void Answer(const std::string& name) {
    place.reset();
    isAnswered_ = true;
    try {
      name_ = name;
      if (isWaiting_) names_.loop_.Core().Post(this, [this] { GoOn(); });
    } catch (const std::bad_alloc&) {
    }
  }

  const std::int32_t address;
  std::optional<std::list<Waiting*>::iterator> place;  // in the look-up that it waits for

 private:
  bool MustWait() override {
    names_.Join(*this);
    if (isAnswered_) return false;
    isWaiting_ = true;
    patience_.Interval(kPatienceMilliseconds);
    patience_.OnTick([this] { GoOn(); });
    patience_.Enabled(true);
    return true;
  }
  std::string Take() override { return std::move(name_); }

  void GoOn() {
    patience_.Enabled(false);
    names_.loop_.Core().Withdraw(this);
    names_.Leave(*this);
    Resume();
  }

  HostNames& names_;
  Timer patience_;
  std::string name_{HostLookUp::kUnknown};
  bool isAnswered_ = false;
  bool isWaiting_ = false;
};

HostNames::HostNames(EventLoop& loop, Workers& workers) : loop_(loop), workers_(workers), world_(loop.TheWorld()) {}

HostNames::~HostNames() = default;

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
  std::list<std::int32_t> turn{waiting.address};
  const auto [lookUp, isNew] = lookUps_.try_emplace(waiting.address);
  waiting.place = itself.begin();
  lookUp->second.waiting.splice(lookUp->second.waiting.end(), itself);
  if (!isNew) return;
  lookUp->second.queued = turn.begin();
  queue_.splice(queue_.end(), turn);
  BeginLookUps();
}

void HostNames::Leave(Waiting& waiting) {
  if (!waiting.place) return;
  const auto lookUp = lookUps_.find(waiting.address);
  lookUp->second.waiting.erase(*waiting.place);
  waiting.place.reset();
  if (!lookUp->second.waiting.empty() || !lookUp->second.queued) return;
  queue_.erase(*lookUp->second.queued);
  lookUps_.erase(lookUp);
}

// One that is settled in the call, where there are no threads, makes room for the next in this loop and not in a call
// of its own.
void HostNames::BeginLookUps() {
  if (isBeginning_) return;
  isBeginning_ = true;
  while (begun_ < kAtOnce && !queue_.empty()) {
    const std::int32_t address = queue_.front();
    queue_.pop_front();
    lookUps_[address].queued.reset();
    ++begun_;
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
  --begun_;
  underWay_.erase(address);  // this very task, which goes on to its end
  const auto settled = lookUps_.extract(address);
  const bool isCertain = name.has_value();
  const std::string answer = std::move(name).value_or(std::string(HostLookUp::kUnknown));
  for (Waiting* waiting : settled.mapped().waiting) waiting->Answer(answer);
  try {
    if (isCertain) Remember(address, answer);
  } catch (const std::bad_alloc&) {
    // it is looked up again
  }
  BeginLookUps();
}

}  // namespace TesselServer
