#include "http/cls_HTTP.h"

#include <system_error>

#include "http/ContentTypes.h"
#include "http/ErrorPages.h"
#include "http/Page.h"
#include "http/ResponseHeader.h"
#include "http/ServerVariables.h"
#include "http/cls_CGI.h"
#include "http/cls_ErrorFiles.h"
#include "platform/AsciiCase.h"
#include "support/PathText.h"
#include "support/Text.h"
#include "support/cls_WinUtil.h"

namespace TesselServer {
namespace {

constexpr std::int32_t kMaxCGITimeoutSeconds = 2'000'000;  // 23 days stand for ever; more would not fit in milliseconds
constexpr std::size_t kMaxSystemErrorBytes = 255;          // texts are for one line of a page
constexpr std::int64_t kFirstNTPlatform = 2;
constexpr std::string_view kHtmlType = "text/html";
constexpr std::string_view kFallbackType = "application/octet-stream";
constexpr std::string_view kProgramSuffix = ".EXE";

bool IsProgram(std::string_view path) {
  return path.size() >= kProgramSuffix.size() &&
         EqualNoCase(path.substr(path.size() - kProgramSuffix.size()), kProgramSuffix);
}

// A requested name as the file system knows it. "%20" is the only encoding undone here.
std::string LocalName(std::string_view file) { return ReplaceAll(ReplaceAll(file, "/", "\\"), "%20", " "); }

}  // namespace

cls_HTTP::cls_HTTP(World& world)
    : world_(world), isWinNT_(LeadingNumber(cls_WinUtil().PlatformIdText()).value_or(0) >= kFirstNTPlatform) {}

void cls_HTTP::CGITimeout(std::int32_t seconds) {
  if (seconds < 0 || seconds > kMaxCGITimeoutSeconds) seconds = kMaxCGITimeoutSeconds;
  settings_.cgiTimeoutMilliseconds = seconds * 1000;
}

void cls_HTTP::EndRequest() {
  RequestInfo none;
  std::swap(request_, none);  // an assignment would keep the memory of long texts
}

std::string cls_HTTP::ServerVariable(std::string_view Name) {
  return ServerVariableValue(Name, {settings_, request_, world_});
}

std::string cls_HTTP::ServerVariables(std::string_view Name, std::string_view Separator) {
  if (!Trim(Name).empty()) return ServerVariable(Name);
  std::string all;
  for (const std::string_view name : ServerVariableNames()) {
    all.append(name).append("=").append(ServerVariable(name)).append(Separator);
  }
  return all;
}

std::string cls_HTTP::SystemErrorText(std::int32_t Code) const {
  const std::string text = std::generic_category().message(Code);
  // A number that the system does not know has a text that ends in the number, in every language.
  if (text.empty() || text.ends_with(std::to_string(Code))) return "Unknown error.";
  return std::string(Trim(std::string_view(text).substr(0, kMaxSystemErrorBytes)));
}

std::string cls_HTTP::BuildHeader(std::string_view StatusCode, std::int64_t ContentLength, std::string_view ContentType,
                                  bool EndHeader, std::string_view ExtraHeaders) const {
  HeaderFields fields;
  fields.statusCode = StatusCode;
  fields.software = settings_.serverSoftware;
  fields.utcSeconds = world_.UtcSeconds();
  fields.contentType = ContentType;
  fields.extraHeaders = ExtraHeaders;
  fields.contentLength = ContentLength;
  fields.endHeader = EndHeader;
  return HeaderText(fields);
}

std::string_view cls_HTTP::StatusText(std::string_view StatusCode) { return ReasonPhrase(StatusCode); }

std::string cls_HTTP::StatusCode(std::string_view ReasonText) { return std::string(ReasonText); }

Answer cls_HTTP::ErrorPage(std::string_view StatusCode, bool UseErrorFiles) {
  return UseErrorFiles ? ErrorFilePage(StatusCode) : BuiltInErrorPage(StatusCode);
}

Answer cls_HTTP::BuiltInErrorPage(std::string_view code) const {
  std::string page = cls_ErrorFiles().ErrorPageHtml(code);
  Answer answer;
  answer.head = BuildHeader("200", static_cast<std::int64_t>(page.size()) - 1, kHtmlType, true, "");
  answer.body = std::move(page);
  return answer;
}

Answer cls_HTTP::ErrorFilePage(std::string_view code) const {
  ErrorFile error = OpenErrorFile(settings_.applicationFolder, code);
  cls_HTTP record(world_);
  record.settings_ = settings_;
  record.VirtualPath(settings_.applicationFolder + "\\html");
  record.CGIEnable(false);
  record.CGIWarningEnable(false);
  return record.ProcessFile(std::move(error.file), error.path, "200", true, "", {}, "");
}

std::string cls_HTTP::ServerTooBusyPage() const { return cls_ErrorFiles().ServerTooBusyHtml(); }

std::string cls_HTTP::ContentTypeOf(std::string_view File) const {
  const std::string_view extension = ExtensionOf(File);
  switch (settings_.contentTypeSource) {
    case e_ContentTypeSource::Registry:
      return RegistryContentType(world_.Registry(), extension);
    case e_ContentTypeSource::File:
      if (!settings_.contentTypeLines) return {};
      return std::string(FindContentType(*settings_.contentTypeLines, extension));
    case e_ContentTypeSource::Internal:
      return std::string(FindContentType(BuiltInContentTypes(), extension));
  }
  return {};
}

Answer cls_HTTP::ProcessFile(OpenFile opened, const std::string& File, std::string_view StatusCode, bool WantHeader,
                             std::string_view ExtraHeaders, const RequestInfo& info, const std::string& Body) {
  request_ = info;
  const std::string path = LocalName(File);
  if (!opened.IsOpen()) opened = OpenPath(path);
  if (IsProgram(path)) return ProgramAnswer({opened, path, StatusCode, WantHeader, ExtraHeaders, Body});

  Answer answer;
  if (opened.Kind() != EntryKind::kFile) {
    if (WantHeader) answer.head = BuildHeader("404", 0, kHtmlType, true, "");
    return answer;
  }
  std::string type = ContentTypeOf(path);
  std::string page;
  if (type == kHtmlType && ProcessPage(opened, page)) {
    answer.body = std::move(page);
  } else {
    const std::int64_t size = opened.Size();
    answer.body = FileBody{std::move(opened), size};
  }
  if (Trim(type).empty()) type = kFallbackType;
  if (WantHeader) answer.head = BuildHeader(StatusCode, answer.BodySize(), type, true, ExtraHeaders);
  return answer;
}

// Reads the page and runs the processors on it. False when it shall go out as it is on disk.
bool cls_HTTP::ProcessPage(const OpenFile& file, std::string& text) {
  const PagePipeline* const pipeline = settings_.pipeline;
  if (pipeline == nullptr || file.Size() > kMaxPageBytes || !pipeline->Wants(*this)) return false;
  if (!file.ReadAll(text, kMaxPageBytes)) return false;
  Page page(std::move(text));
  pipeline->Run(*this, page);
  text = std::move(page).Text();
  return true;
}

Answer cls_HTTP::ProgramAnswer(const ProgramCall& call) {
  Answer answer;
  if (!settings_.cgiEnable) {
    if (call.wantHeader) answer.head = cls_CGI().CGIWarningPage();
    return answer;
  }
  if (settings_.programRunner != nullptr) return settings_.programRunner->Run(*this, call);
  answer = BuiltInErrorPage("501");
  if (!call.wantHeader) answer.head.clear();
  return answer;
}

}  // namespace TesselServer
