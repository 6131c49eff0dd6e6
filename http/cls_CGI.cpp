#include "http/cls_CGI.h"

namespace TesselServer {

std::string cls_CGI::CGIWarningPage() const {
  return "HTTP/1.0 200 OKContent-Type: text/html\r\n\r\n"
         "<HTML>"
         "<BODY>"
         "<TITLE>CGI Warning</TITLE>"
         "<h1>CGI Warning</h1>"
         "<p>CGI Script Processing is not enabled on this server.</p>\r\n\r\n"
         "<p>;nbsp</p>"
         "</BODY>"
         "</HTML>";
}

}  // namespace TesselServer
