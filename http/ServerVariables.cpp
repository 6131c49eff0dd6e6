#include "http/ServerVariables.h"

#include "net/HostLookUp.h"
#include "support/Dates.h"
#include "support/Format.h"

namespace TesselServer {
namespace {

using Context = ServerVariableContext;

std::string LocalTime(const Context& from, std::string_view picture) {
  return FormatDate(LocalNow(from.world), picture);
}

// A name that is not there is not asked for again: each program of a page reads it, and may wait a second for it.
std::string RemoteHost(const Context& from) {
  if (from.names != nullptr) {
    if (from.request.RemoteHost.empty()) from.request.RemoteHost = from.names->NameNow(from.request.RemoteAddr);
    return from.request.RemoteHost;
  }
  if (from.request.RemoteHost != HostLookUp::kUnknown)
    from.request.RemoteHost = HostLookUp(from.world).HostNameFromAddress(from.request.RemoteAddr);
  return from.request.RemoteHost;
}

struct Variable {
  std::string_view name;
  std::string (*value)(const Context& from);
};

constexpr std::array<Variable, kServerVariableCount> kVariables = {{
    {"AUTH_TYPE", [](const Context& from) { return from.request.AuthType; }},
    {"CONTENT_LENGTH", [](const Context& from) { return from.request.ContentLength; }},
    {"CONTENT_TYPE", [](const Context& from) { return from.request.ContentType; }},
    {"GATEWAY_INTERFACE", [](const Context&) { return std::string("CGI/1.1"); }},
    {"HTTP_ACCEPT", [](const Context& from) { return from.request.Accept; }},
    {"HTTP_REFERER", [](const Context& from) { return from.request.Referer; }},
    {"HTTP_USER_AGENT", [](const Context& from) { return from.request.UserAgent; }},
    {"PATH_INFO", [](const Context& from) { return from.settings.virtualPath; }},
    {"PATH_TRANSLATED", [](const Context& from) { return from.settings.virtualPath; }},
    {"QUERY_STRING", [](const Context& from) { return from.request.QueryString; }},
    {"REMOTE_ADDR", [](const Context& from) { return from.request.RemoteAddr; }},
    {"REMOTE_HOST", RemoteHost},
    {"REMOTE_USER", [](const Context& from) { return from.request.RemoteUser; }},
    {"REQUEST_METHOD", [](const Context& from) { return from.request.RequestMethod; }},
    {"SCRIPT_NAME", [](const Context& from) { return from.request.ScriptName; }},
    {"SERVER_NAME", [](const Context& from) { return from.settings.serverName; }},
    {"SERVER_PORT", [](const Context& from) { return from.settings.serverPort; }},
    {"SERVER_PROTOCOL", [](const Context&) { return std::string("HTTP/1.0"); }},
    {"SERVER_SOFTWARE", [](const Context& from) { return from.settings.serverSoftware; }},
    {"SERVER_IP", [](const Context& from) { return from.settings.serverIP; }},
    {"TIME", [](const Context& from) { return LocalTime(from, "hh:mm:ssAMPM"); }},
    {"DATE", [](const Context& from) { return LocalTime(from, "mm/dd/yyyy"); }},
    {"DATE_LOCAL", [](const Context& from) { return LocalTime(from, "mm/dd/yyyy"); }},
    {"DATE_GMT", [](const Context& from) { return LocalTime(from, "ddd, dd mmm yyyy hh:nn:ss") + " GMT"; }},
    {"COUNTER", [](const Context&) { return std::string(); }},
    {"DAY_OF_WEEK", [](const Context& from) { return LocalTime(from, "dddd"); }},
    {"DOCUMENT_NAME", [](const Context& from) { return from.request.ScriptName; }},
    {"DOCUMENT_URI", [](const Context& from) { return from.request.DocumentURI; }},
    {"DOCUMENT_URL", [](const Context& from) { return from.request.DocumentURI; }},
}};

constexpr auto kNames = [] {
  std::array<std::string_view, kServerVariableCount> names;
  for (std::size_t i = 0; i < names.size(); ++i) names[i] = kVariables[i].name;
  return names;
}();

}  // namespace

const std::array<std::string_view, kServerVariableCount>& ServerVariableNames() { return kNames; }

std::string ServerVariableValue(std::string_view name, const ServerVariableContext& context) {
  for (const Variable& variable : kVariables) {
    if (variable.name == name) return variable.value(context);
  }
  return {};
}

}  // namespace TesselServer
