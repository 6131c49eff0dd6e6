#include "control/life/Lifecycle.h"

#include <array>
#include <exception>
#include <string_view>
#include <utility>

#include "control/answer/RecordSetup.h"
#include "control/life/ComponentVersion.h"
#include "platform/world/Error.h"
#include "platform/world/SystemErrors.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

constexpr std::int32_t kStartHelpContext = 37;
// What the process needs besides its connections: the listener, the loop, files on their way out, the host's own.
constexpr std::int64_t kReservedDescriptors = 64;

std::string TrueFalse(bool value) { return value ? "True" : "False"; }

}  // namespace

void Lifecycle::Initialize() {
  state_.reporter.Trap(ErrorPrefix::kInitialize, [&] {
    state_.authFileName = "htaccess.txt";
    state_.applicationFolder = state_.world.ApplicationFolder();
    state_.settings.ServerSoftware = "Orvane Tessel Server/" + std::to_string(ComponentVersion::kMajor) + "." +
                                     std::to_string(ComponentVersion::kMinor);
    cls_HTTP& shared = state_.requestTemplate;
    shared.VirtualPath(state_.applicationFolder + "\\html");
    shared.ServerIP(state_.serverAddressInUse);
    shared.ServerPort(std::to_string(state_.settings.ServerPort));
    shared.ServerSoftware(state_.settings.ServerSoftware);
    shared.ServerName(state_.serverNameInUse);
    shared.SSIEnable(false);
    shared.HTMLFunctionsEnable(false);
    shared.CGIDirectory(state_.settings.CGIDirectory);
    shared.CGIEnable(false);
    shared.CGIExtraSetting("");
    state_.sckWS.Load(0);
  });
}

// ---- Start.

bool Lifecycle::StartServer() {
  if (state_.running) return false;
  Manner& manner = manners_.For(state_.settings.HTTPMode);
  manner.CheckSettings();
  // this start may be inside an event of another, which a stop has ended: that one must still see it
  const std::uint32_t outer = std::exchange(stopsAtStart_, state_.stopCount);
  stopping_ = false;  // inside the last events of a stop: from here on a stop is one of this start
  bool started = false;
  std::exception_ptr failure;
  try {
    Start(manner);
    started = true;
  } catch (const Abandoned&) {
    // an event ended it
  } catch (...) {
    failure = std::current_exception();
  }
  stopsAtStart_ = outer;
  if (failure == nullptr) return started;
  const CaughtError error = DescribeException(failure);
  state_.reporter.ReportError(ErrorPrefix::kStartServer, error);
  throw Error(ErrorNumber::kAddressInUse, error.description, "Tessel", kStartHelpContext);
}

void Lifecycle::Start(Manner& manner) {
  state_.holdConnections = true;
  state_.running = true;  // kept: a start that fails leaves both set until StopServer
  FillDefaults();
  state_.manner = &manner;
  ApplySettings(state_);
  state_.requestTemplate.ParentControl(&control_);
  Status("Starting Server ...");
  Log("#" + sending_.LogTimestamp() + " - Starting Server ...");
  StartListening();
  CheckAbandoned();
  state_.statistics.StartTime = LocalNow(state_.world);  // kept: the counters go on from earlier runs
  if (state_.settings.MaxConnections < Settings::kMinMaxConnections) {
    state_.settings.MaxConnections = Settings::kMinMaxConnections;
  }
  state_.slots = std::make_shared<SlotTable>(state_.settings.MaxConnections, *state_.manner);
  NameServer();
  ApplySettings(state_);
  LogConfiguration();
  Log("#" + sending_.LogTimestamp() + " - Server Started.");
  if (state_.settings.ServerIP.empty()) state_.serverAddressInUse = state_.world.LocalAddress();
  ApplySettings(state_);
  WarnOfDescriptors();
  CheckAbandoned();
  manner.Started();
  CheckAbandoned();
  state_.tmrCheckConn.Enabled(true);
  state_.holdConnections = false;
}

void Lifecycle::FillDefaults() {
  Settings& settings = state_.settings;
  settings.ServerName = Trim(settings.ServerName);
  if (settings.VirtualPath.empty()) {
    settings.VirtualPath = state_.applicationFolder;
    state_.reporter.RaisePropertyChanged("VirtualPath");
    CheckAbandoned();
  }
  if (settings.CGIDirectory.empty()) {
    settings.CGIDirectory = settings.VirtualPath + "\\scripts";
    state_.reporter.RaisePropertyChanged("CGIDirectory");
    CheckAbandoned();
  }
  if (settings.VirtualPath.empty()) {  // only where the application folder is not known either
    settings.VirtualPath += "\\html";
    state_.reporter.RaisePropertyChanged("VirtualPath");
    CheckAbandoned();
  }
  settings.RefreshContentTypes();
}

void Lifecycle::StartListening() {
  state_.sckWS.Unload(kListener);
  state_.sckWS.Close(0);
  try {
    state_.listenIP = state_.settings.ServerIP;
    state_.listenPort = state_.settings.ServerPort;
    timeOuts_.OpenListener();
    state_.lastConnectionTick = state_.TickCount();
  } catch (const Error& error) {
    if (error.Number() == SocketErrorNumber::kAddressInUse) {
      throw Error(ErrorNumber::kAddressInUse, "Address in use", "Tessel");
    }
    state_.reporter.ReportError(ErrorPrefix::kListen, {error.Number(), error.Description()});
    CheckAbandoned();
  }
  // kept: one more than there are connections
  state_.statistics.FreeConnections = state_.settings.MaxConnections;
  LoadElements();
}

// Connections are made ready even when the listener could not be: the periodic check may still make one.
void Lifecycle::LoadElements() {
  try {
    for (std::int32_t i = kFirstConnection; i <= state_.settings.MaxConnections; ++i) state_.sckWS.Load(i);
  } catch (const Error& error) {
    if (error.Number() != ErrorNumber::kAlreadyLoaded) {
      state_.reporter.ReportError(ErrorPrefix::kListen, {error.Number(), error.Description()});
      return;
    }
    state_.reporter.RaiseLogEvent(state_.settings.ServerIP + ":" + std::to_string(state_.settings.ServerPort) +
                                  " - There is another web server using that port. ");
  }
}

// kept: whether the host's own name or the property is shown goes by the name shown before, so the first start shows
// the host's name, the second the property, and with an empty property they alternate.
void Lifecycle::NameServer() {
  state_.serverNameInUse =
      state_.serverNameInUse.empty() ? state_.world.LocalHostName() : std::string(Trim(state_.settings.ServerName));
}

void Lifecycle::LogConfiguration() {
  const Settings settings = state_.settings;  // a handler may change them meanwhile
  const std::string port = std::to_string(settings.ServerPort);
  const std::array<std::string, 15> lines = {
      "#Connection Timeout [min]: " + std::to_string(settings.ConnectionTimeout),
      "#CGI Enabled: " + TrueFalse(settings.CGIEnable),
      "#CGI Directory: " + settings.CGIDirectory,
      "#CGI Timeout [sec]: " + std::to_string(settings.CGITimeout),
      "#SSI Enabled: " + TrueFalse(settings.SSIEnable),
      "#HTML Functions Enabled: " + TrueFalse(settings.HTMLFunctionsEnable),
      "#Directory Browsing: " + TrueFalse(settings.DirectoryBrowseEnable),
      "#Verbose Server Errors: " + TrueFalse(settings.VerboseErrorsEnable),
      "#Use Error Files:" + TrueFalse(settings.ErrorFilesEnable),
      "#Max Connections: " + std::to_string(settings.MaxConnections),
      "#Server Name: " + state_.serverNameInUse,
      "#Server IP Address: " + (settings.ServerIP.empty() ? "All Available" : settings.ServerIP),
      "#HTTP Port: " + port,
      "#HTML Home Path: " + settings.VirtualPath,
      "#Index Page Name: " + settings.IndexPageNames,
  };
  for (const std::string& line : lines) Log(line);
  for (std::string& line : state_.manner->StartLines()) Log(std::move(line));
  const std::string address = settings.ServerIP.empty() ? "All Available IP Addresses" : settings.ServerIP;
  Status("Server Started. " + address + ":" + port + " - " + state_.serverNameInUse);
}

void Lifecycle::WarnOfDescriptors() {
  const std::int64_t limit = state_.world.DescriptorLimit();
  if (limit >= state_.settings.MaxConnections + kReservedDescriptors) return;
  state_.reporter.RaiseLogEvent("MaxConnections is " + std::to_string(state_.settings.MaxConnections) +
                                ", but the process may open only " + std::to_string(limit) +
                                " descriptors: connections beyond that wait.");
}

void Lifecycle::Log(std::string line) {
  state_.reporter.RaiseHTTPLog(std::move(line));
  CheckAbandoned();
}

void Lifecycle::Status(std::string text) {
  state_.reporter.RaiseStatusLine(std::move(text));
  CheckAbandoned();
}

void Lifecycle::CheckAbandoned() const {
  if (state_.stopCount != stopsAtStart_ || state_.terminated) throw Abandoned();
}

// ---- Stop.

bool Lifecycle::StopServer() {
  if (stopping_) return true;  // called by an event of the stop itself
  stopping_ = true;
  ++state_.stopCount;
  const bool stopped = state_.reporter.Trap(ErrorPrefix::kStopServer, [&] {
    state_.holdConnections = true;
    state_.tmrCheckConn.Enabled(false);
    state_.reporter.RaiseHTTPLog("#" + sending_.LogTimestamp() + " - Stopping Server ...");
    state_.reporter.RaiseStatusLine("Stopping Server ...");
    sending_.KillAllConnections();
    state_.sckWS.Close(0);
    state_.sckWS.Close(kListener);
    state_.loop.DoEvents();
    state_.running = false;
    state_.reporter.RaiseStatusLine("Server Stopped.");
    state_.reporter.RaiseHTTPLog("#" + sending_.LogTimestamp() + " - Server Stopped.");
    if (!state_.running) state_.requestTemplate.ParentControl(nullptr);  // unless an event started it again
  });
  stopping_ = false;
  return stopped;
}

void Lifecycle::Terminate() {
  state_.terminated = true;
  state_.running = false;
  state_.holdConnections = true;
  state_.reporter.Forget();
  state_.tmrCheckConn.Enabled(false);
  sending_.KillAllConnections();
  UnloadSockets();
}

void Lifecycle::UnloadSockets() {
  for (std::int32_t i = 0; i <= state_.sckWS.HighestIndex(); ++i) state_.sckWS.Unload(i);
}

}  // namespace TesselServer
