#include "control/answer/Dispatch.h"

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "control/answer/Listing.h"
#include "control/answer/RecordSetup.h"
#include "control/answer/SlotTarget.h"
#include "control/answer/Trapping.h"
#include "http/RunCGI.h"
#include "platform/world/Error.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

constexpr cls_HTTP::AnswerHead kOkHead{"200"};

// One leading separator goes, unless nothing else is there: the root keeps its name.
void DropLeadingSeparator(std::string& path) {
  if (path.size() > 1 && IsSeparator(path.front())) path.erase(0, 1);
}

// Which password file the settings name.
PasswordSource SourceOf(const ControlState& state) {
  return {state.settings.AuthenticationSource, state.settings.AuthenticationSourceFile, state.authFileName};
}

}  // namespace

// ---- The target.

void Dispatch::Begin(std::int32_t Index) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr) return;
  bool isFound = true;
  try {
    isFound = FindTargetAtOnce(state_, *slot);
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  if (isFound) {
    Proceed(Index, *slot);
  } else {
    Start(Index, *slot, FindAndProceed(Index, *slot));
  }
}

Task<void> Dispatch::FindAndProceed(std::int32_t Index, Slot& slot) {
  const auto slots = state_.slots;
  slot.Enter(RequestPhase::kAnswering);
  try {
    auto search = FindTarget(state_, slot);
    co_await search;
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  if (state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { Proceed(Index, slot); })) co_return;
  if (state_.sckWS.Generation(Index) != generation || slot.Phase() != RequestPhase::kAnswering) co_return;
  state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { sending_.CloseConnection(Index); });
}

void Dispatch::Proceed(std::int32_t Index, Slot& slot) {
  if (IsForHost(slot)) {
    OfferToHost(Index, slot);
    return;
  }
  slot.NotTrapped = true;
  SendWebPage(Index, "", false);
}

bool Dispatch::IsForHost(const Slot& slot) const {
  return state_.reporter.FileRequestIsHeard() && IsTrapped(slot, state_.settings);
}

// Whether the answer may be a page with function tags for the host.
bool Dispatch::MayCallFunctions(const FoundEntry& target) const {
  if (!state_.settings.HTMLFunctionsEnable || !state_.reporter.CallFunctionIsHeard()) return false;
  // what is no file gets a page of the site only where the site has error pages
  if (target.kind != EntryKind::kFile || !target.readable) return state_.settings.ErrorFilesEnable;
  return !IsProgramName(target.name) && !state_.requestTemplate.IsPlain(target.file, target.name);
}

bool Dispatch::BodyIsRead(Slot& slot) const {
  bool isRead = true;
  try {
    bool isKnown = FindTargetAtOnce(state_, slot);
    if (!isKnown) {
      RunningTask::Start(FindTarget(state_, slot));  // what it does not find now is looked for when the body is there
      isKnown = slot.TargetIsKnown;
    }
    if (isKnown) isRead = IsForHost(slot) || MayCallFunctions(slot.Target);
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  slot.LetGoOfTarget();  // the body may take its time
  slot.TargetIsKnown = false;
  return isRead;
}

void Dispatch::OfferToHost(std::int32_t Index, Slot& slot) {
  const auto slots = state_.slots;
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  std::string path = PathForHost(slot);
  slot.NotTrapped = false;
  slot.Enter(RequestPhase::kOfferedToHost);
  slot.LetGoOfTarget();  // the answer may take its time
  slot.TargetIsKnown = false;
  const bool heard = state_.reporter.RaiseFileRequest(Index, std::move(path), UserAuthentication(slot.Fields()));
  if (heard || state_.sckWS.Generation(Index) != generation) return;
  if (slot.Phase() != RequestPhase::kOfferedToHost) return;  // it was answered before the handler failed
  SendWebPage(Index, "500", true);
}

// ---- The making of an answer.

void Dispatch::Prepare(Call& call) { call.record = RecordOf(state_, call.slot, call.index); }

Task<void> Dispatch::WorkFor(Call& call, Step& step) {
  if (std::holds_alternative<Decision>(step)) return {};
  if (std::holds_alternative<ErrorPageFor>(step)) return ErrorPage(call, step);
  switch (std::get<Need>(step)) {
    case Need::kTarget:
      return LookForTarget(call, step);
    case Need::kAdmission:
      return AskAdmission(call, step);
    case Need::kListing:
      return DirectoryAnswer(call, step);
    case Need::kPage:
      return PageAnswer(call, step);
  }
  return {};
}

// ---- What the answer is.

Dispatch::Step Dispatch::ForcedStep(Call& call, std::string_view statusCode) {
  RequestFields& request = call.slot.Fields();
  if (request.RequestPath.empty()) request.RequestPath = "/";  // so that the connection is closed after the answer
  return ErrorStep(call, statusCode, false);
}

Dispatch::Step Dispatch::NextStep(Call& call) {
  RequestFields& request = call.slot.Fields();
  if (!call.slot.NotTrapped) return HostAnswer(call);
  if (request.RequestPath.empty()) return Decision();
  // a request that the host handed back has no target any more
  if (!call.slot.TargetIsKnown && !FindTargetAtOnce(state_, call.slot)) return Need::kTarget;
  if (!std::exchange(call.isTargetTaken, true)) DropLeadingSeparator(request.RequestPath);
  const FoundEntry& target = call.slot.Target;
  if (target.kind == EntryKind::kNone) return ErrorStep(call, "404", true);
  if (!call.admission && MayGuard(state_.settings.AuthenticationSource, state_.settings.AuthenticationSourceFile)) {
    return Need::kAdmission;
  }
  if (call.admission && call.admission->byPassword) call.slot.AuthenticatedUser = request.AuthUser;
  return target.kind == EntryKind::kDirectory ? DirectoryStep(call) : FileStep(call);
}

// The error page, or with VerboseErrorsEnable off the bare header. The page's own status line says 200, the header's
// the code.
Dispatch::Step Dispatch::ErrorStep(Call& call, std::string_view statusCode, bool logged) const {
  const cls_HTTP& record = *call.record;
  if (!state_.settings.VerboseErrorsEnable) {
    Answer answer{record.BuildHeader(statusCode, 0, "text/html", true, ""), std::string()};
    return Decision{std::move(answer), std::string(statusCode), logged};
  }
  if (state_.settings.ErrorFilesEnable) return ErrorPageFor{std::string(statusCode), logged};
  return Decision{record.BuiltInErrorPage(statusCode), std::string(statusCode), logged};
}

Dispatch::Step Dispatch::StepAfterFailure(Call& call) {
  return ErrorStep(call, "500", !call.isForced && call.slot.NotTrapped);
}

Dispatch::Decision Dispatch::HostAnswer(Call& call) const {
  Slot& slot = call.slot;
  std::string head = call.record->BuildHeader(slot.TrapStatusCode, static_cast<std::int64_t>(slot.TrapData.size()),
                                              slot.TrapContentType, true, slot.TrapHeaderField);
  return {{std::move(head), std::exchange(slot.TrapData, {})}, slot.TrapStatusCode, false, true};
}

// The header that asks for a name and a password. `field` is the name of its line, which ends the header.
Dispatch::Decision Dispatch::Challenge(const Call& call, std::string_view field) const {
  std::string head = call.record->BuildHeader("401", 0, "text/html", false, "");
  head.append(field).append(": Basic realm=").append(call.admission->realm).append("\r\n\r\n");
  return {{std::move(head), std::string()}, "401", true};
}

// A folder without an index page is listed, or forbidden.
Dispatch::Step Dispatch::DirectoryStep(Call& call) const {
  if (!state_.settings.DirectoryBrowseEnable) return ErrorStep(call, "403", true);
  // kept: written otherwise than for a file
  if (!call.IsGranted()) return Challenge(call, "WWW-authenticate");
  return Need::kListing;
}

Dispatch::Step Dispatch::FileStep(Call& call) const {
  if (!call.IsGranted()) return Challenge(call, "WWW-Authenticate");
  FoundEntry& target = call.slot.Target;
  if (!target.readable) return ErrorStep(call, "403", true);
  if (!IsProgramName(target.name)) call.slot.TargetRoot->Remember(target);
  if (auto plain = call.record->PlainFile(target.file, target.name, "200")) {
    return Decision{std::move(*plain), "200", true};
  }
  return Need::kPage;
}

// ---- What takes longer.

Task<void> Dispatch::LookForTarget(Call& call, Step& step) {
  auto search = FindTarget(state_, call.slot);
  co_await search;
  step = NextStep(call);
}

Task<void> Dispatch::AskAdmission(Call& call, Step& step) {
  const RequestFields& request = call.slot.Fields();
  auto asking = AdmissionTo(call.slot.Target, SourceOf(state_), request.AuthUser, request.AuthPassword, &state_.turns);
  Admission admission = co_await asking;
  call.admission = std::make_shared<const Admission>(std::move(admission));
  step = NextStep(call);
}

Task<void> Dispatch::ErrorPage(Call& call, Step& step) {
  ErrorPageFor page = std::get<ErrorPageFor>(step);
  auto making = call.record->ErrorPage(page.status, true);
  Answer answer = co_await making;
  step = Decision{std::move(answer), std::move(page.status), page.logged};
}

Task<void> Dispatch::DirectoryAnswer(Call& call, Step& step) {
  auto making = ListingOf(state_, call.slot);
  std::optional<std::string> page = co_await making;
  if (!page) {
    step = TooLarge();
    co_return;
  }
  const auto size = static_cast<std::int64_t>(page->size());
  std::string head = call.record->BuildHeader("200", size, "text/html", true, "");
  step = Decision{{std::move(head), std::move(*page)}, "200", true};
}

Task<void> Dispatch::PageAnswer(Call& call, Step& step) {
  FoundEntry& target = call.slot.Target;
  const std::string file = MappedFileOf(state_, call.slot);
  call.record->EndRequest();  // what the host has asked for before: some values are different now
  FoundEntry found{target.kind, target.name, target.readable, std::move(target.file)};  // the name is still asked for
  Decision& decision = step.emplace<Decision>(Decision{{}, "200", true});
  return call.record->MakeAnswer(std::move(found), file, kOkHead, decision.answer);
}

// ---- The end.

void Dispatch::Deliver(Call& call, Decision& decision) {
  if (IsOver(call)) return;
  const std::int64_t size = decision.answer.Size();
  if (size == 0 && !decision.isTooLarge) return;
  if (!TakesPageMemory(call, decision)) {
    decision.answer = {};
    const std::int64_t sent = sending_.ServerTooBusy(call.index);
    call.handedOver = sent > 0;
    state_.statistics.BytesSent += static_cast<double>(sent);
    return;
  }
  const std::string address = decision.logged ? state_.sckWS.RemoteHostIP(call.index) : std::string();
  call.handedOver = sending_.SendData(call.index, std::move(decision.answer));
  if (!decision.logged) return;
  state_.statistics.BytesSent += static_cast<double>(size);
  if (!IsOver(call)) sending_.LogRequest(call.index, address, decision.status, size);
}

}  // namespace TesselServer
