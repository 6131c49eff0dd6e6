// Whether the client of a request may have what it asks for: the password rule of the second manner.
//
// A password file is read for each request in turns; a hash is checked beside the loop. Few checks wait at a time, so
// that guesses do not pile up: who comes then is told that the server is busy.
//
// Thread:    the host's thread.
// Ownership: keeps a reference to the control's state. Tasks may outlive nothing of what they are given.
// Errors:    the socket errors 10024 and 10055 where the process has run out of descriptors or memory. A password file
//            that cannot be read admits no client and is reported through LogEvent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "control/life/ControlState.h"
#include "control/modern/GuardSearch.h"
#include "control/modern/PasswordMemory.h"
#include "http/modern/BasicCredentials.h"
#include "http/modern/PasswordFile.h"
#include "platform/files/FoldersWithout.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class ModernAdmission {
 public:
  // So many clients wait for their hashes besides those being checked.
  static constexpr int kMaxWaiting = 16;
  // A file that cannot be read is reported at the start, and then at most once in so many milliseconds, whatever the
  // number of files and clients.
  static constexpr std::int64_t kReportMilliseconds = 60'000;

  explicit ModernAdmission(ControlState& state) : state_(state), memory_(state.world), without_(state.world) {}
  ModernAdmission(const ModernAdmission&) = delete;
  ModernAdmission& operator=(const ModernAdmission&) = delete;

  // Raises Error 5 for a source of passwords that would protect nothing.
  void CheckSettings() const;
  // The server has started: reports the file for everything where it cannot be read.
  void ReportAtStart();

  // Whether the settings name anything that may guard a target.
  bool MayGuard() const;

  enum class Outcome {
    kOpen,      // nothing guards the place
    kAdmitted,  // a password was checked and is right
    kRefused,
    kBusy,  // too many wait already
  };
  struct Verdict {
    Outcome outcome = Outcome::kOpen;
    std::string realm;  // of a refusal
  };
  Task<Verdict> To(const GuardedPlace& place, const Modern::BasicCredentials& given);

  // Whether it is known at once, without waiting and reading, that these get kRefused. False says nothing.
  bool IsRefusedAtOnce(const GuardedPlace& place, const Modern::BasicCredentials& given) const;

 private:
  Task<Verdict> ByFile(const PasswordGuard& guard, const Modern::BasicCredentials& given);
  Task<Outcome> ByHashes(Modern::PasswordFile::Hashes hashes, const Modern::BasicCredentials& given,
                         const std::string& file);
  GuardSettings SettingsNow();
  int MostChecks() const;
  void Report(const std::string& file);
  void ReportNow(const std::string& file);
  void ReportHash(const std::string& file);

  ControlState& state_;
  PasswordMemory memory_;
  FoldersWithout without_;                                  // the name of password files, which never changes
  std::shared_ptr<int> checks_ = std::make_shared<int>(0);  // on their way; a task may go on for a moment without this
  std::int64_t nextReport_ = 0;                             // World::MonotonicMilliseconds
  bool hasReportedHash_ = false;
};

}  // namespace TesselServer
