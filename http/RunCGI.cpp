#include "http/RunCGI.h"

#include <system_error>
#include <utility>
#include <vector>

#include "http/ProgramReport.h"
#include "http/ServerVariables.h"
#include "http/cls_HTTP.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr const char* kBatchInterpreter = "/bin/sh";
constexpr std::string_view kBreak = "<BR>\r\n";

void AppendWords(std::string_view text, std::vector<std::string>& words) {
  while (!text.empty()) {
    const std::size_t end = text.find(' ');
    if (end != 0) words.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
}

std::vector<std::pair<std::string, std::string>> Environment(cls_HTTP& record) {
  std::vector<std::pair<std::string, std::string>> environment;
  environment.reserve(kServerVariableCount);
  for (const std::string_view name : ServerVariableNames()) environment.emplace_back(name, record.ServerVariable(name));
  return environment;
}

std::string_view WhatFailed(ProgramResult::Failure failure) {
  switch (failure) {
    case ProgramResult::Failure::kPipe:
      return "Create::Pipe Failed.";
    case ProgramResult::Failure::kRead:
      return "ReadFile Failed.";
    default:
      return "Create::Process Failed.";
  }
}

// kept: "<BR>" and a line end after each part, so a page that replaces line ends gets two breaks
std::string ErrorText(const cls_HTTP& record, ProgramResult::Failure failure, std::int32_t error) {
  std::string text;
  text.append(WhatFailed(failure)).append(kBreak);
  text.append("Error Number: ").append(std::to_string(error)).append(kBreak);
  text.append("Error Desc: ").append(record.SystemErrorText(error)).append(kBreak);
  return text;
}

ProgramStart StartOf(cls_HTTP& record, std::string path, std::string_view arguments) {
  ProgramStart start;
  if (IsBatchFile(path)) {
    start.arguments.push_back(std::move(path));
    path = kBatchInterpreter;
  }
  start.file = std::move(path);
  AppendWords(arguments, start.arguments);
  start.makeEnvironment = [&record] { return Environment(record); };
  start.waitMilliseconds = record.CGITimeoutMilliseconds();
  start.outputLimit = kMaxCGIOutputBytes;
  return start;
}

}  // namespace

bool IsProgramName(std::string_view path) { return EndsWithNoCase(path, ".exe"); }

bool IsBatchFile(std::string_view path) { return EndsWithNoCase(path, ".bat"); }

ProgramFile FoundProgram(const cls_HTTP& record, const FoundEntry& found, std::string_view name) {
  ProgramFile program;
  program.name = record.ProgramPath(found);
  program.isFound = !program.name.empty();
  if (!program.isFound) program.name = name;
  if (found.kind == EntryKind::kFile && !found.readable) program.reason = std::errc::permission_denied;
  return program;
}

bool AwaitsName(const cls_HTTP& record, const ProgramFile& program) {
  return program.isFound && record.Runner() != nullptr && record.AwaitsRemoteHost();
}

Task<void> StartProgram(cls_HTTP& record, const ProgramFile& program, std::string_view arguments,
                        ProgramResult& result) {
  if (program.isFound && record.Runner() != nullptr) {
    return record.Runner()->Run(StartOf(record, program.name, arguments), result);
  }
  result.failure = ProgramResult::Failure::kStart;
  result.error = static_cast<std::int32_t>(program.isFound ? std::errc::function_not_supported : program.reason);
  return {};
}

std::string OutputOf(const cls_HTTP& record, std::string_view program, ProgramResult&& result) {
  if (record.ParentControl() != nullptr) {
    const std::string report = ProgramReport(program, result);
    if (!report.empty()) record.ParentControl()->ReportProgram(report);
  }
  if (result.failure != ProgramResult::Failure::kNone) return ErrorText(record, result.failure, result.error);
  return std::move(result.output);
}

Task<std::string> RunProgram(cls_HTTP& record, ProgramFile program, std::string arguments) {
  if (AwaitsName(record, program)) {
    auto name = record.FindRemoteHost();
    co_await name;
  }
  ProgramResult result;
  auto running = StartProgram(record, program, arguments, result);
  if (running) co_await running;
  co_return OutputOf(record, program.name, std::move(result));
}

}  // namespace TesselServer
