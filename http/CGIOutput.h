// Takes a program's output apart: a CGI response header (RFC 3875, section 6) if it begins with one, and the body.
//
// Thread:    any.
// Errors:    none; what is no header is body.
#pragma once

#include <string>

namespace TesselServer {

struct CGIOutput {
  bool isWholeResponse = false;  // it begins with "HTTP/": `wholeHead` and `body` are sent as they are
  std::string wholeHead;         // of a whole response, up to and with its first blank line; "" when it has none
  std::string statusCode;        // three digits of "Status"; "302" with a "Location" and no such code; else ""
  std::string contentType;       // "Content-Type", "text/html" when the program does not say; "" of a whole response
  std::string extraHeaders;      // its other lines, each with CR LF
  std::string body;
};

// Header lines end at CR LF or LF; a blank line ends the header. They count as one only when each is a name, ":" and a
// value, and Content-Type, Location or Status is among them; otherwise all of the output is body. Where a field occurs
// twice the last one counts. A Status that is no code from 200 to 599, and a Location without a value, say nothing.
// What this server says itself (Content-Length, Date, Server) and what would change the form of the body
// (Transfer-Encoding, Connection) is left out.
CGIOutput ParseCGIOutput(std::string output);

}  // namespace TesselServer
