// What runs a requested program in place of sending its file.
#pragma once

#include <string>
#include <string_view>

#include "platform/Answer.h"
#include "platform/FileSystem.h"

namespace TesselServer {

class cls_HTTP;

// One request for a program. Every part of it is valid until Run returns.
struct ProgramCall {
  const OpenFile& file;     // the program's file; not open when it could not be opened
  const std::string& path;  // its name as ProcessFile uses it: "\" separators, blanks restored
  std::string_view statusCode;
  bool wantHeader;
  std::string_view extraHeaders;
  std::string_view requestBody;  // what the client sent behind its headers
};

class ProgramRunner {
 public:
  virtual ~ProgramRunner() = default;

  // Runs the program with the settings and request values of `record` and returns the answer: header and output, or
  // the output alone when no header is wanted.
  virtual Answer Run(cls_HTTP& record, const ProgramCall& call) = 0;
};

}  // namespace TesselServer
