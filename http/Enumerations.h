// The enumerations of the control's interface.
#pragma once

#include <cstdint>

namespace TesselServer {

// Where the content type of a file is looked up.
enum class e_ContentTypeSource : std::int32_t {
  Registry = 0,  // the "Content Type" of the extension in the registry store
  File = 1,      // the lines of ContentTypeSourceFile, "extension,type" each
  Internal = 2,  // the built-in table
};

// How protected resources are authenticated.
enum class e_AuthSource : std::int32_t {
  GolbalFile = 0,     // AuthenticationSourceFile; the interface spells it so
  DirectoryFile = 1,  // the file "htaccess.txt" in the requested directory
  LocalACL = 2,       // protects nothing
  DomainACL = 3,      // protects nothing
};

// How the control speaks with its clients.
enum class e_HTTPMode : std::int32_t {
  Classic = 0,  // HTTP/1.0, one request a connection
  Modern = 1,   // HTTP/1.1 as today's clients expect it
};

}  // namespace TesselServer
