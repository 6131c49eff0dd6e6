// What the control keeps for one connection, from the moment it is accepted until its answer has gone.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "control/connection/Manner.h"
#include "control/connection/MemoryBudget.h"
#include "control/connection/Reception.h"
#include "http/cls_HTTP.h"
#include "platform/files/FileSystem.h"
#include "platform/loop/LongMemory.h"
#include "platform/loop/Timer.h"
#include "platform/tasks/Task.h"
#include "support/Text.h"
#include "support/cls_QueryString.h"

namespace TesselServer {

// Where the request of a connection is. Slot::Enter alone changes it.
enum class RequestPhase {
  kReceiving,      // it has not arrived whole, or there is none
  kOfferedToHost,  // FileRequest was raised and not answered yet
  kAnswering,  // its answer is being made, in one go or over several turns: it may raise function tags and run programs
  kSending,    // its answer was handed over and has not gone yet
};

struct Slot {
  explicit Slot(std::unique_ptr<RequestInput> input) : Input(std::move(input)) {}

  std::unique_ptr<RequestInput> Input;  // of the manner of this run
  MemoryShare BodyMemory;               // what the request's body takes, as far as it has come
  MemoryShare PageMemory;               // what the text of the page takes that is on its way
  std::string AuthenticatedUser;        // admitted by a password file, or by the host in FileRequest; "" for none
  std::int64_t LastActivity = 0;        // UTC seconds of the latest bytes in or out; kept, not consulted
  std::shared_ptr<const std::string> FunctionResult;  // what the host returned for the latest function tag, if anything
  bool FunctionAnswered = false;                      // it returned something for that one, and not only for one before
  FoundEntry Target;                                  // what the path of the request leads to
  std::shared_ptr<const RootFolder> TargetRoot;       // where it was found, whatever the settings say by now
  bool TargetIsKnown = false;                         // Target was looked for, though nothing may have been there
  bool TargetIsInCGIDirectory = false;
  std::string ScriptName;          // the file part of the request; stays when Target is let go
  bool NotTrapped = true;          // the control answers by itself, not with the host's data
  bool SecondaryAccepted = false;  // kept: set for an element that is no listener but was asked to accept
  std::string TrapData;
  std::string TrapContentType;
  std::string TrapHeaderField;
  std::string TrapStatusCode;
  cls_QueryString QueryParser;
  std::shared_ptr<cls_HTTP> Record;                            // made on first use, kept for the next request
  Reception::Outcome WaitsFor = Reception::Outcome::kWaiting;  // what WaitTimer runs for; kWaiting: it does not run
  std::unique_ptr<Timer> WaitTimer;                            // for the rest of a header block or body
  RunningTask Making;                                          // of an answer that is not made in one go

  RequestFields& Fields() { return Input->Fields(); }
  const RequestFields& Fields() const { return std::as_const(*Input).Fields(); }

  RequestPhase Phase() const { return phase_; }
  void Enter(RequestPhase phase) { phase_ = phase; }

  // No time runs for this request any more.
  void StopWaiting() {
    WaitTimer.reset();
    WaitsFor = Reception::Outcome::kWaiting;
  }

  // The target of the request is of no further use: nothing stays open for it.
  void LetGoOfTarget() {
    Target = {};
    TargetRoot.reset();
  }

  // The body of the request is of no further use.
  void LetGoOfBody() {
    Input->LetGoOfBody();
    BodyMemory.Release();
  }

  // For the next client: an answer that is still being made is given up, and all memory of the last one goes, but for
  // what RequestFields::kKeptBytes lets each text keep. Kept as they are: NotTrapped, SecondaryAccepted, LastActivity
  // and the record; a record that is at work on an answer stays with that work.
  void Reset(std::int64_t maxBodyBytes) {
    Making = {};  // first, for it works with the rest
    if (phase_ == RequestPhase::kAnswering) Record.reset();
    Enter(RequestPhase::kReceiving);
    Input->Reset(maxBodyBytes);
    BodyMemory.Release();
    PageMemory.Release();
    Release(AuthenticatedUser);
    Release(Target.name);  // an assignment would keep its memory
    LetGoOfTarget();
    TargetIsKnown = TargetIsInCGIDirectory = FunctionAnswered = false;
    FunctionResult.reset();
    Empty(ScriptName, RequestFields::kKeptBytes);
    for (std::string* text : {&TrapData, &TrapContentType, &TrapHeaderField, &TrapStatusCode}) {
      GiveBack(*text);
    }
    cls_QueryString fresh;
    std::swap(QueryParser, fresh);  // its texts' memory goes as well
    StopWaiting();
  }

 private:
  RequestPhase phase_ = RequestPhase::kReceiving;
};

// The slots of one run of the server, by element number. A slot is made when it is first used, so that 10,000 unused
// ones cost nothing. A caller that uses a slot across an event holds the table, since the host may restart inside it.
class SlotTable {
 public:
  SlotTable(std::int32_t highestIndex, Manner& manner)
      : slots_(static_cast<std::size_t>(highestIndex) + 1), manner_(manner) {}

  std::int32_t HighestIndex() const { return static_cast<std::int32_t>(slots_.size()) - 1; }

  // The manner that these slots are of.
  Manner& TheManner() const { return manner_; }

  // Null for a number outside 0 to HighestIndex.
  Slot* At(std::int32_t index) {
    if (index < 0 || index > HighestIndex()) return nullptr;
    auto& slot = slots_[static_cast<std::size_t>(index)];
    if (!slot) slot = std::make_unique<Slot>(manner_.NewInput());
    return slot.get();
  }

  // Null also for a slot that was never used.
  Slot* IfUsed(std::int32_t index) {
    if (index < 0 || index > HighestIndex()) return nullptr;
    return slots_[static_cast<std::size_t>(index)].get();
  }

 private:
  std::vector<std::unique_ptr<Slot>> slots_;
  Manner& manner_;
};

}  // namespace TesselServer
