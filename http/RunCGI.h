// Runs a program for a request and takes what it prints. It is started by its path and not by the file that was opened:
// a script's interpreter needs a name to open, and the script wants to know its own. Whoever can change files in a
// program folder can run what he likes anyway.
//
// Thread:    the host's thread only; it waits inside the call for as long as the record's CGITimeout.
// Errors:    none; a program that cannot be run gives a text that says so.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TesselServer {

class cls_HTTP;

// How much of a program's output counts. The rest is lost, which bounds what one request can cost.
inline constexpr std::size_t kMaxCGIOutputBytes = 1024;

// Whether a file of that name is run and never sent: it ends in ".exe", in any case.
bool IsProgramName(std::string_view path);

// Whether the batch interpreter runs the file: its name ends in ".bat", in any case.
bool IsBatchFile(std::string_view path);

// See cls_HTTP::RunCGI.
std::string RunProgram(cls_HTTP& record, const std::string& commandFile, std::string_view arguments);

}  // namespace TesselServer
