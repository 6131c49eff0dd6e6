#include "support/cls_Cookies.h"

namespace TesselServer {

std::string cls_Cookies::Cookies() const { return {}; }

}  // namespace TesselServer
