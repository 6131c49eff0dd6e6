#include "control/answer/Dispatch.h"

#include <exception>
#include <memory>
#include <utility>
#include <variant>

#include "control/answer/AnswerPrograms.h"
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

// The bytes of an answer's text that is in memory for this answer alone.
std::int64_t OwnTextBytes(const Answer& answer) {
  if (const auto* text = std::get_if<std::string>(&answer.body)) return static_cast<std::int64_t>(text->size());
  const auto* shared = std::get_if<Answer::SharedBytes>(&answer.body);
  return shared != nullptr && shared->use_count() == 1 ? answer.BodySize() : 0;
}

// One leading separator goes, unless nothing else is there: the root keeps its name.
void DropLeadingSeparator(std::string& path) {
  if (path.size() > 1 && IsSeparator(path.front())) path.erase(0, 1);
}

}  // namespace

// One call of SendWebPage. Holds on to what an event inside it could take away.
struct Dispatch::Call {
  std::int32_t index;
  std::shared_ptr<SlotTable> slots;
  Slot& slot;
  std::uint64_t generation;
  std::shared_ptr<cls_HTTP> record;
  bool handedOver;  // the socket has taken an answer: there is never a second one
};

void Dispatch::Begin(std::int32_t Index) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->IfUsed(Index) : nullptr;
  if (slot == nullptr) return;
  try {
    FindTarget(state_, *slot);
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  if (IsForHost(*slot)) {
    OfferToHost(Index, *slot);
    return;
  }
  slot->NotTrapped = true;
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
    FindTarget(state_, slot);
    isRead = IsForHost(slot) || MayCallFunctions(slot.Target);
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  slot.Target = {};  // the body may take its time: nothing stays open until then
  slot.TargetIsKnown = false;
  return isRead;
}

void Dispatch::OfferToHost(std::int32_t Index, Slot& slot) {
  const auto slots = state_.slots;
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  std::string path = PathForHost(slot);
  slot.NotTrapped = false;
  slot.Enter(RequestPhase::kOfferedToHost);
  slot.Target = {};  // the answer may take its time: nothing stays open until then
  slot.TargetIsKnown = false;
  const bool heard = state_.reporter.RaiseFileRequest(Index, std::move(path), UserAuthentication(slot.Fields()));
  if (heard || state_.sckWS.Generation(Index) != generation) return;
  if (slot.Phase() != RequestPhase::kOfferedToHost) return;  // it was answered before the handler failed
  SendWebPage(Index, "500", true);
}

void Dispatch::SendWebPage(std::int32_t Index, std::string_view StatusCode, bool ForceStatus) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->At(Index) : nullptr;
  if (slot == nullptr) return;
  state_.statistics.RequestCount += 1;
  Call call{Index, slots, *slot, state_.sckWS.Generation(Index), nullptr, false};
  slot->Enter(RequestPhase::kAnswering);
  MakeAnswer(call, StatusCode, ForceStatus);
  if (slot->Phase() == RequestPhase::kAnswering) slot->Enter(RequestPhase::kSending);
  if (state_.sckWS.Generation(Index) != call.generation) return;  // closed meanwhile, by an event or a failure
  slot->Target = {};
  slot->LetGoOfBody();  // not kept for as long as the answer takes to go out
  if (call.record) call.record->EndRequest();
  if (!call.handedOver) sending_.CloseConnection(Index);
}

// Makes the answer and hands it over; where that fails, the error answer for 500.
void Dispatch::MakeAnswer(Call& call, std::string_view statusCode, bool forceStatus) {
  AnswerPrograms programs(state_.programs, call.slot);
  const bool answered = state_.reporter.Trap(ErrorPrefix::kSendWebPage, [&] {
    call.record = RecordOf(state_, call.slot, call.index);
    call.record->Runner(&programs);
    Deliver(call, Decide(call, statusCode, forceStatus));
  });
  if (call.record) call.record->Runner(nullptr);
  if (answered || call.handedOver || !call.record) return;
  state_.reporter.Trap(ErrorPrefix::kSendWebPage, [&] {
    Deliver(call, {ErrorAnswer(*call.record, "500"), "500", !forceStatus && call.slot.NotTrapped});
  });
}

Dispatch::Decision Dispatch::Decide(Call& call, std::string_view statusCode, bool forceStatus) {
  RequestFields& request = call.slot.Fields();
  if (forceStatus) {
    if (request.RequestPath.empty()) request.RequestPath = "/";  // so that the connection is closed after the answer
    return {ErrorAnswer(*call.record, statusCode), std::string(statusCode), false};
  }
  if (!call.slot.NotTrapped) return HostAnswer(call);
  if (request.RequestPath.empty()) return {};
  if (!call.slot.TargetIsKnown) FindTarget(state_, call.slot);  // the host handed the request back
  DropLeadingSeparator(request.RequestPath);
  const FoundEntry& target = call.slot.Target;
  if (target.kind == EntryKind::kNone) return Refusal(*call.record, "404");
  const Admission admission =
      AdmissionTo(target, state_.settings, state_.authFileName, request.AuthUser, request.AuthPassword);
  if (admission.byPassword) call.slot.AuthenticatedUser = request.AuthUser;
  return target.kind == EntryKind::kDirectory ? DirectoryAnswer(call, admission) : FileAnswer(call, admission);
}

// The error page, or with VerboseErrorsEnable off the bare header. The page's own status line says 200, the header's
// the code.
Answer Dispatch::ErrorAnswer(cls_HTTP& record, std::string_view statusCode) const {
  if (state_.settings.VerboseErrorsEnable) return record.ErrorPage(statusCode, state_.settings.ErrorFilesEnable);
  return {record.BuildHeader(statusCode, 0, "text/html", true, ""), std::string()};
}

Dispatch::Decision Dispatch::Refusal(cls_HTTP& record, std::string_view statusCode) const {
  return {ErrorAnswer(record, statusCode), std::string(statusCode), true};
}

Dispatch::Decision Dispatch::HostAnswer(Call& call) const {
  Slot& slot = call.slot;
  std::string head = call.record->BuildHeader(slot.TrapStatusCode, static_cast<std::int64_t>(slot.TrapData.size()),
                                              slot.TrapContentType, true, slot.TrapHeaderField);
  return {{std::move(head), std::exchange(slot.TrapData, {})}, slot.TrapStatusCode, false, true};
}

// The header that asks for a name and a password. `field` is the name of its line, which ends the header.
Dispatch::Decision Dispatch::Challenge(const cls_HTTP& record, std::string_view field, const std::string& realm) const {
  std::string head = record.BuildHeader("401", 0, "text/html", false, "");
  head.append(field).append(": Basic realm=").append(realm).append("\r\n\r\n");
  return {{std::move(head), std::string()}, "401", true};
}

// A folder without an index page is listed, or forbidden.
Dispatch::Decision Dispatch::DirectoryAnswer(Call& call, const Admission& admission) {
  if (!state_.settings.DirectoryBrowseEnable) return Refusal(*call.record, "403");
  // kept: written otherwise than for a file
  if (!admission.granted) return Challenge(*call.record, "WWW-authenticate", admission.realm);
  std::string page = ListingOf(state_, call.slot);
  const auto size = static_cast<std::int64_t>(page.size());
  std::string head = call.record->BuildHeader("200", size, "text/html", true, "");
  return {{std::move(head), std::move(page)}, "200", true};
}

Dispatch::Decision Dispatch::FileAnswer(Call& call, const Admission& admission) const {
  if (!admission.granted) return Challenge(*call.record, "WWW-Authenticate", admission.realm);
  FoundEntry& target = call.slot.Target;
  if (!target.readable) return Refusal(*call.record, "403");
  if (!IsProgramName(target.name)) state_.Root()->Remember(target);
  if (auto plain = call.record->PlainFile(target.file, target.name, "200")) return {std::move(*plain), "200", true};
  const std::string file = MappedFileOf(state_, call.slot);
  RequestInfo info = RequestInfoOf(state_, call.slot, call.index, file);
  FoundEntry found{target.kind, target.name, target.readable, std::move(target.file)};  // the name is still asked for
  Answer answer = call.record->ProcessFile(std::move(found), file, "200", true, "", std::move(info),
                                           call.slot.Fields().RequestBody);
  return {std::move(answer), "200", true};
}

// Sends and logs.
void Dispatch::Deliver(Call& call, Decision decision) {
  const std::int64_t size = decision.answer.Size();
  if (size == 0 || state_.sckWS.Generation(call.index) != call.generation) return;
  const std::int64_t pageBytes = decision.isHostsData ? 0 : OwnTextBytes(decision.answer);
  if (!call.slot.PageMemory.Resize(state_.pageMemory, pageBytes)) {
    const std::int64_t sent = sending_.ServerTooBusy(call.index);
    call.handedOver = sent > 0;
    state_.statistics.BytesSent += static_cast<double>(sent);
    return;
  }
  const std::string address = decision.logged ? state_.sckWS.RemoteHostIP(call.index) : std::string();
  call.handedOver = sending_.SendData(call.index, std::move(decision.answer));
  if (!decision.logged) return;
  state_.statistics.BytesSent += static_cast<double>(size);
  if (state_.sckWS.Generation(call.index) == call.generation) {
    sending_.LogRequest(call.index, address, decision.status, size);
  }
}

}  // namespace TesselServer
