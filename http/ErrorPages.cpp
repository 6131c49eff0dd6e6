#include "http/ErrorPages.h"

#include <utility>

namespace TesselServer {
namespace {

ErrorFile OpenNumbered(const std::string& applicationFolder, std::string_view code) {
  ErrorFile error;
  error.path = applicationFolder + "\\html\\errors\\http" + std::string(code) + ".html";
  error.file = OpenPath(error.path);
  if (error.file.Kind() != EntryKind::kFile) error.file = OpenFile();
  return error;
}

}  // namespace

ErrorFile OpenErrorFile(const std::string& applicationFolder, std::string_view code) {
  if (code.find_first_not_of("0123456789") == std::string_view::npos) {
    ErrorFile own = OpenNumbered(applicationFolder, code);
    if (own.file.IsOpen()) return own;
  }
  return OpenNumbered(applicationFolder, "404");
}

}  // namespace TesselServer
