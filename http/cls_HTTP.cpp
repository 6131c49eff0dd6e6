#include "http/cls_HTTP.h"

#include <algorithm>
#include <exception>

#include "http/CGIOutput.h"
#include "http/ContentTypeMemory.h"
#include "http/ContentTypes.h"
#include "http/ErrorPages.h"
#include "http/ExecDirectives.h"
#include "http/HTMLFunctions.h"
#include "http/LongPages.h"
#include "http/ResponseHeader.h"
#include "http/RunCGI.h"
#include "http/ServerVariables.h"
#include "http/TagSearch.h"
#include "http/cls_CGI.h"
#include "http/cls_ErrorFiles.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrorText.h"
#include "support/PathText.h"
#include "support/Text.h"
#include "support/cls_WinUtil.h"

namespace TesselServer {
namespace {

constexpr std::int32_t kMaxCGITimeoutSeconds = 2'000'000;  // 23 days, as good as no limit; fits in milliseconds
constexpr std::int64_t kFirstNTPlatform = 2;
constexpr std::string_view kHtmlType = "text/html";
constexpr std::string_view kFallbackType = "application/octet-stream";

constexpr std::string_view kEncodedBlank = "%20";

constexpr cls_HTTP::AnswerHead kNoHead{"200", "", false};

// A requested name as the file system knows it. "%20" is the only encoding undone here.
std::string LocalName(std::string_view file) {
  std::string name =
      file.find('%') == std::string_view::npos ? std::string(file) : ReplaceAll(file, kEncodedBlank, " ");
  std::replace(name.begin(), name.end(), '/', '\\');
  return name;
}

// What a new record has, shared by all of them until they are set.
const std::shared_ptr<RecordSettings>& NewSettings() {
  static const auto settings = std::make_shared<RecordSettings>();
  return settings;
}

// A text that may have to be processed: whether it stays as it is.
bool IsShortAndPlain(const std::string& text, const Turns* turns) {
  return !IsLong(text.size(), turns) && !HoldsTags(text);
}

// The remembered contents of a file, null when there are none or they are longer than `limit` bytes.
Page::SharedText KnownContents(const OpenFile& file, std::int64_t limit) {
  auto known = file.Contents();
  return known && static_cast<std::int64_t>(known->size()) <= limit ? known : nullptr;
}

}  // namespace

cls_HTTP::cls_HTTP(World& world) : world_(world), settings_(NewSettings()) {}

bool cls_HTTP::IsWinNT() const { return LeadingNumber(cls_WinUtil().PlatformIdText()).value_or(0) >= kFirstNTPlatform; }

void cls_HTTP::TakeAfter(const cls_HTTP& outer) {
  ShareSettings(outer);
  connectionIndex_ = outer.connectionIndex_;
  parentControl_ = outer.parentControl_;
  runner_ = outer.runner_;
  turns_ = outer.turns_;
  names_ = outer.names_;
}

RequestInfo& cls_HTTP::Info() const {
  if (!request_) {
    request_ = std::make_unique<RequestInfo>(NewInfo());
    request_->RemoteHost = remoteHost_;
  }
  return *request_;
}

void cls_HTTP::CGITimeout(std::int32_t seconds) {
  if (seconds < 0 || seconds > kMaxCGITimeoutSeconds) seconds = kMaxCGITimeoutSeconds;
  Set(&RecordSettings::cgiTimeoutMilliseconds, seconds * 1000);
}

void cls_HTTP::EndRequest() {
  request_.reset();
  Release(remoteHost_);
  Release(documentName_);
}

std::string cls_HTTP::ServerVariable(std::string_view Name) {
  return ServerVariableValue(Name, {*settings_, Info(), world_, names_});
}

Task<void> cls_HTTP::FindRemoteHost() {
  if (!AwaitsRemoteHost()) co_return;
  auto asking = names_->NameOf(request_ ? request_->RemoteAddr : NewInfo().RemoteAddr);
  std::string name = co_await asking;
  (request_ ? request_->RemoteHost : remoteHost_) = std::move(name);
}

std::string cls_HTTP::ServerVariables(std::string_view Name, std::string_view Separator) {
  if (!Trim(Name).empty()) return ServerVariable(Name);
  std::string all;
  for (const std::string_view name : ServerVariableNames()) {
    all.append(name).append("=").append(ServerVariable(name)).append(Separator);
  }
  return all;
}

std::string cls_HTTP::SystemErrorText(std::int32_t Code) const { return TesselServer::SystemErrorText(Code); }

std::string cls_HTTP::BuildHeader(std::string_view StatusCode, std::int64_t ContentLength, std::string_view ContentType,
                                  bool EndHeader, std::string_view ExtraHeaders) const {
  HeaderFields fields;
  fields.statusCode = StatusCode;
  fields.software = settings_->serverSoftware;
  fields.utcSeconds = world_.UtcSeconds();
  fields.contentType = ContentType;
  fields.extraHeaders = ExtraHeaders;
  fields.contentLength = ContentLength;
  fields.endHeader = EndHeader;
  return HeaderText(fields);
}

std::string_view cls_HTTP::StatusText(std::string_view StatusCode) { return ReasonPhrase(StatusCode); }

std::string cls_HTTP::StatusCode(std::string_view ReasonText) { return std::string(ReasonText); }

Task<Answer> cls_HTTP::ErrorPage(std::string StatusCode, bool UseErrorFiles) {
  if (!UseErrorFiles) co_return BuiltInErrorPage(StatusCode);
  auto page = ErrorFilePage(std::move(StatusCode));
  co_return co_await page;
}

Answer cls_HTTP::BuiltInErrorPage(std::string_view StatusCode) const {
  std::string page = cls_ErrorFiles().ErrorPageHtml(StatusCode);
  Answer answer;
  answer.head = BuildHeader("200", static_cast<std::int64_t>(page.size()) - 1, kHtmlType, true, "");
  answer.body = std::move(page);
  return answer;
}

Task<Answer> cls_HTTP::ErrorFilePage(std::string code) const {
  auto opening = OpenErrorFile(settings_->applicationFolder, std::move(code), turns_);
  ErrorFile error = co_await opening;
  FoundEntry found;
  found.kind = error.file.Kind();
  found.readable = error.file.IsOpen();
  found.name = "errors/" + std::string(LastComponent(error.path));
  found.file = std::move(error.file);
  cls_HTTP record(world_);
  record.TakeAfter(*this);
  record.VirtualPath(settings_->applicationFolder + "\\html");
  record.CGIEnable(false);
  record.CGIWarningEnable(false);
  auto making = record.ProcessFile(std::move(found), error.path, "200", true, "", {}, "");
  try {
    Answer answer = co_await making;
    co_return answer;
  } catch (const Error&) {
    // as if it were not there: an error in an error page asks for no other one
  }
  Answer none;
  none.head = BuildHeader("404", 0, kHtmlType, true, "");
  co_return none;
}

std::string cls_HTTP::ServerTooBusyPage() const { return cls_ErrorFiles().ServerTooBusyHtml(); }

std::string cls_HTTP::ContentTypeOf(std::string_view File) const {
  const std::string_view extension = ExtensionOf(File);
  if (!settings_->typeMemory) return FoundContentType(extension);
  ContentTypeMemory& memory = *settings_->typeMemory;
  memory.ComesFrom(settings_->contentTypeSource, settings_->contentTypeLines, world_.Registry().Revision());
  if (const auto known = memory.Find(extension)) return std::string(*known);
  std::string type = FoundContentType(extension);
  memory.Keep(extension, type);
  return type;
}

std::string cls_HTTP::FoundContentType(std::string_view extension) const {
  switch (settings_->contentTypeSource) {
    case e_ContentTypeSource::Registry:
      return RegistryContentType(world_.Registry(), extension);
    case e_ContentTypeSource::File:
      if (!settings_->contentTypeLines) return {};
      return std::string(FindContentType(*settings_->contentTypeLines, extension));
    case e_ContentTypeSource::Internal:
      return std::string(FindContentType(BuiltInContentTypes(), extension));
  }
  return {};
}

// The request values go into no frame: they are many.
Task<Answer> cls_HTTP::ProcessFile(FoundEntry found, const std::string& File, std::string StatusCode, bool WantHeader,
                                   std::string ExtraHeaders, RequestInfo info, const std::string&) {
  SetRequestInfo(std::move(info));
  return WholeAnswer(std::move(found), File, std::move(StatusCode), WantHeader, std::move(ExtraHeaders));
}

Task<Answer> cls_HTTP::WholeAnswer(FoundEntry found, std::string file, std::string statusCode, bool wantHeader,
                                   std::string extraHeaders) {
  Answer answer;
  const AnswerHead head{statusCode, extraHeaders, wantHeader};
  auto making = MakeAnswer(std::move(found), file, head, answer);
  if (making) co_await making;
  co_return answer;
}

Task<void> cls_HTTP::MakeAnswer(FoundEntry found, std::string_view File, const AnswerHead& head, Answer& answer) {
  std::string path = LocalName(File);
  if (!found.file.IsOpen()) return OpenedFile(std::move(found), std::move(path), head, answer);
  return FileAnswer(std::move(found), path, head, answer);
}

Task<void> cls_HTTP::MakePageOf(FoundEntry found, Answer& answer) {
  documentName_ = found.name;
  const FileIdentity identity = found.file.Identity();
  if (auto page = KnownContents(found.file, kMaxPageBytes)) return MakePage(std::move(page), identity, kNoHead, answer);
  return ReadPage(std::move(found.file), kNoHead, answer);
}

Task<void> cls_HTTP::OpenedFile(FoundEntry found, std::string path, const AnswerHead& head, Answer& answer) {
  auto opening = OpenPathInTurns(path, turns_);
  found.file = co_await opening;
  auto making = FileAnswer(std::move(found), path, head, answer);
  if (making) co_await making;
}

Task<void> cls_HTTP::FileAnswer(FoundEntry found, std::string_view path, const AnswerHead& head, Answer& answer) {
  documentName_ = found.name;
  if (IsProgramName(path)) return ProgramAnswer(found, head, answer);
  if (found.file.Kind() != EntryKind::kFile) {
    if (head.isWanted) answer.head = BuildHeader("404", 0, kHtmlType, true, "");
    return {};
  }
  const std::string type = ContentTypeOf(path);
  const std::int64_t size = found.file.Size();
  if (type == kHtmlType && size <= kMaxPageBytes) {
    auto page = KnownContents(found.file, kMaxPageBytes);
    if (page) return MakePage(std::move(page), found.file.Identity(), head, answer);
    return ReadPage(std::move(found.file), head, answer);
  }
  answer.body = FileBody{std::move(found.file), size};
  if (head.isWanted) answer.head = HeadOf(answer, type, head);
  return {};
}

std::string cls_HTTP::HeadOf(const Answer& answer, std::string_view type, const AnswerHead& head) const {
  return BuildHeader(head.statusCode, answer.BodySize(), Trim(type).empty() ? kFallbackType : type, true,
                     head.extraHeaders);
}

// The content type of a file that is IsPlain; nothing for any other.
std::optional<std::string> cls_HTTP::PlainType(const OpenFile& file, std::string_view name) const {
  if (file.Kind() != EntryKind::kFile || IsProgramName(name)) return std::nullopt;
  if (name.find(kEncodedBlank) != std::string_view::npos) return std::nullopt;
  std::string type = ContentTypeOf(name);
  if (type == kHtmlType) return std::nullopt;
  return type;
}

std::optional<Answer> cls_HTTP::PlainFile(OpenFile& file, std::string_view name, std::string_view StatusCode) const {
  const auto type = PlainType(file, name);
  if (!type) return std::nullopt;
  Answer answer;
  const std::int64_t size = file.Size();
  answer.body = FileBody{std::move(file), size};
  answer.head = HeadOf(answer, *type, {StatusCode});
  return answer;
}

// ---- Pages.

bool cls_HTTP::PageMayTake(std::int64_t bytes) const {
  return ParentControl() == nullptr || ParentControl()->PageMayTake(bytes);
}

void cls_HTTP::TakePage(Page::SharedText text, const AnswerHead& head, Answer& answer) const {
  answer.body = std::move(text);
  if (head.isWanted) answer.head = HeadOf(answer, kHtmlType, head);
}

Task<void> cls_HTTP::ReadPage(OpenFile file, const AnswerHead& head, Answer& answer) {
  if (!PageMayTake(file.Size())) co_return;
  auto reading = ContentsInTurns(file, kMaxPageBytes, turns_);
  Page::SharedText text = co_await reading;
  // never as it is on disk: its tags are not for clients
  if (!text) throw Error(ErrorNumber::kFileAccess, "Path/File access error");
  const FileIdentity identity = std::exchange(file, {}).Identity();
  auto making = MakePage(std::move(text), identity, head, answer);
  if (making) co_await making;
}

// A page stays where it holds no tags.
Task<void> cls_HTTP::MakePage(Page::SharedText text, FileIdentity file, const AnswerHead& head, Answer& answer) {
  if (IsLong(text->size(), turns_)) return MakeLongPage(std::move(text), file, head, answer);
  if (HoldsTags(*text)) return ProcessPage(PageOf(std::move(text)), file, head, answer);
  TakePage(std::move(text), head, answer);
  return {};
}

Task<void> cls_HTTP::MakeLongPage(Page::SharedText text, FileIdentity file, const AnswerHead& head, Answer& answer) {
  auto looking = HoldsTagsInTurns(text, turns_);
  const bool holdsTags = co_await looking;
  if (!holdsTags) {
    TakePage(std::move(text), head, answer);
    co_return;
  }
  auto making = PageInTurns(std::move(text), turns_);
  Page page = co_await making;
  auto processing = ProcessPage(std::move(page), file, head, answer);
  if (processing) co_await processing;
}

// Most pages wait for nothing.
Task<void> cls_HTTP::ProcessPage(Page page, FileIdentity file, const AnswerHead& head, Answer& answer) {
  auto making = std::make_unique<PageMaking>(*this, std::move(page), file, outerTrail_, trail_);
  Task<void> wait = making->Go();
  if (wait || IsLong(making->ThePage().MaxSize(), turns_)) {
    return EndPage(std::move(making), std::move(wait), head, answer);
  }
  TakePage(making->ThePage().Result(), head, answer);
  return {};
}

Task<void> cls_HTTP::EndPage(std::unique_ptr<PageMaking> making, Task<void> wait, const AnswerHead& head,
                             Answer& answer) {
  Task<void> waiting = std::move(wait);  // destroyed before what it works with
  for (; waiting; waiting = making->Go()) {
    try {
      co_await waiting;
    } catch (const std::exception&) {
      making->Failed();
    }
  }
  if (!IsLong(making->ThePage().MaxSize(), turns_)) {
    TakePage(making->ThePage().Result(), head, answer);
    co_return;
  }
  auto joining = ResultInTurns(making->ThePage(), turns_);
  Page::SharedText text = co_await joining;
  TakePage(std::move(text), head, answer);
}

Task<void> cls_HTTP::ExecDirectives(Page& page) { return RunExecDirectives(*this, page); }

Task<void> cls_HTTP::HTMLFunctions(Page& page) { return ReplaceFunctionTags(*this, page); }

std::shared_ptr<const RootFolder> cls_HTTP::FolderAt(const std::string& path) const {
  if (settings_->root && settings_->root->Path() == path) return settings_->root;
  return std::make_shared<const RootFolder>(path);
}

// The folder and the secrets are held: the host may set others meanwhile.
Task<FoundEntry> cls_HTTP::FindFile(std::string folder, std::string name) const {
  const std::shared_ptr<const RootFolder> root = FolderAt(folder);
  const std::shared_ptr<const SecretFiles> secrets = settings_->secretFiles;
  auto search = root->FindInTurns(std::move(name), turns_);
  FoundEntry found = co_await search;
  if (!secrets) co_return found;
  auto check = secrets->ContainsInTurns(found, turns_);
  const bool isSecret = co_await check;
  if (isSecret) co_return FoundEntry();
  co_return found;
}

std::optional<FoundEntry> cls_HTTP::FindAtOnce(const std::string& folder, std::string_view name) const {
  auto found = FolderAt(folder)->FindAtOnce(name);
  if (!found || !settings_->secretFiles) return found;
  const auto isSecret = settings_->secretFiles->ContainsAtOnce(*found);
  if (!isSecret) return std::nullopt;
  if (*isSecret) return FoundEntry();
  return found;
}

// Whether what was found can be included; takes note of what is missing.
bool cls_HTTP::MayInclude(const FoundEntry& found) {
  if (found.kind == EntryKind::kNone) trail_->room->missing -= 1;
  return found.file.Kind() == EntryKind::kFile && !trail_->Holds(found.file.Identity()) &&
         found.file.Size() <= trail_->room->bytes;
}

cls_HTTP::Inclusion cls_HTTP::Include(std::string name) {
  Inclusion inclusion;
  if (trail_ == nullptr || trail_->depth == IncludeTrail::kMaxDepth) return inclusion;
  IncludeRoom& room = *trail_->room;
  if (room.names == 0 || room.missing == 0) return inclusion;
  room.names -= 1;
  inclusion.name = std::move(name);
  inclusion.found = FindAtOnce(settings_->virtualPath, inclusion.name);
  inclusion.isPending = !inclusion.found || MayInclude(*inclusion.found);
  if (!inclusion.found || !inclusion.isPending || IsProgramName(inclusion.found->name)) return inclusion;
  if (parentControl_ != nullptr && parentControl_->GuardsFiles()) return inclusion;
  if (settings_->root) settings_->root->Remember(*inclusion.found);
  Page::SharedText text = KnownContents(inclusion.found->file, room.bytes);
  if (!text || !IsShortAndPlain(*text, turns_)) return inclusion;
  inclusion.text = std::move(text);
  inclusion.isPending = false;
  return inclusion;
}

Task<void> cls_HTTP::FinishInclusion(Inclusion& inclusion) {
  bool isNew = !inclusion.found;
  if (isNew) {
    auto search = FindFile(settings_->virtualPath, inclusion.name);
    inclusion.found = co_await search;
    if (!MayInclude(*inclusion.found)) co_return;
  }
  if (parentControl_ != nullptr && parentControl_->GuardsFiles()) {
    auto asking = parentControl_->MayInclude(*inclusion.found);
    const bool isAdmitted = co_await asking;
    if (!isAdmitted) co_return;
    isNew = true;
  }
  if (isNew && settings_->root && !IsProgramName(inclusion.found->name)) settings_->root->Remember(*inclusion.found);
  const FoundEntry& found = *inclusion.found;
  Page::SharedText text;
  if (IsProgramName(found.name)) {
    Answer output;
    auto running = ProgramAnswer(found, kNoHead, output);
    if (running) co_await running;
    text = std::make_shared<const std::string>(std::get<std::string>(std::move(output.body)));
  } else {
    text = KnownContents(found.file, trail_->room->bytes);
    if (!text) {
      if (!PageMayTake(found.file.Size())) co_return;
      auto reading = ContentsInTurns(found.file, trail_->room->bytes, turns_);
      text = co_await reading;
    }
    if (text && !IsShortAndPlain(*text, turns_) && ContentTypeOf(LocalName(found.name)) == kHtmlType) {
      Answer page;
      auto processing = ProcessInside(found, std::move(text), page);
      co_await processing;
      text = std::get<Answer::SharedBytes>(std::move(page.body));
    }
  }
  if (text && static_cast<std::int64_t>(text->size()) <= trail_->room->bytes) inclusion.text = std::move(text);
}

// A page that takes in its own includes. What they take does not count further: what the page has become counts where
// it is put in.
Task<void> cls_HTTP::ProcessInside(const FoundEntry& found, Page::SharedText text, Answer& answer) {
  const RoomForPage restored(*trail_->room, found.file.Size());
  cls_HTTP record(world_);
  record.TakeAfter(*this);
  record.SetRequestInfo(Request());
  record.documentName_ = found.name;
  record.outerTrail_ = trail_;
  record.IncludeChild(true);
  auto making = record.MakePage(std::move(text), found.file.Identity(), kNoHead, answer);
  if (making) co_await making;
  if (names_ != nullptr) Info().RemoteHost = record.Request().RemoteHost;  // asked for once for the request
}

bool cls_HTTP::TakeIncludeRoom(std::size_t size) {
  const auto bytes = static_cast<std::int64_t>(size);
  if (trail_ == nullptr || bytes > trail_->room->bytes) return false;
  trail_->room->bytes -= bytes;
  return true;
}

// ---- Programs.

Task<std::string> cls_HTTP::RunCGI(const std::string& CommandFile, std::string Arguments) {
  return RunProgram(*this, {CommandFile, !CommandFile.empty()}, std::move(Arguments));
}

std::string cls_HTTP::ProgramPath(const FoundEntry& found) const {
  return found.file.Kind() == EntryKind::kFile ? found.file.CanonicalPath() : std::string();
}

// The file is open for no longer than this.
Task<void> cls_HTTP::ProgramAnswer(const FoundEntry& found, const AnswerHead& head, Answer& answer) {
  if (!settings_->cgiEnable) {
    if (head.isWanted) answer.head = cls_CGI().CGIWarningPage();
    return {};
  }
  return RunForAnswer(FoundProgram(*this, found, found.name), head, answer);
}

Task<void> cls_HTTP::RunForAnswer(ProgramFile program, const AnswerHead& head, Answer& answer) {
  if (AwaitsName(*this, program)) {
    auto name = FindRemoteHost();
    co_await name;
  }
  ProgramResult result;
  auto running = StartProgram(*this, program, "", result);
  if (running) co_await running;
  TakeResult(program.name, std::move(result), head, answer);
}

void cls_HTTP::TakeResult(std::string_view program, ProgramResult&& result, const AnswerHead& head, Answer& answer) {
  CGIOutput output = ParseCGIOutput(OutputOf(*this, program, std::move(result)));
  if (output.statusCode == "204" || output.statusCode == "304") output.body.clear();  // RFC 9110: these have none
  if (head.isWanted && output.isWholeResponse) {
    answer.head = std::move(output.wholeHead);
  } else if (head.isWanted) {
    const std::string_view code = output.statusCode.empty() ? head.statusCode : std::string_view(output.statusCode);
    answer.head = BuildHeader(code, static_cast<std::int64_t>(output.body.size()), output.contentType, true,
                              output.extraHeaders.append(head.extraHeaders));
  }
  answer.body = std::move(output.body);
}

}  // namespace TesselServer
