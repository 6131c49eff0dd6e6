#include "control/life/Persistence.h"

#include <string>
#include <string_view>
#include <type_traits>

namespace TesselServer {

namespace {

// kept: the one key that is not the property's name
constexpr std::string_view kMaxConnectionsKey = "ServerMaxConnections";

// Reads one value and hands it to `store`; a text that its type cannot hold is passed over, and so is whatever a bag of
// the host's own fails with.
template <typename Value, typename Store>
void ReadTo(const PropertyBag& bag, std::string_view key, const Value& byDefault, Store&& store) {
  try {
    store(std::get<Value>(bag.ReadProperty(key, byDefault)));
  } catch (...) {
    // the property keeps its value
  }
}

// Writes one value; a bag that fails with it gets the next one all the same.
void WriteTo(PropertyBag& bag, std::string_view key, const PropertyValue& value, const PropertyValue& byDefault) {
  try {
    bag.WriteProperty(key, value, byDefault);
  } catch (...) {
    // the host knows its bag; no property is to blame
  }
}

template <typename Value>
void Read(const PropertyBag& bag, std::string_view key, const Value& byDefault, Value& field) {
  if constexpr (std::is_enum_v<Value>) {
    ReadTo(bag, key, static_cast<std::int32_t>(byDefault),
           [&](std::int32_t value) { field = static_cast<Value>(value); });
  } else {
    ReadTo(bag, key, byDefault, [&](const Value& value) { field = value; });
  }
}

}  // namespace

void ReadSettings(const PropertyBag& bag, Settings& settings, const PropertyLets& lets) {
  const Settings defaults;
  Read(bag, "SSIEnable", defaults.SSIEnable, settings.SSIEnable);
  Read(bag, "CGIEnable", defaults.CGIEnable, settings.CGIEnable);
  Read(bag, "CGIDirectory", defaults.CGIDirectory, settings.CGIDirectory);
  Read(bag, "CGITimeout", defaults.CGITimeout, settings.CGITimeout);
  Read(bag, "VerboseErrorsEnable", defaults.VerboseErrorsEnable, settings.VerboseErrorsEnable);
  Read(bag, "ErrorFilesEnable", defaults.ErrorFilesEnable, settings.ErrorFilesEnable);
  Read(bag, "ServerPort", defaults.ServerPort, settings.ServerPort);
  Read(bag, "ServerIP", defaults.ServerIP, settings.ServerIP);
  Read(bag, "ServerSoftware", defaults.ServerSoftware, settings.ServerSoftware);
  ReadTo(bag, kMaxConnectionsKey, std::int32_t{defaults.MaxConnections}, lets.maxConnections);
  Read(bag, "ContentTypeSource", defaults.ContentTypeSource, settings.ContentTypeSource);
  Read(bag, "ContentTypeSourceFile", defaults.ContentTypeSourceFile, settings.ContentTypeSourceFile);
  Read(bag, "AuthenticationSource", defaults.AuthenticationSource, settings.AuthenticationSource);
  Read(bag, "AuthenticationSourceFile", defaults.AuthenticationSourceFile, settings.AuthenticationSourceFile);
  Read(bag, "HTMLFunctionsEnable", defaults.HTMLFunctionsEnable, settings.HTMLFunctionsEnable);
  Read(bag, "DirectoryBrowseEnable", defaults.DirectoryBrowseEnable, settings.DirectoryBrowseEnable);
  Read(bag, "VirtualPath", defaults.VirtualPath, settings.VirtualPath);
  ReadTo(bag, "IndexPageNames", defaults.IndexPageNames, lets.indexPageNames);
  Read(bag, "TrapFileEnable", defaults.TrapFileEnable, settings.TrapFileEnable);
  Read(bag, "TrapFileTypes", defaults.TrapFileTypes, settings.TrapFileTypes);
  Read(bag, "ConnectionTimeout", defaults.ConnectionTimeout, settings.ConnectionTimeout);
  // kept: an empty name in the bag leaves the present one
  ReadTo(bag, "ServerName", defaults.ServerName, [&](const std::string& value) {
    if (!value.empty()) settings.ServerName = value;
  });
  ReadTo(bag, "HTTPMode", static_cast<std::int32_t>(defaults.HTTPMode),
         [&](std::int32_t value) { settings.SetHTTPMode(value); });
  ReadTo(bag, "ClientTimeout", defaults.ClientTimeout, [&](std::int32_t value) { settings.SetClientTimeout(value); });
  ReadTo(bag, "KeepAliveTimeout", defaults.KeepAliveTimeout,
         [&](std::int32_t value) { settings.SetKeepAliveTimeout(value); });
  ReadTo(bag, "MaxHeaderBytes", defaults.MaxHeaderBytes,
         [&](std::int32_t value) { settings.SetMaxHeaderBytes(value); });
  Read(bag, "CGIFileTypes", defaults.CGIFileTypes, settings.CGIFileTypes);
  Read(bag, "Charset", defaults.Charset, settings.Charset);
}

void WriteSettings(PropertyBag& bag, const Settings& settings) {
  const Settings defaults;
  const auto write = [&](std::string_view key, auto Settings::*field) {
    if constexpr (std::is_enum_v<std::remove_cvref_t<decltype(settings.*field)>>) {
      WriteTo(bag, key, static_cast<std::int32_t>(settings.*field), static_cast<std::int32_t>(defaults.*field));
    } else {
      WriteTo(bag, key, settings.*field, defaults.*field);
    }
  };
  write("SSIEnable", &Settings::SSIEnable);
  write("CGIEnable", &Settings::CGIEnable);
  write("CGIDirectory", &Settings::CGIDirectory);
  write("CGITimeout", &Settings::CGITimeout);
  write("VerboseErrorsEnable", &Settings::VerboseErrorsEnable);
  write("ErrorFilesEnable", &Settings::ErrorFilesEnable);
  write("ServerPort", &Settings::ServerPort);
  write("ServerIP", &Settings::ServerIP);
  write("ServerName", &Settings::ServerName);
  WriteTo(bag, kMaxConnectionsKey, std::int32_t{settings.MaxConnections}, std::int32_t{defaults.MaxConnections});
  write("ServerSoftware", &Settings::ServerSoftware);
  write("ContentTypeSource", &Settings::ContentTypeSource);
  write("ContentTypeSourceFile", &Settings::ContentTypeSourceFile);
  write("AuthenticationSource", &Settings::AuthenticationSource);
  write("AuthenticationSourceFile", &Settings::AuthenticationSourceFile);
  write("HTMLFunctionsEnable", &Settings::HTMLFunctionsEnable);
  write("DirectoryBrowseEnable", &Settings::DirectoryBrowseEnable);
  write("VirtualPath", &Settings::VirtualPath);
  write("IndexPageNames", &Settings::IndexPageNames);
  write("TrapFileEnable", &Settings::TrapFileEnable);
  write("TrapFileTypes", &Settings::TrapFileTypes);
  write("ConnectionTimeout", &Settings::ConnectionTimeout);
  write("HTTPMode", &Settings::HTTPMode);
  write("ClientTimeout", &Settings::ClientTimeout);
  write("KeepAliveTimeout", &Settings::KeepAliveTimeout);
  write("MaxHeaderBytes", &Settings::MaxHeaderBytes);
  write("CGIFileTypes", &Settings::CGIFileTypes);
  write("Charset", &Settings::Charset);
}

}  // namespace TesselServer
