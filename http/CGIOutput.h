// Takes a program's output apart: a CGI response header (RFC 3875, section 6) if it begins with one, and the body.
//
// Thread:    any.
// Errors:    none; what is no header is body.
#pragma once

#include <string>

namespace TesselServer {

struct CGIOutput {
  bool isWholeResponse = false;  // it begins with "HTTP/" and is sent as it is, `body` being all of it
  std::string statusCode;        // three digits of "Status"; "302" with a "Location" and no "Status"; else ""
  std::string contentType;       // "Content-Type"; "text/html" when the program does not say
  std::string extraHeaders;      // its other lines, each with CR LF
  std::string body;
};

// Header lines end at CR LF or LF; a blank line ends the header. They count as one only when each is a name, ":" and a
// value, and Content-Type, Location or Status is among them. What this server says itself (Content-Length, Date,
// Server) and what would change the form of the body (Transfer-Encoding, Connection) is left out.
CGIOutput ParseCGIOutput(std::string output);

}  // namespace TesselServer
