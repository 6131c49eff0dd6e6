#include "control/answer/RecordSetup.h"

#include <string>
#include <utility>

namespace TesselServer {

namespace {

// The control's 0 means no limit; the record knows none and takes its longest instead.
std::int32_t RecordTimeout(std::int32_t seconds) { return seconds == 0 ? -1 : seconds; }

}  // namespace

void ApplySettings(ControlState& state) {
  cls_HTTP& shared = state.requestTemplate;
  const Settings& settings = state.settings;
  shared.VirtualPath(settings.VirtualPath);
  shared.ServerIP(settings.ServerIP.empty() ? state.serverAddressInUse : settings.ServerIP);
  shared.ServerPort(std::to_string(settings.ServerPort == 0 ? state.listenPort : settings.ServerPort));
  shared.ServerSoftware(settings.ServerSoftware);
  shared.ServerName(settings.ServerName.empty() ? state.serverNameInUse : settings.ServerName);
  shared.HTMLFunctionsEnable(settings.HTMLFunctionsEnable);
  shared.SSIEnable(settings.SSIEnable);
  shared.CGIEnable(settings.CGIEnable);
  shared.CGIDirectory(settings.CGIDirectory);
  shared.CGITimeout(RecordTimeout(settings.CGITimeout));
  shared.ContentTypeSource(settings.ContentTypeSource);
  shared.ContentTypeLines(settings.ContentTypeLines);
  shared.ApplicationFolder(state.applicationFolder);
  shared.Root(state.Root());
  state.Programs();  // its disk is asked now, in a call of the host
  shared.Secrets(state.Secrets());
}

std::shared_ptr<cls_HTTP> RecordOf(ControlState& state, Slot& slot, std::int32_t Index) {
  if (!slot.Record) slot.Record = std::make_shared<cls_HTTP>(state.world);
  slot.Record->ConnectionIndex(static_cast<std::int16_t>(Index));
  slot.Record->ShareSettings(state.requestTemplate);
  slot.Record->Turns(&state.turns);
  slot.Record->Names(&state.names);
  return slot.Record;
}

RequestInfo RequestInfoOf(ControlState& state, Slot& slot, std::int32_t Index, std::string file) {
  const RequestFields& request = slot.Fields();
  RequestInfo info;
  info.RequestFile = std::move(file);
  info.RemoteAddr = state.sckWS.RemoteHostIP(Index);
  info.UserAgent = request.RequestUserAgent;
  info.QueryString = request.RequestQuery;
  info.DocumentURI = request.DocumentURI;
  info.ScriptName = slot.ScriptName;
  info.Accept = request.RequestAccept;
  info.Referer = request.RequestReferer;
  info.ContentLength = request.ContentLengthText;
  info.ContentType = request.RequestContentType;
  info.RequestMethod = request.RequestMethod;
  info.RemoteUser = slot.AuthenticatedUser;
  info.AuthType = request.AuthType;
  return info;
}

}  // namespace TesselServer
