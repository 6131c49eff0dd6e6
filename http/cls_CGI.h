// The fixed answer to a request for a program while programs are not run.
#pragma once

#include <string>

namespace TesselServer {

class cls_CGI {
 public:
  // The whole answer: status line, header and page.
  // kept: the status line and the Content-Type line run together, and a blank is misspelt ";nbsp".
  std::string CGIWarningPage() const;
};

}  // namespace TesselServer
