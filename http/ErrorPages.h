// The error pages that lie as files below the application folder.
#pragma once

#include <string>

#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class Turns;

struct ErrorFile {
  OpenFile file;     // not open when neither the file of the code nor that of 404 is there
  std::string path;  // its name, that of 404 when there is none
};

// Opens "html/errors/http" code ".html" below `applicationFolder`, or "http404.html" there when that is no file. A code
// that is not all digits has no file of its own.
Task<ErrorFile> OpenErrorFile(std::string applicationFolder, std::string code, Turns* turns);

}  // namespace TesselServer
