#include "control/modern/ModernAdmission.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "control/answer/Authentication.h"
#include "platform/access/PasswordHash.h"
#include "platform/files/FilePieces.h"
#include "platform/files/NeighbourFile.h"
#include "platform/world/Error.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

using Modern::BasicCredentials;
using Modern::PasswordFile;

// Whether all of the file was read.
Task<bool> ReadPasswords(const OpenFile& file, PasswordFile& passwords, Turns* turns) {
  if (file.Kind() != EntryKind::kFile || file.Size() > kMaxPasswordFileBytes) co_return false;
  FilePieces pieces(file, kMaxPasswordFileBytes, turns);
  std::string room(pieces.UsualRoom(), '\0');
  const WipeAtEnd contentsGo(room);
  for (;;) {
    auto reading = pieces.Next(room);
    const std::size_t bytes = co_await reading;
    if (bytes == 0) break;
    for (std::size_t begin = 0; begin < bytes; begin += PasswordFile::kStretchBytes) {
      if (turns->TimeIsUp()) {
        auto next = turns->Next();
        co_await next;
      }
      passwords.Take(std::string_view(room).substr(begin, std::min(PasswordFile::kStretchBytes, bytes - begin)));
    }
  }
  passwords.End();
  co_return pieces.IsWhole();
}

// A password and what it is held against, on its way to a thread and back.
struct HashWork {
  HashWork(const std::string& given, PasswordFile::Hashes texts) : password(given), hashes(std::move(texts)) {}
  HashWork(const HashWork&) = delete;
  HashWork& operator=(const HashWork&) = delete;
  ~HashWork() {
    Wipe(password);
    for (std::string& text : hashes.texts) Wipe(text);
  }

  std::string password;
  PasswordFile::Hashes hashes;
};

// On a thread. Each hash is checked, whichever is right.
HashCheck CheckAll(const HashWork& work) {
  bool isRight = false, isImpossible = false;
  for (std::size_t i = 0; i < work.hashes.count; ++i) {
    const HashCheck check = CheckPasswordHash(work.password, work.hashes.texts[i]);
    isRight |= check == HashCheck::kRight;
    isImpossible |= check == HashCheck::kImpossible;
  }
  if (isRight && work.hashes.areOfUser) return HashCheck::kRight;
  return isImpossible ? HashCheck::kImpossible : HashCheck::kWrong;
}

// One more check is on its way for as long as this lives.
class CheckUnderWay {
 public:
  explicit CheckUnderWay(std::shared_ptr<int> count) : count_(std::move(count)) { ++*count_; }
  CheckUnderWay(const CheckUnderWay&) = delete;
  CheckUnderWay& operator=(const CheckUnderWay&) = delete;
  ~CheckUnderWay() { --*count_; }

 private:
  std::shared_ptr<int> count_;
};

}  // namespace

// ---- What the settings say.

void ModernAdmission::CheckSettings() const {
  const e_AuthSource source = state_.settings.AuthenticationSource;
  if (source == e_AuthSource::GolbalFile || source == e_AuthSource::DirectoryFile) return;
  throw Error(ErrorNumber::kInvalidCall, "AuthenticationSource names a source that protects nothing",
              "Tessel.StartServer");
}

void ModernAdmission::ReportAtStart() {
  const Settings& settings = state_.settings;
  if (settings.AuthenticationSource != e_AuthSource::GolbalFile || settings.AuthenticationSourceFile.empty()) return;
  const std::string path = settings.AuthenticationSourceFile;
  const OpenFile file = OpenPath(path);
  if (file.Kind() != EntryKind::kFile || file.Size() > kMaxPasswordFileBytes) ReportNow(path);
}

bool ModernAdmission::MayGuard() const {
  const Settings& settings = state_.settings;
  return settings.AuthenticationSource != e_AuthSource::GolbalFile || !settings.AuthenticationSourceFile.empty();
}

GuardSettings ModernAdmission::SettingsNow() {
  return {state_.settings.AuthenticationSource, state_.settings.AuthenticationSourceFile, state_.authFileName,
          &without_};
}

// ---- The verdict.

Task<ModernAdmission::Verdict> ModernAdmission::To(const GuardedPlace& place, const BasicCredentials& given) {
  const GuardSettings settings = SettingsNow();
  auto finding = FindGuard(place, settings, &state_.turns);
  const PasswordGuard guard = co_await finding;
  switch (guard.state) {
    case PasswordGuard::State::kNone:
      co_return Verdict{Outcome::kOpen, {}};
    case PasswordGuard::State::kFile: {
      auto asking = ByFile(guard, given);
      co_return co_await asking;
    }
    case PasswordGuard::State::kClosed:
      break;
  }
  Report(guard.name);
  co_return Verdict{Outcome::kRefused, std::string(Modern::kUnnamedRealm)};
}

Task<ModernAdmission::Verdict> ModernAdmission::ByFile(const PasswordGuard& guard, const BasicCredentials& given) {
  const PasswordMemory::Look look = memory_.LookUp(guard.file, given.user, given.password);
  if (look.isKnown) co_return Verdict{Outcome::kAdmitted, {}};
  PasswordFile passwords(given.user, given.password);
  auto reading = ReadPasswords(guard.file, passwords, &state_.turns);
  const bool isWhole = co_await reading;
  if (!isWhole) {
    Report(guard.name);
    co_return Verdict{Outcome::kRefused, std::string(Modern::kUnnamedRealm)};
  }
  Outcome outcome = passwords.Holds() ? Outcome::kAdmitted : Outcome::kRefused;
  if (outcome == Outcome::kRefused) {
    auto checking = ByHashes(passwords.ToCheck(), given, guard.name);
    outcome = co_await checking;
  }
  if (outcome == Outcome::kAdmitted) memory_.Learn(look);
  co_return Verdict{outcome, passwords.Realm()};
}

int ModernAdmission::MostChecks() const {
  return std::clamp(state_.workers.Count(), 1, Workers::kMaxOfAKind) + kMaxWaiting;
}

Task<ModernAdmission::Outcome> ModernAdmission::ByHashes(PasswordFile::Hashes hashes, const BasicCredentials& given,
                                                         const std::string& file) {
  if (hashes.count == 0) co_return Outcome::kRefused;
  const auto work = std::make_shared<const HashWork>(given.password, std::move(hashes));
  if (!CanCheckPasswordHashes()) {
    ReportHash(file);
    co_return Outcome::kRefused;
  }
  if (*checks_ >= MostChecks()) co_return Outcome::kBusy;
  const CheckUnderWay underWay(checks_);
  auto checking = state_.workers.Do(Workers::Kind::kPasswords, [work] { return CheckAll(*work); });
  const HashCheck check = co_await checking;
  if (check == HashCheck::kImpossible) ReportHash(file);
  co_return check == HashCheck::kRight ? Outcome::kAdmitted : Outcome::kRefused;
}

bool ModernAdmission::IsRefusedAtOnce(const GuardedPlace& place, const BasicCredentials& given) const {
  if (!MayGuard() || (!given.user.empty() && !given.password.empty())) return false;
  if (state_.settings.AuthenticationSource != e_AuthSource::DirectoryFile) return true;
  const auto top = place.root->FindAtOnce("");
  return top && top->file.IsOpen() && IsAboveAtOnce(place.target.file, state_.authFileName, top->file.Identity());
}

// ---- Reports.

void ModernAdmission::Report(const std::string& file) {
  if (state_.world.MonotonicMilliseconds() >= nextReport_) ReportNow(file);
}

void ModernAdmission::ReportNow(const std::string& file) {
  nextReport_ = state_.world.MonotonicMilliseconds() + kReportMilliseconds;
  state_.reporter.RaiseLogEvent(file.empty() ? "AuthenticationSource names a source that admits no client."
                                             : "A password file cannot be read and admits no client: " + file);
}

void ModernAdmission::ReportHash(const std::string& file) {
  if (std::exchange(hasReportedHash_, true)) return;
  state_.reporter.RaiseLogEvent("A password file has a hash that cannot be checked here and admits no client: " + file);
}

}  // namespace TesselServer
