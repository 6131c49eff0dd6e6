// The server settings that request records work with. Records share one copy until one of them is given another value.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "http/Enumerations.h"

namespace TesselServer {

class ContentTypeMemory;
class RootFolder;
class SecretFiles;

// cls_HTTP documents each of them under the property of the same name.
struct RecordSettings {
  std::string virtualPath;
  std::string serverIP;
  std::string serverPort;
  std::string serverSoftware;
  std::string serverName;
  bool htmlFunctionsEnable = false;
  bool ssiEnable = false;
  bool cgiEnable = false;
  std::string cgiDirectory;
  std::int32_t cgiTimeoutMilliseconds = 0;
  bool cgiWarningEnable = false;
  std::string cgiExtraSetting;
  e_ContentTypeSource contentTypeSource = e_ContentTypeSource::Registry;
  std::shared_ptr<const std::vector<std::string>> contentTypeLines;
  std::shared_ptr<ContentTypeMemory> typeMemory;
  std::string applicationFolder;
  std::shared_ptr<const RootFolder> root;
  std::shared_ptr<const SecretFiles> secretFiles;
};

}  // namespace TesselServer
