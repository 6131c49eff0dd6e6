// The configuration of a control, property by property, and what follows from it.
//
// Thread:    the host's thread.
// Ownership: plain values.
// Errors:    ParseServerPort raises; the rest does not.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/Enumerations.h"

namespace TesselServer {

// One trimmed line of a file per entry, in file order.
using LineTable = std::shared_ptr<const std::vector<std::string>>;

// The lines of a file of passwords. Their bytes are overwritten before their memory is given back.
class SecretLines {
 public:
  // Null when the file cannot be read or is beyond the limits of a table.
  static std::shared_ptr<const SecretLines> Load(const std::string& path);

  explicit SecretLines(std::vector<std::string> lines) : lines_(std::move(lines)) {}
  SecretLines(const SecretLines&) = delete;
  SecretLines& operator=(const SecretLines&) = delete;
  ~SecretLines();

  const std::vector<std::string>& Lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

struct Settings {
  static constexpr std::int32_t kMaxSeconds = 2'000'000'000;        // the time-outs' upper end
  static constexpr std::int32_t kMaxClientSeconds = 86'400;         // a client is waited for no longer than a day
  static constexpr std::int32_t kMinHeaderBytes = 1024;             // a request line of a browser, and little more
  static constexpr std::int32_t kMaxHeaderBytes = 1'048'576;        // a header block is held in memory
  static constexpr std::int32_t kMaxMaxConnections = 10'000;        // a larger value is not stored
  static constexpr std::int32_t kMinMaxConnections = 2;             // the listener and one connection
  static constexpr std::size_t kMaxTableLines = 32767;              // a file with more lines is not loaded
  static constexpr std::int64_t kMaxTableBytes = 16 * 1024 * 1024;  // nor is one that is larger

  e_HTTPMode HTTPMode = e_HTTPMode::Classic;
  std::int32_t ClientTimeout = 30;
  std::int32_t KeepAliveTimeout = 15;
  std::int32_t MaxHeaderBytes = 65'536;
  std::string CGIFileTypes = "exe,cgi";
  std::string Charset = "utf-8";
  std::string ServerIP;
  std::int32_t ServerPort = 80;
  std::string ServerSoftware = "Orvane Tessel/1.1";
  std::string ServerName;
  e_ContentTypeSource ContentTypeSource = e_ContentTypeSource::Registry;
  std::string ContentTypeSourceFile;
  e_AuthSource AuthenticationSource = e_AuthSource::GolbalFile;
  std::string AuthenticationSourceFile;
  bool CGIEnable = false;
  std::string CGIDirectory;
  std::int32_t CGITimeout = 30;
  bool SSIEnable = false;
  bool HTMLFunctionsEnable = false;
  bool DirectoryBrowseEnable = false;
  bool ErrorFilesEnable = false;
  bool VerboseErrorsEnable = true;
  std::int16_t MaxConnections = kMinMaxConnections;
  std::int32_t ConnectionTimeout = 10;
  std::string VirtualPath;
  std::string IndexPageNames = "index.html";
  bool TrapFileEnable = false;
  std::string TrapFileTypes;

  // Made from the above when the property is set.
  std::vector<std::string> IndexPageList{IndexPageNames};
  LineTable ContentTypeLines;                    // null for none
  std::string ContentTypeLinesFile;              // the file that they were read from
  std::shared_ptr<const SecretLines> AuthLines;  // null for none; nothing reads them

  // Each stores a value in its range, and leaves the property as it was for another one.
  void SetHTTPMode(std::int32_t mode);
  void SetClientTimeout(std::int32_t seconds);
  void SetKeepAliveTimeout(std::int32_t seconds);
  void SetMaxHeaderBytes(std::int32_t bytes);

  // Stores the comma list without its blanks, and cuts it into its array.
  void SetIndexPageNames(std::string_view names);

  // Stores the name of a file of content types, and its lines.
  void SetContentTypes(const std::string& file, LineTable lines);

  // Reads the file of content types anew: its name may have come from a bag, and it may have changed since. One that
  // cannot be read leaves the lines that were read of it before; those of another file go.
  void RefreshContentTypes();
};

// A port text as a number: blanks around it are dropped, a fraction is rounded half to even. Raises Error 13 for a text
// that is no number and 6 for one beyond 32 bits.
std::int32_t ParseServerPort(std::string_view text);

// `value` moved into 0 to kMaxSeconds.
std::int32_t ClampSeconds(std::int32_t value);

// `text` without any blank.
std::string WithoutBlanks(std::string_view text);

// The trimmed lines of the file at `path`; null when it cannot be read or is beyond the limits of a table.
LineTable LoadLines(const std::string& path);

}  // namespace TesselServer
