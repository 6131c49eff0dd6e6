#include "control/answer/HostAnswers.h"

#include <algorithm>

#include "control/answer/RecordSetup.h"
#include "control/answer/SlotTarget.h"
#include "platform/loop/LongMemory.h"
#include "platform/world/Error.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

constexpr std::string_view kDefaultStatus = "200";
constexpr std::size_t kStatusLength = 3;

}  // namespace

std::string NormaliseHeaderField(std::string_view headerField) {
  std::string lines(Trim(headerField));
  if (lines.empty()) return lines;
  if (lines.ends_with("\r\n\r\n")) {
    lines.resize(lines.size() - kLineEnd.size());
  } else if (!lines.ends_with(kLineEnd)) {
    lines += kLineEnd;
  }
  return lines;
}

std::string NormaliseStatusCode(std::string_view statusCode) {
  const std::string_view code = Trim(statusCode);
  return std::string(code.size() == kStatusLength ? code : kDefaultStatus);
}

std::string HeaderValue(const std::string& header, std::string_view field) {
  const std::size_t found = FindNoCase(header, field);
  if (found == std::string::npos) return {};
  const std::size_t nameEnd = found + field.size();
  const std::size_t end = header.find(kLineEnd, nameEnd);
  if (end == std::string::npos) throw Error(ErrorNumber::kInvalidCall, "Invalid procedure call or argument");
  const std::size_t start =
      std::min(nameEnd + 2, end);  // kept: skips two characters, ":" and a blank, whatever they are
  return header.substr(start, end - start);
}

// Null for an Index that is no connection, and before the first start.
Slot* HostAnswers::Find(std::int32_t Index) {
  return state_.slots && Index >= kListener ? state_.slots->At(Index) : nullptr;
}

Slot& HostAnswers::Require(std::int32_t Index) {
  Slot* slot = Find(Index);
  if (slot == nullptr) throw SubscriptError();
  return *slot;
}

void HostAnswers::ReturnData(std::int32_t Index, const std::string& mData) {
  Slot* slot = Find(Index);
  if (slot == nullptr) return;
  slot->FunctionResult = ShareLong(mData);
  slot->FunctionAnswered = true;
}

void HostAnswers::TrapFileData(std::int32_t Index, const std::string& Data, bool Process,
                               const std::string& ContentType) {
  Slot* slot = Find(Index);
  if (slot == nullptr || slot->Phase() != RequestPhase::kOfferedToHost) return;
  slot->NotTrapped = Process;
  if (Process) {
    slot->AuthenticatedUser = slot->Fields().AuthUser;  // the host has seen the credentials, and admits the client
  } else {
    slot->TrapContentType = ContentType;
    slot->TrapData = Data;
    if (slot->TrapStatusCode.empty()) slot->TrapStatusCode = kDefaultStatus;
  }
  state_.manner->AnswerAsHostSays(Index);
}

void HostAnswers::TrapFileDataEX(std::int32_t Index, const std::string& Data, bool Process,
                                 const std::string& ContentType, const std::string& StatusCode,
                                 const std::string& HeaderField) {
  Slot& slot = Require(Index);
  if (slot.Phase() != RequestPhase::kOfferedToHost) return;
  slot.TrapHeaderField = NormaliseHeaderField(HeaderField);
  slot.TrapStatusCode = state_.manner->StatusOfHost(StatusCode);
  TrapFileData(Index, Data, Process, ContentType);
}

std::int16_t HostAnswers::QueryStringCount(std::int32_t Index, const std::string& Paramter) {
  Slot* slot = Find(Index);
  if (slot == nullptr) return 0;
  slot->QueryParser.QueryString(slot->Fields().RequestQuery);
  return slot->QueryParser.Count(Paramter);
}

std::string HostAnswers::QueryString(std::int32_t Index, const std::string& Paramter, std::int32_t Item) {
  Slot* slot = Find(Index);
  if (slot == nullptr) return {};
  if (Trim(Paramter).empty()) return slot->Fields().RequestQuery;
  slot->QueryParser.QueryString(slot->Fields().RequestQuery);
  return slot->QueryParser.Item(Paramter, Item, "&");
}

std::string HostAnswers::CGIValue(std::int32_t Index, const std::string& Variable, const std::string& Delimiter) {
  Slot* slot = Find(Index);
  if (slot == nullptr) return {};
  const auto record = RecordOf(state_, *slot, Index);
  RequestInfo info = RequestInfoOf(state_, *slot, Index, MappedFileOf(state_, *slot));
  if (slot->Phase() == RequestPhase::kAnswering) info.RemoteHost = record->RemoteHost();  // a program may wait with it
  record->SetRequestInfo(std::move(info));
  return record->ServerVariables(Variable, Delimiter);
}

std::string HostAnswers::HTTPHeader(std::int32_t Index, const std::string& HeaderField) {
  const Slot& slot = Require(Index);
  return state_.slots->TheManner().HeaderField(slot, Trim(HeaderField));  // a start may be about to choose another
}

std::string HostAnswers::RequestBody(std::int32_t Index) {
  Slot* slot = Find(Index);
  return slot != nullptr && !slot->Fields().BodyPending ? slot->Fields().RequestBody : std::string();
}

std::uint64_t HostAnswers::RequestNumber(std::int32_t Index) {
  Slot* slot = Find(Index);
  const bool isOffered = slot != nullptr && slot->Phase() == RequestPhase::kOfferedToHost;
  return isOffered ? state_.sckWS.Generation(Index) : 0;
}

std::shared_ptr<const std::string> HostAnswers::RaiseCallFunction(std::int32_t Index, const std::string& FunctionName,
                                                                  const std::string& Params) {
  const auto slots = state_.slots;
  Slot* slot = slots ? slots->At(Index) : nullptr;
  if (slot == nullptr || slot->Phase() != RequestPhase::kAnswering) return {};
  slot->FunctionAnswered = false;
  if (Trim(FunctionName).empty()) return {};
  slot->Fields().RequestQuery += Params;  // kept: no separator in between
  if (!state_.reporter.RaiseCallFunction(Index, FunctionName)) slot->FunctionAnswered = false;
  return slot->FunctionResult;  // kept: an earlier answer when the host gave none to this one
}

bool HostAnswers::FunctionWasAnswered(std::int32_t Index) const {
  Slot* slot = state_.slots ? state_.slots->IfUsed(Index) : nullptr;
  return slot != nullptr && slot->FunctionAnswered;
}

}  // namespace TesselServer
