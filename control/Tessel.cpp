#include "control/Tessel.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "control/answer/RecordSetup.h"
#include "control/life/ComponentVersion.h"
#include "control/life/Persistence.h"
#include "control/life/TesselCore.h"
#include "platform/loop/LoopCore.h"
#include "platform/settings/RegistryStore.h"
#include "platform/world/World.h"
#include "support/Format.h"
#include "support/Text.h"
#include "support/cls_WinUtil.h"

namespace TesselServer {

namespace {

constexpr std::string_view kProductName = "Tessel";

// Every way in: debug builds check that it is taken on the thread that the loop belongs to. The copy keeps the inside
// alive when an event destroys the control.
std::shared_ptr<TesselCore> Enter(const std::shared_ptr<TesselCore>& core) {
  assert(IsOnThreadOf(&core->state.loop));
  return core;
}

// Sets a property: raises PropertyChanged with its name, then stores the value and passes it to the parts that use it.
template <typename Store>
void Let(const std::shared_ptr<TesselCore>& shared, const char* name, Store&& store) {
  const auto core = Enter(shared);
  core->state.reporter.RaisePropertyChanged(name);
  store(core->state.settings);
  ApplySettings(core->state);
}

void LetMaxConnections(const std::shared_ptr<TesselCore>& core, std::int32_t value) {
  Let(core, "MaxConnections", [&](Settings& settings) {
    if (value > Settings::kMaxMaxConnections) return;  // kept: the old value stays, though PropertyChanged was raised
    settings.MaxConnections = static_cast<std::int16_t>(std::max(value, Settings::kMinMaxConnections));
  });
}

void LetIndexPageNames(const std::shared_ptr<TesselCore>& core, const std::string& value) {
  Let(core, "IndexPageNames", [&](Settings& settings) { settings.SetIndexPageNames(value); });
}

}  // namespace

Tessel::Tessel(EventLoop& loop)
    : CallFunction(&loop),
      FileRequest(&loop),
      HTTPLog(&loop),
      LogEvent(&loop),
      StatusLine(&loop),
      PropertyChanged(&loop),
      AboutBox(&loop),
      core_(std::make_shared<TesselCore>(loop, *this)) {
  core_->lifecycle.Initialize();
  InitProperties();
}

Tessel::~Tessel() {
  core_->lifecycle.Terminate();
  EventLoop& loop = core_->state.loop;
  loop.DeleteLater(std::move(core_));
}

// ---- Properties.

std::string Tessel::ServerIP() const { return Enter(core_)->state.settings.ServerIP; }
void Tessel::ServerIP(const std::string& value) {
  Let(core_, "ServerIP", [&](Settings& settings) { settings.ServerIP = Trim(value); });
}

std::string Tessel::ServerPort() const { return std::to_string(Enter(core_)->state.settings.ServerPort); }
void Tessel::ServerPort(const std::string& value) {
  const std::int32_t port = ParseServerPort(value);
  Let(core_, "ServerPort", [&](Settings& settings) { settings.ServerPort = port; });
}

std::string Tessel::ServerSoftware() const { return Enter(core_)->state.settings.ServerSoftware; }
void Tessel::ServerSoftware(const std::string& value) {
  Let(core_, "ServerSoftware", [&](Settings& settings) { settings.ServerSoftware = value; });
}

std::string Tessel::ServerName() const { return std::string(Trim(Enter(core_)->state.settings.ServerName)); }
void Tessel::ServerName(const std::string& value) {
  Let(core_, "ServerName", [&](Settings& settings) { settings.ServerName = value; });
}

e_ContentTypeSource Tessel::ContentTypeSource() const { return Enter(core_)->state.settings.ContentTypeSource; }
void Tessel::ContentTypeSource(e_ContentTypeSource value) {
  Let(core_, "ContentTypeSource", [&](Settings& settings) { settings.ContentTypeSource = value; });
}

std::string Tessel::ContentTypeSourceFile() const { return Enter(core_)->state.settings.ContentTypeSourceFile; }
void Tessel::ContentTypeSourceFile(const std::string& value) {
  LineTable lines = LoadLines(value);
  if (lines == nullptr) return;  // kept: a file that cannot be read leaves the property as it was, silently
  Let(core_, "ContentTypeSourceFile", [&](Settings& settings) { settings.SetContentTypes(value, std::move(lines)); });
}

e_AuthSource Tessel::AuthenticationSource() const { return Enter(core_)->state.settings.AuthenticationSource; }
void Tessel::AuthenticationSource(e_AuthSource value) {
  Let(core_, "AuthenticationSource", [&](Settings& settings) { settings.AuthenticationSource = value; });
}

std::string Tessel::AuthenticationSourceFile() const { return Enter(core_)->state.settings.AuthenticationSourceFile; }
void Tessel::AuthenticationSourceFile(const std::string& value) {
  auto lines = SecretLines::Load(value);
  if (lines == nullptr) return;  // kept: a file that cannot be read leaves the property as it was, silently
  Let(core_, "AuthenticationSourceFile", [&](Settings& settings) {
    settings.AuthLines = std::move(lines);
    settings.AuthenticationSourceFile = value;
  });
}

bool Tessel::CGIEnable() const { return Enter(core_)->state.settings.CGIEnable; }
void Tessel::CGIEnable(bool value) {
  Let(core_, "CGIEnable", [&](Settings& settings) { settings.CGIEnable = value; });
}

std::string Tessel::CGIDirectory() const { return Enter(core_)->state.settings.CGIDirectory; }
void Tessel::CGIDirectory(const std::string& value) {
  Let(core_, "CGIDirectory", [&](Settings& settings) { settings.CGIDirectory = value; });
}

std::int32_t Tessel::CGITimeout() const { return Enter(core_)->state.settings.CGITimeout; }
void Tessel::CGITimeout(std::int32_t value) {
  Let(core_, "CGITimeout", [&](Settings& settings) { settings.CGITimeout = ClampSeconds(value); });
}

bool Tessel::SSIEnable() const { return Enter(core_)->state.settings.SSIEnable; }
void Tessel::SSIEnable(bool value) {
  Let(core_, "SSIEnable", [&](Settings& settings) { settings.SSIEnable = value; });
}

bool Tessel::HTMLFunctionsEnable() const { return Enter(core_)->state.settings.HTMLFunctionsEnable; }
void Tessel::HTMLFunctionsEnable(bool value) {
  Let(core_, "HTMLFunctionsEnable", [&](Settings& settings) { settings.HTMLFunctionsEnable = value; });
}

bool Tessel::DirectoryBrowseEnable() const { return Enter(core_)->state.settings.DirectoryBrowseEnable; }
void Tessel::DirectoryBrowseEnable(bool value) {
  Let(core_, "DirectoryBrowseEnable", [&](Settings& settings) { settings.DirectoryBrowseEnable = value; });
}

bool Tessel::ErrorFilesEnable() const { return Enter(core_)->state.settings.ErrorFilesEnable; }
void Tessel::ErrorFilesEnable(bool value) {
  Let(core_, "ErrorFilesEnable", [&](Settings& settings) { settings.ErrorFilesEnable = value; });
}

bool Tessel::VerboseErrorsEnable() const { return Enter(core_)->state.settings.VerboseErrorsEnable; }
void Tessel::VerboseErrorsEnable(bool value) {
  Let(core_, "VerboseErrorsEnable", [&](Settings& settings) { settings.VerboseErrorsEnable = value; });
}

std::int32_t Tessel::MaxConnections() const { return Enter(core_)->state.settings.MaxConnections; }
void Tessel::MaxConnections(std::int32_t value) { LetMaxConnections(core_, value); }

std::int32_t Tessel::ConnectionTimeout() const { return Enter(core_)->state.settings.ConnectionTimeout; }
void Tessel::ConnectionTimeout(std::int32_t value) {
  Let(core_, "ConnectionTimeout", [&](Settings& settings) { settings.ConnectionTimeout = ClampSeconds(value); });
}

std::string Tessel::VirtualPath() const { return Enter(core_)->state.settings.VirtualPath; }
void Tessel::VirtualPath(const std::string& value) {
  Let(core_, "VirtualPath", [&](Settings& settings) { settings.VirtualPath = value; });
}

std::string Tessel::IndexPageNames() const { return Enter(core_)->state.settings.IndexPageNames; }
void Tessel::IndexPageNames(const std::string& value) { LetIndexPageNames(core_, value); }

bool Tessel::TrapFileEnable() const { return Enter(core_)->state.settings.TrapFileEnable; }
void Tessel::TrapFileEnable(bool value) {
  const auto core = Enter(core_);
  core->state.settings.TrapFileEnable = value;  // kept: the one property stored before PropertyChanged
  core->state.reporter.RaisePropertyChanged("TrapFileEnable");
}

std::string Tessel::TrapFileTypes() const { return Enter(core_)->state.settings.TrapFileTypes; }
void Tessel::TrapFileTypes(const std::string& value) {
  Let(core_, "TrapFileTypes", [&](Settings& settings) { settings.TrapFileTypes = WithoutBlanks(value); });
}

// ---- Methods.

void Tessel::ShowAboutBox() {
  const auto core = Enter(core_);
  core->state.reporter.RaiseAboutBox(std::string(kProductName), Version());
}

std::string Tessel::Stats_BytesReceived() const {
  return FormatNumber(Enter(core_)->state.statistics.BytesReceived / 1024, "0K");
}

std::string Tessel::Stats_BytesSent() const {
  return FormatNumber(Enter(core_)->state.statistics.BytesSent / 1024, "0K");
}

std::string Tessel::Stats_Requests() const { return FormatNumber(Enter(core_)->state.statistics.RequestCount, "0"); }

std::string Tessel::Stats_Errors() const { return FormatNumber(Enter(core_)->state.statistics.ErrorCount, "0"); }

std::string Tessel::Stats_UpTime() const {
  const auto& started = Enter(core_)->state.statistics.StartTime;
  return started ? cls_WinUtil().UpTimeText(*started, LocalNow(Enter(core_)->state.world)) : std::string();
}

std::string Tessel::Stats_FreeConnections() const {
  return std::to_string(Enter(core_)->state.statistics.FreeConnections) + "/" +
         std::to_string(Enter(core_)->state.settings.MaxConnections);
}

void Tessel::ReturnData(std::int32_t Index, const std::string& mData) {
  const auto core = Enter(core_);
  core->hostAnswers.ReturnData(Index, mData);
}

void Tessel::TrapFileData(std::int32_t Index, const std::string& Data, bool Process, const std::string& ContentType) {
  const auto core = Enter(core_);
  core->hostAnswers.TrapFileData(Index, Data, Process, ContentType);
}

void Tessel::TrapFileDataEX(std::int32_t Index, const std::string& Data, bool Process, const std::string& ContentType,
                            const std::string& StatusCode, const std::string& HeaderField) {
  const auto core = Enter(core_);
  core->hostAnswers.TrapFileDataEX(Index, Data, Process, ContentType, StatusCode, HeaderField);
}

std::int16_t Tessel::QueryStringCount(std::int32_t Index, const std::string& Paramter) const {
  return Enter(core_)->hostAnswers.QueryStringCount(Index, Paramter);
}

std::string Tessel::QueryString(std::int32_t Index, const std::string& Paramter, std::int32_t Item) const {
  return Enter(core_)->hostAnswers.QueryString(Index, Paramter, Item);
}

std::string Tessel::CGIValue(std::int32_t Index, const std::string& Variable, const std::string& Delimiter) {
  return Enter(core_)->hostAnswers.CGIValue(Index, Variable, Delimiter);
}

std::string Tessel::HTTPHeader(std::int32_t Index, const std::string& HeaderField) const {
  return Enter(core_)->hostAnswers.HTTPHeader(Index, HeaderField);
}

bool Tessel::ServerRunning() const { return Enter(core_)->state.running; }

bool Tessel::StartServer() {
  const auto core = Enter(core_);
  const bool started = core->lifecycle.StartServer();
  core->state.loop.Core().Thread().Start();
  return started;
}

bool Tessel::StopServer() {
  const auto core = Enter(core_);
  return core->lifecycle.StopServer();
}

std::string Tessel::Version() const {
  return VersionText(ComponentVersion::kMajor, ComponentVersion::kMinor, ComponentVersion::kRevision);
}

// ---- Persistence.

void Tessel::InitProperties() {
  const auto core = Enter(core_);
  core->state.settings = Settings();
  ApplySettings(core->state);
  LetMaxConnections(core, Settings::kMinMaxConnections);
}

void Tessel::ReadProperties(const PropertyBag& bag) {
  const auto core = Enter(core_);
  ReadSettings(bag, core->state.settings,
               {[&](std::int32_t value) { LetMaxConnections(core, value); },
                [&](const std::string& value) { LetIndexPageNames(core, value); }});
  core->state.settings.RefreshContentTypes();
  ApplySettings(core->state);
}

void Tessel::WriteProperties(PropertyBag& bag) const { WriteSettings(bag, Enter(core_)->state.settings); }

// ---- Beyond the interface.

e_HTTPMode Tessel::HTTPMode() const { return Enter(core_)->state.settings.HTTPMode; }
void Tessel::HTTPMode(e_HTTPMode value) {
  Let(core_, "HTTPMode", [&](Settings& settings) { settings.SetHTTPMode(static_cast<std::int32_t>(value)); });
}

std::int32_t Tessel::ClientTimeout() const { return Enter(core_)->state.settings.ClientTimeout; }
void Tessel::ClientTimeout(std::int32_t value) {
  Let(core_, "ClientTimeout", [&](Settings& settings) { settings.SetClientTimeout(value); });
}

std::int32_t Tessel::KeepAliveTimeout() const { return Enter(core_)->state.settings.KeepAliveTimeout; }
void Tessel::KeepAliveTimeout(std::int32_t value) {
  Let(core_, "KeepAliveTimeout", [&](Settings& settings) { settings.SetKeepAliveTimeout(value); });
}

std::int32_t Tessel::MaxHeaderBytes() const { return Enter(core_)->state.settings.MaxHeaderBytes; }
void Tessel::MaxHeaderBytes(std::int32_t value) {
  Let(core_, "MaxHeaderBytes", [&](Settings& settings) { settings.SetMaxHeaderBytes(value); });
}

std::string Tessel::CGIFileTypes() const { return Enter(core_)->state.settings.CGIFileTypes; }
void Tessel::CGIFileTypes(const std::string& value) {
  Let(core_, "CGIFileTypes", [&](Settings& settings) { settings.CGIFileTypes = WithoutBlanks(value); });
}

std::string Tessel::Charset() const { return Enter(core_)->state.settings.Charset; }
void Tessel::Charset(const std::string& value) {
  Let(core_, "Charset", [&](Settings& settings) { settings.Charset = Trim(value); });
}

std::string Tessel::ApplicationFolder() const { return Enter(core_)->state.applicationFolder; }
void Tessel::ApplicationFolder(const std::string& value) {
  const auto core = Enter(core_);
  core->state.applicationFolder = value;
  ApplySettings(core->state);
}

std::int32_t Tessel::LoadRegistryFile(const std::string& path) {
  return Enter(core_)->state.world.Registry().LoadFile(path);
}

bool Tessel::PutContentType(const std::string& extension, const std::string& contentType) {
  return Enter(core_)->state.world.Registry().PutContentType(extension, contentType);
}

std::int32_t Tessel::ListeningPort() const { return Enter(core_)->state.sckWS.BoundPort(kListener); }

bool Tessel::IsListening() const { return Enter(core_)->state.sckWS.State(kListener) == SocketState::kListening; }

std::int64_t Tessel::MaxBodyBytes() const { return Enter(core_)->state.maxBodyBytes; }
void Tessel::MaxBodyBytes(std::int64_t value) {
  Enter(core_)->state.maxBodyBytes = std::clamp<std::int64_t>(value, 0, Reception::kMaxBodyBytes);
}

std::int64_t Tessel::MaxBodyBytesTotal() const { return Enter(core_)->state.bodyMemory.Limit(); }
void Tessel::MaxBodyBytesTotal(std::int64_t value) { Enter(core_)->state.bodyMemory.Limit(value); }

std::int64_t Tessel::MaxUnsentPageBytes() const { return Enter(core_)->state.pageMemory.Limit(); }
void Tessel::MaxUnsentPageBytes(std::int64_t value) { Enter(core_)->state.pageMemory.Limit(value); }

std::int32_t Tessel::MaxPrograms() const { return Enter(core_)->state.programs.MaxPrograms(); }
void Tessel::MaxPrograms(std::int32_t value) { Enter(core_)->state.programs.MaxPrograms(value); }

std::int32_t Tessel::Workers() const { return Enter(core_)->state.workers.Count(); }
void Tessel::Workers(std::int32_t value) { Enter(core_)->state.workers.Count(value); }

std::string Tessel::RequestBody(std::int32_t Index) const { return Enter(core_)->hostAnswers.RequestBody(Index); }

std::uint64_t Tessel::RequestNumber(std::int32_t Index) const { return Enter(core_)->hostAnswers.RequestNumber(Index); }

}  // namespace TesselServer
