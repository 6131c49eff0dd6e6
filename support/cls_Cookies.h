// The place where cookies would be read. Cookies are not supported.
//
// Thread:    any.
// Ownership: nothing.
// Errors:    none.
#pragma once

#include <string>

namespace TesselServer {

class cls_Cookies {
 public:
  // Always "".
  std::string Cookies() const;
};

}  // namespace TesselServer
