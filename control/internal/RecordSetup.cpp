#include "control/internal/RecordSetup.h"

#include <string>
#include <utility>

namespace TesselServer {

namespace {

// The control's 0 means no limit; the record knows none and takes its longest instead.
std::int32_t RecordTimeout(std::int32_t seconds) { return seconds == 0 ? -1 : seconds; }

}  // namespace

std::shared_ptr<cls_HTTP> RecordOf(ControlState& state, Slot& slot, std::int32_t Index) {
  if (!slot.Record) slot.Record = std::make_shared<cls_HTTP>(state.world);
  cls_HTTP& record = *slot.Record;
  const Settings& settings = state.settings;
  record.ConnectionIndex(static_cast<std::int16_t>(Index));
  record.VirtualPath(settings.VirtualPath);
  record.ServerIP(settings.ServerIP.empty() ? state.serverAddressInUse : settings.ServerIP);
  record.ServerPort(std::to_string(settings.ServerPort == 0 ? state.listenPort : settings.ServerPort));
  record.ServerSoftware(settings.ServerSoftware);
  record.ServerName(settings.ServerName.empty() ? state.serverNameInUse : settings.ServerName);
  record.HTMLFunctionsEnable(settings.HTMLFunctionsEnable);
  record.SSIEnable(settings.SSIEnable);
  record.CGIEnable(settings.CGIEnable);
  record.CGIDirectory(settings.CGIDirectory);
  record.CGITimeout(RecordTimeout(settings.CGITimeout));
  record.CGIWarningEnable(false);
  record.CGIExtraSetting(state.requestTemplate.CGIExtraSetting());
  record.ParentControl(state.requestTemplate.ParentControl());
  record.ContentTypeSource(settings.ContentTypeSource);
  record.ContentTypeLines(settings.ContentTypeLines);
  record.ApplicationFolder(state.applicationFolder);
  record.Root(state.Root());
  record.Secrets(state.Secrets());
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
  info.RemoteUser = request.AuthUser;
  return info;
}

}  // namespace TesselServer
