// The report to the host of a program that was not run, failed or was cut short, which its client does not see: one
// line for a status bar or a log.
//
// Thread:    any.
// Errors:    none but those of memory running out.
#pragma once

#include <string>
#include <string_view>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer {

// "" for a program that ended with exit code 0 and all of its output, and for one whose answer is no longer
// wanted (ECANCELED). `program` is its path, or the name that was looked for: 4,096 bytes of it, "?" for control
// characters.
//
//   Program /srv/cgi/a.exe: exit code 3, after 0.012 s
//   Program /srv/cgi/a.exe: signal 11, output cut at 1024 bytes, after 0.203 s
//   Program /srv/cgi/a.exe: time-out, it runs on, after 30.000 s
//   Program /srv/cgi/a.exe: not started, [2] No such file or directory
//   Program /srv/cgi/a.exe: output not read, [5] Input/output error, after 0.001 s
std::string ProgramReport(std::string_view program, const ProgramResult& result);

}  // namespace TesselServer
