// Runs a program for a request and takes what it prints. It is started by its path and not by the file that was opened:
// a script's interpreter needs a name to open, and the script wants to know its own. A user who can change files in a
// program folder can run any program anyway.
//
// Thread:    the host's thread only; the loop goes on while a program runs.
// Errors:    none; a program that cannot be run gives a text that says so. Every program that fails or is cut short
//            is reported to the host, which may stop or destroy the control then.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/files/FileSystem.h"
#include "platform/programs/ProgramRunner.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

// How much of a program's output counts. The rest is lost, which bounds what one request can cost.
inline constexpr std::size_t kMaxCGIOutputBytes = 1024;

// Whether a file of that name is run and never sent: it ends in ".exe", in any case.
bool IsProgramName(std::string_view path);

// Whether the batch interpreter runs the file: its name ends in ".bat", in any case.
bool IsBatchFile(std::string_view path);

// A program to run.
struct ProgramFile {
  std::string name;  // its path, or what was looked for
  bool isFound = false;
  std::errc reason = std::errc::no_such_file_or_directory;  // why it cannot be run where it is not
};

// The program that a look-up for `name` has found. One that this process may not read is permission_denied.
ProgramFile FoundProgram(const cls_HTTP& record, const FoundEntry& found, std::string_view name);

// Whether FindRemoteHost is to be awaited before the program is started: its name is in the environment.
bool AwaitsName(const cls_HTTP& record, const ProgramFile& program);

// Starts it; see ProgramRunner::Run. The record outlives the task.
Task<void> StartProgram(cls_HTTP& record, const ProgramFile& program, std::string_view arguments,
                        ProgramResult& result);

// What the result leaves in an answer: the output, or a text that says what failed. `program` is its name for reports,
// which go to the record's ParentControl.
std::string OutputOf(const cls_HTTP& record, std::string_view program, ProgramResult&& result);

// All of it: see cls_HTTP::RunCGI. What does not go well is reported to the record's ParentControl as well.
Task<std::string> RunProgram(cls_HTTP& record, ProgramFile program, std::string arguments);

}  // namespace TesselServer
