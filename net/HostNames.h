// The names of clients, looked up beside the loop and remembered for a minute.
//
//   auto asked = names.NameOf("192.0.2.7");
//   std::string name = co_await asked;  // "printer.example.org"
//
// Those who ask for the same address at the same time wait for one look-up. At most kAtOnce are under way; others wait
// their turn in the order of asking. A look-up that nobody waits for any more is not begun.
//
// Thread:    the loop's thread. World::HostNameOf is called on threads of the workers.
// Ownership: the loop and the workers outlive it, and it outlives the tasks that wait for it.
// Errors:    none but those of memory running out; a client without a name has HostLookUp::kUnknown.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "net/NameSource.h"
#include "platform/files/LruCache.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Workers.h"

namespace TesselServer {

class EventLoop;
class World;

class HostNames final : public NameSource {
 public:
  static constexpr std::int64_t kRememberedMilliseconds = 60'000;
  static constexpr std::size_t kMaxRemembered = 1024;  // the least recently used goes first
  static constexpr std::int32_t kAtOnce = Workers::kMaxOfAKind;
  // How long a page waits for a name, its turn included: a look-up takes about a second where no server answers.
  static constexpr std::int32_t kPatienceMilliseconds = 2000;

  HostNames(EventLoop& loop, Workers& workers);
  HostNames(const HostNames&) = delete;
  HostNames& operator=(const HostNames&) = delete;
  ~HostNames() override;

  // The name of the host at `address`, in the forms of HostLookUp::AddressFromDottedText. "Unknown" for any other text,
  // for a host that has no name, and after kPatienceMilliseconds; only then it is not remembered. Where the workers
  // have no threads it is looked up in the call.
  Task<std::string> NameOf(std::string address) override;

  // The same in the call: remembered, or looked up, which takes about a second where no server answers.
  std::string NameNow(std::string_view address) override;

 private:
  class Waiting;
  struct Remembered {
    std::string name;
    std::int64_t at;  // World::MonotonicMilliseconds
  };
  using Addresses = std::list<std::int32_t>;
  struct LookUp {
    std::list<Waiting*> waiting;
    Addresses* stage = nullptr;  // queue_, begun_ or settled_, which has it at `place`
    Addresses::iterator place;
    std::string name;  // once it is settled
  };

  const std::string* Known(std::int32_t address);
  void Remember(std::int32_t address, const std::string& name);
  void Join(Waiting& waiting);
  void Leave(Waiting& waiting);
  void BeginLookUps();
  Task<void> Look(std::int32_t address);
  void Settle(std::int32_t address, std::optional<std::string> name);
  static void Move(LookUp& lookUp, Addresses& stage);
  void PostResume() noexcept;
  void ResumeOne();

  EventLoop& loop_;
  Workers& workers_;
  const World& world_;
  LruCache<Remembered> known_{kMaxRemembered};  // each counts as 1; by KeyOf(address)
  std::map<std::int32_t, LookUp> lookUps_;      // by address, until no task waits for them
  Addresses queue_;                             // those that have not begun,
  Addresses begun_;                             // those that have,
  Addresses settled_;                           // and those that are known, with tasks that are to go on
  std::map<std::int32_t, RunningTask> underWay_;
  bool isBeginning_ = false;
};

}  // namespace TesselServer
