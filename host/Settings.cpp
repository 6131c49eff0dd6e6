#include "host/Settings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <variant>

#include "host/Ranges.h"

namespace TesselServer {
namespace {

// The keys under which properties are kept, with what their values have to be.
struct BooleanKey {
  const char* name;
  bool byDefault;
};
constexpr BooleanKey kBooleanKeys[] = {
    {"SSIEnable", false},        {"CGIEnable", false},           {"VerboseErrorsEnable", true},
    {"ErrorFilesEnable", false}, {"HTMLFunctionsEnable", false}, {"DirectoryBrowseEnable", false},
    {"TrapFileEnable", false},
};

struct NumberKey {
  const char* name;
  Range range;
};
constexpr NumberKey kNumberKeys[] = {
    {"CGITimeout", kSecondsRange},
    {"ServerPort", kServerPortRange},
    {"ServerMaxConnections", kMaxConnectionsRange},
    {"ContentTypeSource", {0, 2}},
    {"AuthenticationSource", {0, 3}},
    {"ConnectionTimeout", kMinutesRange},
    {"HTTPMode", {0, 1}},
    {"ClientTimeout", kClientRange},
    {"KeepAliveTimeout", kClientRange},
    {"MaxHeaderBytes", kMaxHeaderBytesRange},
};

constexpr const char* kTextKeys[] = {
    "CGIDirectory",
    "ServerIP",
    "ServerSoftware",
    "ContentTypeSourceFile",
    "AuthenticationSourceFile",
    "IndexPageNames",
    "VirtualPath",
    "TrapFileTypes",
    "ServerName",
    "CGIFileTypes",
    "Charset",
};

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// The value under `name`, or nothing when it is not what its key needs.
template <typename Value>
std::optional<Value> Read(const PropertyBag& bag, const char* name, Value byDefault) {
  try {
    return std::get<Value>(bag.ReadProperty(name, byDefault));
  } catch (const Error&) {
    return std::nullopt;
  }
}

void CheckBoolean(const MemoryPropertyBag& bag, const BooleanKey& key, const std::string& text) {
  if (Read(bag, key.name, key.byDefault)) return;
  throw SettingError(std::string(key.name) + ": " + Quoted(text) + " is neither True nor False");
}

void CheckNumber(const MemoryPropertyBag& bag, const NumberKey& key, const std::string& text) {
  const auto value = Read(bag, key.name, std::int32_t{0});
  if (value && key.range.Contains(*value)) return;
  throw SettingError(std::string(key.name) + ": " + Quoted(text) + " " + IsNoNumberFrom(key.range));
}

// Whether `name` is the key of a property. Raises SettingError when `text` is nothing the property can take.
bool CheckItem(const MemoryPropertyBag& bag, const std::string& name, const std::string& text) {
  for (const auto& key : kBooleanKeys) {
    if (name != key.name) continue;
    CheckBoolean(bag, key, text);
    return true;
  }
  for (const auto& key : kNumberKeys) {
    if (name != key.name) continue;
    CheckNumber(bag, key, text);
    return true;
  }
  return std::any_of(std::begin(kTextKeys), std::end(kTextKeys), [&](const char* key) { return name == key; });
}

std::vector<std::string> ReadConfig(FilePropertyBag& bag, const std::string& path) {
  std::vector<std::string> remarks;
  try {
    bag.Load();
    for (const auto& [name, text] : bag.Items()) {
      if (!CheckItem(bag, name, text)) remarks.push_back(path + ": " + Quoted(name) + " is no setting, passed over");
    }
  } catch (const Error& error) {
    throw SettingError(path + ": " + error.Description());
  } catch (const SettingError& error) {
    throw SettingError(path + ": " + error.what());
  }
  return remarks;
}

void PutWhereMissing(MemoryPropertyBag& bag, const char* name, const char* text) {
  if (bag.Items().find(name) == bag.Items().end()) bag.Put(name, text);
}

// A path as it will be understood from any working folder; "" stays "".
std::string Absolute(const std::string& path) {
  if (path.empty() || path.front() == '/' || path.front() == '\\') return path;
  return (std::filesystem::current_path() / path).string();
}

// `given` as an absolute path, "" and "." being the working folder. Raises SettingError when it is no folder.
std::string ExistingFolder(const std::string& given) {
  auto folder = given.empty() || given == "." ? std::filesystem::current_path().string() : Absolute(given);
  std::error_code error;
  const auto status = std::filesystem::status(folder, error);
  if (!std::filesystem::exists(status)) throw SettingError(given + ": no such folder");
  if (!std::filesystem::is_directory(status)) throw SettingError(given + ": is not a folder");
  return folder;
}

// The folder that the command line names with `option`. Raises SettingError when it is no folder.
std::string FolderOf(const char* option, const std::string& given) {
  if (given.empty()) throw SettingError(std::string(option) + ": \"\" is no folder");
  return ExistingFolder(given);
}

// A file that is named and cannot be read would silently mean no types or, worse, no passwords.
void RequireReadable(const std::string& path, const char* what) {
  if (path.empty()) return;
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error) && std::ifstream(path, std::ios::binary).is_open()) return;
  throw SettingError(path + ": " + what + " cannot be read");
}

void ApplyTexts(Tessel& tessel, const Options& options) {
  if (options.serverIP) tessel.ServerIP(*options.serverIP);
  if (options.serverSoftware) tessel.ServerSoftware(*options.serverSoftware);
  if (options.serverName) tessel.ServerName(*options.serverName);
  if (options.cgiDirectory) tessel.CGIDirectory(Absolute(*options.cgiDirectory));
  if (options.indexPageNames) tessel.IndexPageNames(*options.indexPageNames);
  if (options.trapFileTypes) tessel.TrapFileTypes(*options.trapFileTypes);
  if (options.cgiFileTypes) tessel.CGIFileTypes(*options.cgiFileTypes);
  if (options.charset) tessel.Charset(*options.charset);
}

void ApplyNumbers(Tessel& tessel, const Options& options) {
  if (options.serverPort) tessel.ServerPort(std::to_string(*options.serverPort));
  if (options.contentTypeSource) tessel.ContentTypeSource(*options.contentTypeSource);
  if (options.authenticationSource) tessel.AuthenticationSource(*options.authenticationSource);
  if (options.cgiTimeout) tessel.CGITimeout(*options.cgiTimeout);
  if (options.maxConnections) tessel.MaxConnections(*options.maxConnections);
  if (options.connectionTimeout) tessel.ConnectionTimeout(*options.connectionTimeout);
  if (options.httpMode) tessel.HTTPMode(*options.httpMode);
  if (options.clientTimeout) tessel.ClientTimeout(*options.clientTimeout);
  if (options.keepAliveTimeout) tessel.KeepAliveTimeout(*options.keepAliveTimeout);
  if (options.maxHeaderBytes) tessel.MaxHeaderBytes(*options.maxHeaderBytes);
  if (options.maxBodyBytes) tessel.MaxBodyBytes(*options.maxBodyBytes);
  if (options.maxBodyBytesTotal) tessel.MaxBodyBytesTotal(*options.maxBodyBytesTotal);
  if (options.maxUnsentPageBytes) tessel.MaxUnsentPageBytes(*options.maxUnsentPageBytes);
  if (options.maxPrograms) tessel.MaxPrograms(*options.maxPrograms);
  if (options.workers) tessel.Workers(*options.workers);
}

void ApplySwitches(Tessel& tessel, const Options& options) {
  if (options.cgiEnable) tessel.CGIEnable(*options.cgiEnable);
  if (options.ssiEnable) tessel.SSIEnable(*options.ssiEnable);
  if (options.htmlFunctionsEnable) tessel.HTMLFunctionsEnable(*options.htmlFunctionsEnable);
  if (options.directoryBrowseEnable) tessel.DirectoryBrowseEnable(*options.directoryBrowseEnable);
  if (options.errorFilesEnable) tessel.ErrorFilesEnable(*options.errorFilesEnable);
  if (options.verboseErrorsEnable) tessel.VerboseErrorsEnable(*options.verboseErrorsEnable);
  if (options.trapFileEnable) tessel.TrapFileEnable(*options.trapFileEnable);
}

void ApplyContentTypes(Tessel& tessel, const Options& options) {
  if (options.contentTypes.empty()) return;
  if (tessel.ContentTypeSource() != e_ContentTypeSource::Registry) {
    throw SettingError(std::string(kContentTypeOption) + ": counts only where --content-type-source is registry");
  }
  for (const auto& [extension, contentType] : options.contentTypes) tessel.PutContentType(extension, contentType);
}

// The file under `name`, which is taken out of the bag: the control takes a name from there without reading the file.
std::string TakeFile(MemoryPropertyBag& bag, const char* name) {
  auto path = Read(bag, name, std::string()).value_or("");
  if (!path.empty()) bag.Put(name, "");
  return path;
}

// The control reads a file when it is named, and leaves the property as it was when the file is no table for it.
struct FileProperty {
  const char* what;
  std::string (Tessel::*read)() const;
  void (Tessel::*write)(const std::string& path);
};
constexpr FileProperty kTypesFile = {"the file of content types", &Tessel::ContentTypeSourceFile,
                                     &Tessel::ContentTypeSourceFile};
constexpr FileProperty kPasswordFile = {"the file of passwords", &Tessel::AuthenticationSourceFile,
                                        &Tessel::AuthenticationSourceFile};

void ApplyFile(Tessel& tessel, const FileProperty& property, const std::string& path) {
  RequireReadable(path, property.what);
  if (path.empty()) return;
  (tessel.*property.write)(path);
  if ((tessel.*property.read)() == path) return;
  throw SettingError(path + ": " + property.what + " has more than 32767 lines or 16 MiB");
}

}  // namespace

std::vector<std::string> ApplySettings(Tessel& tessel, const Options& options) {
  FilePropertyBag bag(options.config.value_or(""));
  std::vector<std::string> remarks;
  if (options.config) remarks = ReadConfig(bag, *options.config);
  PutWhereMissing(bag, "ServerIP", kOwnServerIP);
  PutWhereMissing(bag, "ServerPort", kOwnServerPort);
  PutWhereMissing(bag, "ServerMaxConnections", kOwnMaxConnections);
  const auto typesFile = TakeFile(bag, "ContentTypeSourceFile");
  const auto passwordFile = TakeFile(bag, "AuthenticationSourceFile");
  tessel.ReadProperties(bag);
  ApplyTexts(tessel, options);
  ApplyNumbers(tessel, options);
  ApplySwitches(tessel, options);
  ApplyFile(tessel, kTypesFile, options.contentTypeSourceFile ? Absolute(*options.contentTypeSourceFile) : typesFile);
  ApplyFile(tessel, kPasswordFile,
            options.authenticationSourceFile ? Absolute(*options.authenticationSourceFile) : passwordFile);
  ApplyContentTypes(tessel, options);
  if (options.applicationFolder) {
    tessel.ApplicationFolder(FolderOf("--application-folder", *options.applicationFolder));
  }
  // what the command line says, else what the configuration says, else the working folder
  tessel.VirtualPath(options.directory ? FolderOf("DIRECTORY", *options.directory)
                                       : ExistingFolder(tessel.VirtualPath()));
  return remarks;
}

void SaveSettings(const Tessel& tessel, const std::string& path) {
  FilePropertyBag bag(path);
  tessel.WriteProperties(bag);
  bag.Put("ServerIP", tessel.ServerIP());
  bag.Put("ServerPort", tessel.ServerPort());
  bag.Put("ServerMaxConnections", std::to_string(tessel.MaxConnections()));
  try {
    bag.Save();
  } catch (const Error& error) {
    throw SettingError(path + ": " + error.Description());
  }
}

}  // namespace TesselServer
