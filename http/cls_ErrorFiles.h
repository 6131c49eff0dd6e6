// The built-in error pages.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer {

class cls_ErrorFiles {
 public:
  // The page for a status code, or for "ServerTooBusy". Keys are compared byte for byte; an unknown one gives the page
  // for 501 without its spacer line.
  std::string ErrorPageHtml(std::string_view Key) const;

  // The page for "ServerTooBusy" without its spacer line.
  std::string ServerTooBusyHtml() const;
};

}  // namespace TesselServer
