// What the command line of `tessel` asks for.
//
// Thread:    any.
// Ownership: a value.
// Errors:    UsageError from ParseOptions; nothing else raises.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <TesselServer/Enumerations.h>

namespace TesselServer {

// A command line that cannot be understood; what() is one line that names the option and what is wrong with it.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// ".x=type/y"
struct ContentTypeEntry {
  std::string extension;  // with its dot
  std::string contentType;
};

inline constexpr const char* kContentTypeOption = "--content-type";

struct Options {
  enum class Task { Serve, SaveConfig, ShowHelp, ShowVersion, ShowAbout };

  Task task = Task::Serve;
  std::string helpText;                   // for ShowHelp: the whole text, with its last line end
  std::optional<std::string> directory;   // DIRECTORY
  std::optional<std::string> config;      // --config
  std::optional<std::string> saveConfig;  // --save-config

  // One for each property; nothing where the command line does not name it. Numbers are within their ranges.
  std::optional<std::string> serverIP;
  std::optional<std::int32_t> serverPort;
  std::optional<std::string> serverSoftware;
  std::optional<std::string> serverName;
  std::optional<e_ContentTypeSource> contentTypeSource;
  std::optional<std::string> contentTypeSourceFile;
  std::optional<e_AuthSource> authenticationSource;
  std::optional<std::string> authenticationSourceFile;
  std::optional<bool> cgiEnable;
  std::optional<std::string> cgiDirectory;
  std::optional<std::int32_t> cgiTimeout;
  std::optional<bool> ssiEnable;
  std::optional<bool> htmlFunctionsEnable;
  std::optional<bool> directoryBrowseEnable;
  std::optional<bool> errorFilesEnable;
  std::optional<bool> verboseErrorsEnable;
  std::optional<std::int32_t> maxConnections;
  std::optional<std::int32_t> connectionTimeout;
  std::optional<std::string> indexPageNames;
  std::optional<bool> trapFileEnable;
  std::optional<std::string> trapFileTypes;

  // What is no property: it is neither read from --config nor saved.
  std::optional<std::string> applicationFolder;
  std::optional<std::int64_t> maxBodyBytes;
  std::optional<std::int64_t> maxBodyBytesTotal;
  std::optional<std::int64_t> maxUnsentPageBytes;
  std::optional<std::int32_t> maxPrograms;
  std::optional<std::int32_t> workers;
  std::optional<e_HTTPMode> httpMode;
  std::optional<std::int32_t> clientTimeout;
  std::optional<std::int32_t> keepAliveTimeout;
  std::optional<std::int32_t> maxHeaderBytes;
  std::optional<std::string> cgiFileTypes;
  std::optional<std::string> charset;
  std::vector<ContentTypeEntry> contentTypes;  // --content-type, in the order given
};

// Reads the command line, argv[0] being the program's name. Of an option given twice the last one counts,
// but of --content-type all. Raises
// UsageError for an unknown option, a missing value and a value that its option cannot take.
Options ParseOptions(int argc, const char* const* argv);

}  // namespace TesselServer
