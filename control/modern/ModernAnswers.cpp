#include "control/modern/ModernAnswers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include "control/answer/RecordSetup.h"
#include "control/answer/SlotTarget.h"
#include "control/answer/Trapping.h"
#include "control/modern/ModernListing.h"
#include "control/modern/ModernTarget.h"
#include "http/cls_ErrorFiles.h"
#include "http/modern/BasicCredentials.h"
#include "http/modern/ByteClasses.h"
#include "http/modern/CombinedLog.h"
#include "http/modern/ContentTypeTable.h"
#include "http/modern/EntityTag.h"
#include "http/modern/FieldTexts.h"
#include "http/modern/FileChoice.h"
#include "http/modern/HostFields.h"
#include "http/modern/LinkText.h"
#include "http/modern/StatusText.h"
#include "platform/world/AsciiCase.h"
#include "support/PathText.h"
#include "support/Text.h"
#include "support/Wipe.h"

namespace TesselServer {

namespace {

constexpr std::string_view kHtml = "text/html";
constexpr std::string_view kUnknownType = "application/octet-stream";
constexpr std::string_view kOwnPagesPolicy = "default-src 'none'; style-src 'unsafe-inline'";
constexpr std::string_view kNoCache = "no-cache";

constexpr std::string_view kReadMethods = "GET, HEAD, OPTIONS";
constexpr std::string_view kPageMethods = "GET, HEAD, POST, OPTIONS";

constexpr std::string_view kMethods[] = {"GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS"};

// Whether the method is one of the `allowed`, with commas between.
bool IsAllowed(std::string_view method, std::string_view allowed) {
  for (std::string_view rest = allowed; !rest.empty();) {
    if (Modern::NextElement(rest) == method) return true;
  }
  return false;
}

const Modern::Request& RequestOf(const Slot& slot) { return InputOf(slot).TheRequest(); }

int NumberOf(std::string_view status) {
  int number = 500;
  std::from_chars(status.data(), status.data() + status.size(), number);
  return number;
}

// The status of a request that is refused whatever it names, 0 for none.
int EarlyRefusal(const Modern::Request& request) {
  // names of methods are case-sensitive, RFC 9110 9.1
  const std::string_view method = request.Method();
  if (method == "TRACE" || method == "CONNECT") return 405;  // no resource has them
  if (std::find(std::begin(kMethods), std::end(kMethods), method) == std::end(kMethods)) return 501;
  return request.PathStatus();
}

// Whether nothing is there for any client, whatever lies on disk.
bool NamesNothing(const Modern::Request& request) { return request.HasHiddenSegment(); }

Modern::BasicCredentials CredentialsOf(const Modern::Request& request) {
  std::string joined;
  return Modern::ReadBasicCredentials(request.Field("Authorization", joined));
}

// What follows the last "." of a file's name, "" for a name without one.
std::string_view NamedExtension(std::string_view name) {
  const std::string_view last = LastComponent(name);
  const std::size_t dot = last.rfind('.');
  return dot == std::string_view::npos ? std::string_view() : last.substr(dot + 1);
}

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

// ---- The target.

void ModernAnswers::Begin(std::int32_t Index, Slot& slot) {
  const Modern::Request& request = RequestOf(slot);
  if (const int status = EarlyRefusal(request)) {
    if (status == 405) InputOf(slot).Refused().allow = kReadMethods;
    return SendWebPage(Index, std::to_string(status), true);
  }
  bool isFound = request.IsAsterisk() || NamesNothing(request);
  try {
    isFound = isFound || FindModernTargetAtOnce(state_, slot, request.Path());
  } catch (const std::exception&) {
    isFound = true;  // SendWebPage looks again, and answers for what it meets
  }
  if (isFound) {
    Proceed(Index, slot);
  } else {
    Start(Index, slot, FindAndProceed(Index, slot));
  }
}

Task<void> ModernAnswers::FindAndProceed(std::int32_t Index, Slot& slot) {
  const auto slots = state_.slots;
  slot.Enter(RequestPhase::kAnswering);
  try {
    auto search = FindModernTarget(state_, slot, std::string(RequestOf(slot).Path()));
    co_await search;
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  const std::uint64_t generation = state_.sckWS.Generation(Index);
  if (state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { Proceed(Index, slot); })) co_return;
  if (state_.sckWS.Generation(Index) != generation || slot.Phase() != RequestPhase::kAnswering) co_return;
  state_.reporter.Trap(ErrorPrefix::kDataArrival, [&] { sending_.CloseConnection(Index); });
}

void ModernAnswers::Proceed(std::int32_t Index, Slot& slot) {
  if (IsForHost(slot)) return OfferToHost(Index, slot);
  slot.NotTrapped = true;
  SendWebPage(Index, "", false);
}

bool ModernAnswers::IsForHost(const Slot& slot) const {
  if (!state_.settings.TrapFileEnable || !state_.reporter.FileRequestIsHeard()) return false;
  return !RequestOf(slot).IsAsterisk() && IsTrapped(slot, state_.settings);
}

void ModernAnswers::OfferToHost(std::int32_t Index, Slot& slot) {
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

// ---- The body of the request.

bool ModernAnswers::BodyIsRead(Slot& slot) const {
  const Modern::Request& request = RequestOf(slot);
  if (EarlyRefusal(request) != 0) return false;
  bool isRead = true;
  try {
    const bool isKnown = FindModernTargetAtOnce(state_, slot, request.Path());
    if (isKnown) isRead = IsForHost(slot) || IsProcessed(slot.Target);
  } catch (const std::exception&) {
    // SendWebPage looks again, and answers for what it meets
  }
  slot.LetGoOfTarget();  // the body may take its time
  slot.TargetIsKnown = false;
  return isRead;
}

int ModernAnswers::RefusalAtOnce(Slot& slot) const {
  const Modern::Request& request = RequestOf(slot);
  if (const int status = EarlyRefusal(request)) return status;
  int status = 0;
  try {
    const bool isKnown = FindModernTargetAtOnce(state_, slot, request.Path());
    if (isKnown && !IsForHost(slot)) status = RefusalOfTarget(slot);
    if (status == 405) InputOf(slot).Refused().allow = AllowedFor(slot.Target);
  } catch (const std::exception&) {
    // the answer says so when the body is there
  }
  slot.LetGoOfTarget();
  slot.TargetIsKnown = false;
  return status;
}

// Of a place that may be guarded nothing is said before it is known whether the client may have it.
int ModernAnswers::RefusalOfTarget(const Slot& slot) const {
  const Modern::Request& request = RequestOf(slot);
  if (admission_.MayGuard()) return admission_.IsRefusedAtOnce(PlaceOf(slot), CredentialsOf(request)) ? 401 : 0;
  if (slot.Target.kind == EntryKind::kNone || NamesNothing(request)) return 404;
  if (!IsAllowed(request.Method(), AllowedFor(slot.Target))) return 405;
  return slot.Target.readable ? 0 : 403;
}

// ---- What the answer is.

Answering::Step ModernAnswers::ForcedStep(Call& call, std::string_view statusCode) {
  const int status = NumberOf(statusCode);
  if (status == 401) return Need::kAdmission;  // for the realm
  return ErrorStep(call, status);
}

Answering::Step ModernAnswers::StepAfterFailure(Call& call) {
  InputOf(call.slot).keepsOpen = false;
  return ErrorStep(call, 500);
}

Answering::Step ModernAnswers::NextStep(Call& call) {
  if (!call.slot.NotTrapped) return HostAnswer(call);
  const Modern::Request& request = RequestOf(call.slot);
  call.slot.AuthenticatedUser.clear();  // what the host has let pass was not checked here
  if (request.IsAsterisk()) return Options(call, kReadMethods);
  // a request that the host handed back has no target any more
  const bool isKnown = call.slot.TargetIsKnown || NamesNothing(request);
  if (!isKnown && !FindModernTargetAtOnce(state_, call.slot, request.Path())) return Need::kTarget;
  return GuardedStep(call);
}

// What is there, and whether anything is, is for those alone who may have it.
Answering::Step ModernAnswers::GuardedStep(Call& call) {
  if (!call.admission && admission_.MayGuard()) return Need::kAdmission;
  return TargetStep(call);
}

Answering::Step ModernAnswers::TargetStep(Call& call) {
  const FoundEntry& target = call.slot.Target;
  switch (target.kind) {
    case EntryKind::kNone:
      return ErrorStep(call, 404);
    case EntryKind::kDirectory:
      return DirectoryStep(call);
    case EntryKind::kFile:
      return FileStep(call);
  }
  return ErrorStep(call, 404);
}

// A page takes POST where its functions read the body.
std::string_view ModernAnswers::AllowedFor(const FoundEntry& target) const {
  return state_.settings.HTMLFunctionsEnable && IsProcessed(target) ? kPageMethods : kReadMethods;
}

Answering::Step ModernAnswers::NotAllowed(Call& call, std::string_view allow) const {
  InputOf(call.slot).Refused().allow = allow;
  return ErrorStep(call, 405);
}

// RFC 9110 9.3.7.
Answering::Step ModernAnswers::Options(Call& call, std::string_view allow) const {
  Modern::ResponseHead head = HeadFor(call, 204);
  head.allow = allow;
  return Made(call, head, {});
}

// The same place with a slash, where relative links of its page work.
Answering::Step ModernAnswers::Redirect(Call& call) const {
  const Modern::Request& request = RequestOf(call.slot);
  const std::string path = std::string(request.Path()) + "/";
  InputOf(call.slot).Refused().location = Modern::LocationText(path, request.Query(), request.HasQuery());
  return ErrorStep(call, 301);
}

// RFC 9110 15.5.2.
Answering::Step ModernAnswers::Unauthorized(Call& call, std::string_view realm) const {
  InputOf(call.slot).Refused().authenticate = Modern::BasicChallenge(realm);
  return ErrorStep(call, 401);
}

Answering::Step ModernAnswers::DirectoryStep(Call& call) {
  const Modern::Request& request = RequestOf(call.slot);
  if (request.Method() == "OPTIONS") return Options(call, kReadMethods);
  if (!IsAllowed(request.Method(), kReadMethods)) return NotAllowed(call, kReadMethods);
  if (!request.Path().ends_with('/')) return Redirect(call);
  if (!state_.settings.DirectoryBrowseEnable || !call.slot.Target.readable) return ErrorStep(call, 403);
  return Need::kListing;
}

Answering::Step ModernAnswers::FileStep(Call& call) {
  FoundEntry& target = call.slot.Target;
  const std::string_view method = RequestOf(call.slot).Method();
  const std::string_view allow = AllowedFor(target);
  if (method == "OPTIONS") return Options(call, allow);
  if (!IsAllowed(method, allow)) return NotAllowed(call, allow);
  if (!target.readable) return ErrorStep(call, 403);
  if (IsProgram(target)) return ErrorStep(call, state_.settings.CGIEnable ? 501 : 403);
  call.slot.TargetRoot->Remember(target);
  if (IsProcessed(target)) return Need::kPage;
  return PlainFile(call);
}

// A file as it is on disk, a part of it, or the news that the client has it already.
Answering::Step ModernAnswers::PlainFile(Call& call) {
  const Modern::Request& request = RequestOf(call.slot);
  OpenFile& file = call.slot.Target.file;
  const std::int64_t size = file.Size();
  const std::int64_t modified = file.ModifiedNanoseconds();
  const Modern::FileTag tag({file.Identity().device, file.Identity().inode, size, modified});
  const Modern::Validators validators{tag.Text(), modified / kNanosecondsPerSecond};
  Modern::ResponseHead head = HeadFor(call, 200);
  std::string kept;
  const std::string_view type = TypeOf(call.slot.Target, kept);
  head.contentType = type.empty() ? kUnknownType : type;
  head.contentEncoding = Modern::ContentEncodingOf(NamedExtension(call.slot.Target.name));
  head.lastModified = validators.lastModified;
  head.entityTag = validators.tag;
  head.acceptsRanges = true;
  const Modern::FileChoice choice = Modern::ChooseOfFile(request, validators, size, head.utcSeconds);
  std::string contentRange;
  switch (choice.kind) {
    case Modern::FileChoice::Kind::kNotModified:
      head.status = 304;
      return Made(call, head, {});
    case Modern::FileChoice::Kind::kFailed:
      return ErrorStep(call, 412);
    case Modern::FileChoice::Kind::kUnsatisfiable:
      InputOf(call.slot).Refused().contentRange = Modern::UnsatisfiedRangeText(size);
      return ErrorStep(call, 416);
    case Modern::FileChoice::Kind::kPart:
      contentRange = Modern::ContentRangeText(choice.range, size);
      head.status = 206;
      head.contentRange = contentRange;
      return Made(call, head, {{}, FileBody{std::move(file), choice.range.Length(), choice.range.first}});
    case Modern::FileChoice::Kind::kWhole:
      break;
  }
  return Made(call, head, {{}, FileBody{std::move(file), size}});
}

Answering::Step ModernAnswers::HostAnswer(Call& call) const {
  Slot& slot = call.slot;
  const Modern::HostFields fields(slot.TrapHeaderField);
  for (const std::string& line : fields.Refused()) {
    state_.reporter.RaiseLogEvent("A header line of the host cannot be sent and is left out: " + line);
  }
  Modern::ResponseHead head = HeadFor(call, NumberOf(slot.TrapStatusCode));
  head.contentType = slot.TrapContentType;
  head.noSniff = false;
  head.hostFields = &fields;
  Decision decision = Made(call, head, {{}, std::exchange(slot.TrapData, {})});
  decision.isHostsData = true;
  return decision;
}

// ---- Errors.

// The page of the error with its true code, or with VerboseErrorsEnable off the header alone.
Answering::Step ModernAnswers::ErrorStep(Call& call, int status) const {
  if (!state_.settings.VerboseErrorsEnable) return ErrorPageWith(call, status, {});
  std::string code = std::to_string(status);
  if (state_.settings.ErrorFilesEnable) return ErrorPageFor{std::move(code), true};
  return ErrorPageWith(call, status, {{}, cls_ErrorFiles().ErrorPageHtml(code)});
}

Answering::Decision ModernAnswers::ErrorPageWith(const Call& call, int status, Answer page) const {
  Modern::ResponseHead head = HeadFor(call, status);
  if (page.BodySize() != 0) head.contentType = kHtml;
  head.contentSecurityPolicy = kOwnPagesPolicy;
  if (const ModernInput::Refusal* refusal = InputOf(call.slot).IfRefused()) {
    head.allow = refusal->allow;
    head.location = refusal->location;
    head.authenticate = refusal->authenticate;
    head.contentRange = refusal->contentRange;
  }
  return Made(call, head, std::move(page));
}

// ---- How it is written.

Modern::ResponseHead ModernAnswers::HeadFor(const Call& call, int status) const {
  const ModernInput& input = InputOf(call.slot);
  Modern::ResponseHead head;
  head.status = status;
  head.utcSeconds = state_.world.UtcSeconds();
  head.server = state_.settings.ServerSoftware;
  head.charset = state_.settings.Charset;
  head.noSniff = true;
  head.framing = Modern::ResponseFraming::kLength;
  if (!input.keepsOpen) head.connection = Modern::ConnectionNotice::kClose;
  if (input.keepsOpen && input.TheRequest().MinorVersion() == 0) head.connection = Modern::ConnectionNotice::kKeepAlive;
  return head;
}

// The answer to HEAD has the header of the one to GET.
Answering::Decision ModernAnswers::Made(const Call& call, Modern::ResponseHead head, Answer answer) const {
  head.contentLength = answer.BodySize();
  Modern::AppendResponseHead(answer.head, head);
  if (RequestOf(call.slot).Method() == "HEAD" || Modern::NeverHasBody(head.status)) answer.body = std::string();
  return {std::move(answer), std::to_string(head.status), true};
}

// The host's file wins over the table, and what neither knows may be in the registry, where hosts put their own.
std::string_view ModernAnswers::TypeOf(const FoundEntry& target, std::string& kept) const {
  static const std::vector<std::string> kNone;
  const std::string_view extension = NamedExtension(target.name);
  const LineTable& lines = state_.settings.ContentTypeLines;
  const std::string_view type = Modern::TypeOf(lines ? *lines : kNone, extension);
  if (!type.empty() || extension.empty()) return type;
  kept = state_.requestTemplate.ContentTypeOf(target.name);
  return Trim(kept);
}

bool ModernAnswers::IsProcessed(const FoundEntry& target) const {
  const Settings& settings = state_.settings;
  if (!settings.SSIEnable && !settings.CGIEnable && !settings.HTMLFunctionsEnable) return false;
  std::string kept;
  return target.kind == EntryKind::kFile && target.file.Size() <= cls_HTTP::kMaxPageBytes &&
         TypeOf(target, kept) == kHtml;
}

// By its extension, in any case.
bool ModernAnswers::IsProgram(const FoundEntry& target) const {
  const std::string_view extension = NamedExtension(target.name);
  if (target.kind != EntryKind::kFile || extension.empty()) return false;
  for (std::string_view types = state_.settings.CGIFileTypes; !types.empty();) {
    if (EqualNoCase(Modern::NextElement(types), extension)) return true;
  }
  return false;
}

// ---- What takes longer.

Task<void> ModernAnswers::WorkFor(Call& call, Step& step) {
  if (std::holds_alternative<Decision>(step)) return {};
  if (std::holds_alternative<ErrorPageFor>(step)) return ErrorPage(call, step);
  switch (std::get<Need>(step)) {
    case Need::kTarget:
      return LookForTarget(call, step);
    case Need::kPage:
      return PageAnswer(call, step);
    case Need::kAdmission:
      return AskAdmission(call, step);
    case Need::kListing:
      return ListingAnswer(call, step);
  }
  return {};
}

Task<void> ModernAnswers::LookForTarget(Call& call, Step& step) {
  auto search = FindModernTarget(state_, call.slot, std::string(RequestOf(call.slot).Path()));
  co_await search;
  step = GuardedStep(call);
}

GuardedPlace ModernAnswers::PlaceOf(const Slot& slot) const {
  const auto& site = state_.Root();
  return {slot.Target, std::string(RequestOf(slot).Path()), slot.TargetRoot ? slot.TargetRoot : site, site};
}

// An answer that had to be a refusal stays one, even where the password file has changed since.
Task<void> ModernAnswers::AskAdmission(Call& call, Step& step) {
  Slot& slot = call.slot;
  if (call.isForced && !slot.TargetIsKnown) {
    auto search = FindModernTarget(state_, slot, std::string(RequestOf(slot).Path()));
    co_await search;
  }
  Modern::BasicCredentials given = CredentialsOf(RequestOf(slot));
  const WipeAtEnd userGoes(given.user), passwordGoes(given.password);
  const GuardedPlace place = PlaceOf(slot);
  auto asking = admission_.To(place, given);
  const ModernAdmission::Verdict verdict = co_await asking;
  if (IsOver(call)) {  // closed by the event of a report: the slot is another client's
    step = Decision();
    co_return;
  }
  using Outcome = ModernAdmission::Outcome;
  const bool isAdmitted = verdict.outcome == Outcome::kAdmitted;
  const bool isGranted = isAdmitted || verdict.outcome == Outcome::kOpen;
  call.admission = std::make_shared<const Admission>(Admission{isGranted, verdict.realm, isAdmitted});
  InputOf(slot).Authenticated(isAdmitted);
  if (isAdmitted) slot.AuthenticatedUser = given.user;
  if (verdict.outcome == Outcome::kRefused) {
    step = Unauthorized(call, verdict.realm);
  } else {
    step = isGranted && !call.isForced ? TargetStep(call) : ErrorStep(call, 503);
  }
}

AnswerCalls::FileGuard ModernAnswers::GuardOf(Call& call) {
  if (!admission_.MayGuard()) return {};
  return [this, &call](const FoundEntry& found) { return MayInclude(call, found); };
}

// By the file's own place, and what the client shows for the page.
Task<bool> ModernAnswers::MayInclude(Call& call, const FoundEntry& found) {
  Modern::BasicCredentials given = CredentialsOf(RequestOf(call.slot));
  const WipeAtEnd userGoes(given.user), passwordGoes(given.password);
  const auto site = state_.Root();
  const GuardedPlace place{found, "/" + found.name, site, site};
  auto asking = admission_.To(place, given);
  const ModernAdmission::Verdict verdict = co_await asking;
  using Outcome = ModernAdmission::Outcome;
  co_return verdict.outcome == Outcome::kOpen || verdict.outcome == Outcome::kAdmitted;
}

Task<void> ModernAnswers::ErrorPage(Call& call, Step& step) {
  const int status = NumberOf(std::get<ErrorPageFor>(step).status);
  auto making = call.record->ErrorPage(std::to_string(status), true);
  Answer answer = co_await making;
  answer.head.clear();  // of the other manner
  step = ErrorPageWith(call, status, std::move(answer));
}

Task<void> ModernAnswers::PageAnswer(Call& call, Step& step) {
  FoundEntry& target = call.slot.Target;
  call.record->EndRequest();  // what the host has asked for before: some values are different now
  FoundEntry found{target.kind, target.name, target.readable, std::move(target.file)};  // the name is still asked for
  Answer answer;
  auto making = call.record->MakePageOf(std::move(found), answer);
  if (making) co_await making;
  Modern::ResponseHead head = HeadFor(call, 200);
  head.contentType = kHtml;
  head.cacheControl = kNoCache;
  step = Made(call, head, std::move(answer));
}

Task<void> ModernAnswers::ListingAnswer(Call& call, Step& step) {
  const auto order = Modern::ListingOrder::Of(RequestOf(call.slot).Query());
  const auto page = ListingPageFor(RequestOf(call.slot), state_.settings.ServerName, order);
  auto making = ModernListingOf(state_, call.slot, *page, order);
  std::optional<std::string> text = co_await making;
  if (!text) {
    step = TooLarge();
    co_return;
  }
  Modern::ResponseHead head = HeadFor(call, 200);
  head.contentType = page->Type();
  head.vary = "Accept";
  head.contentSecurityPolicy = kOwnPagesPolicy;
  step = Made(call, head, {{}, std::move(*text)});
}

// ---- The end.

void ModernAnswers::Deliver(Call& call, Decision& decision) {
  if (IsOver(call)) return;
  ModernInput& input = InputOf(call.slot);
  if (!TakesPageMemory(call, decision)) {
    decision = ErrorPageWith(call, 503, {});
  }
  const std::int64_t bytes = decision.answer.BodySize();
  const std::string address = state_.reporter.HTTPLogIsHeard() ? state_.sckWS.RemoteHostIP(call.index) : std::string();
  const auto after = input.keepsOpen ? SocketArray::AfterSend::kStaysOpen : SocketArray::AfterSend::kCloses;
  call.handedOver = sending_.SendData(call.index, std::move(decision.answer), after);
  state_.statistics.BytesSent += static_cast<double>(bytes);
  if (!IsOver(call)) Log(call, address, NumberOf(decision.status), bytes);
}

void ModernAnswers::Log(const Call& call, std::string_view address, int status, std::int64_t bytes) {
  if (!state_.reporter.HTTPLogIsHeard()) return;
  const Modern::Request& request = RequestOf(call.slot);
  std::array<std::string, 2> joined;
  Modern::CombinedLogEntry entry;
  entry.address = address;
  entry.user = call.slot.AuthenticatedUser;
  entry.stamp = Stamp();
  entry.requestLine = request.Line();
  entry.status = status;
  entry.bodyBytes = bytes;
  entry.referer = request.Field("Referer", joined[0]);
  entry.userAgent = request.Field("User-Agent", joined[1]);
  std::string line;
  Modern::AppendCombinedLogLine(line, entry);
  state_.reporter.RaiseHTTPLog(std::move(line));
}

// Formatted again only when the second or the zone has changed.
const std::string& ModernAnswers::Stamp() {
  const std::int64_t now = state_.world.UtcSeconds();
  const std::int32_t bias = state_.world.BiasMinutes(now);
  if (stamp_.empty() || now != stampSecond_ || bias != stampBias_) {
    stampSecond_ = now;
    stampBias_ = bias;
    stamp_ = Modern::CombinedLogStamp(now, bias);
  }
  return stamp_;
}

}  // namespace TesselServer
