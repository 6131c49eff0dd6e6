// The values of one request, as server variables, page processors and programs see them.
#pragma once

#include <cstdint>
#include <string>

namespace TesselServer {

// Each text is "" when the request does not carry it. All come from the client except RequestFile, RemoteAddr and
// RequestFlags, so none of them may ever be used in a response header.
struct RequestInfo {
  std::string RequestFile;        // the file the path was mapped to
  std::string RemoteAddr;         // dotted address of the client
  std::string RemoteHost;         // name of the client, once REMOTE_HOST has been asked for
  std::string UserAgent;          // header "User-Agent"
  std::int32_t RequestFlags = 0;  // kept for the owner of the record; nothing here reads it
  std::string QueryString;        // what follows "?" in the URL
  std::string DocumentURI;        // the request path as sent
  std::string ScriptName;         // the file part of the path
  std::string Accept;             // header "Accept"
  std::string Referer;            // header "Referer"
  std::string ContentLength;      // header "Content-Length", as text
  std::string ContentType;        // header "Content-Type"
  std::string RequestMethod;      // "GET" or "POST"
  std::string RemoteUser;         // authenticated user
  std::string AuthType = "Basic";
};

}  // namespace TesselServer
