#include "http/ErrorPages.h"

#include <utility>

namespace TesselServer {
namespace {

Task<ErrorFile> OpenNumbered(std::string applicationFolder, std::string code, Turns* turns) {
  ErrorFile error;
  error.path = applicationFolder + "\\html\\errors\\http" + code + ".html";
  auto opening = OpenPathInTurns(error.path, turns);
  error.file = co_await opening;
  if (error.file.Kind() != EntryKind::kFile) error.file = OpenFile();
  co_return error;
}

}  // namespace

Task<ErrorFile> OpenErrorFile(std::string applicationFolder, std::string code, Turns* turns) {
  if (code.find_first_not_of("0123456789") == std::string::npos) {
    auto opening = OpenNumbered(applicationFolder, std::move(code), turns);
    ErrorFile own = co_await opening;
    if (own.file.IsOpen()) co_return own;
  }
  auto opening = OpenNumbered(std::move(applicationFolder), "404", turns);
  co_return co_await opening;
}

}  // namespace TesselServer
