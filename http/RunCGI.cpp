#include "http/RunCGI.h"

#include <system_error>
#include <utility>
#include <vector>

#include "http/ProgramReport.h"
#include "http/ServerVariables.h"
#include "http/cls_HTTP.h"
#include "platform/programs/ProgramRunner.h"
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

ProgramResult NotStarted(std::errc reason) {
  ProgramResult result;
  result.failure = ProgramResult::Failure::kStart;
  result.error = static_cast<std::int32_t>(reason);
  return result;
}

ProgramStart StartOf(cls_HTTP& record, const ProgramFile& program, std::string_view arguments) {
  ProgramStart start;
  start.file = program.path;
  if (IsBatchFile(program.path)) {
    start.file = kBatchInterpreter;
    start.arguments.push_back(program.path);
  }
  AppendWords(arguments, start.arguments);
  start.environment = Environment(record);
  start.waitMilliseconds = record.CGITimeoutMilliseconds();
  start.outputLimit = kMaxCGIOutputBytes;
  return start;
}

Task<ProgramResult> Run(cls_HTTP& record, const ProgramFile& program, std::string_view arguments) {
  if (program.path.empty()) co_return NotStarted(program.reason);
  if (record.Runner() == nullptr) co_return NotStarted(std::errc::function_not_supported);
  if (record.AwaitsRemoteHost()) {
    auto name = record.FindRemoteHost();
    co_await name;
  }
  auto running = record.Runner()->Run(StartOf(record, program, arguments));
  co_return co_await running;
}

void Report(const cls_HTTP& record, const ProgramFile& program, const ProgramResult& result) {
  if (record.ParentControl() == nullptr) return;
  const std::string text = ProgramReport(program.name, result);
  if (!text.empty()) record.ParentControl()->ReportProgram(text);
}

}  // namespace

bool IsProgramName(std::string_view path) { return EndsWithNoCase(path, ".exe"); }

bool IsBatchFile(std::string_view path) { return EndsWithNoCase(path, ".bat"); }

ProgramFile FoundProgram(const cls_HTTP& record, const FoundEntry& found, std::string_view name) {
  ProgramFile program;
  program.path = record.ProgramPath(found);
  program.name = program.path.empty() ? std::string(name) : program.path;
  if (found.kind == EntryKind::kFile && !found.readable) program.reason = std::errc::permission_denied;
  return program;
}

Task<std::string> RunProgram(cls_HTTP& record, ProgramFile program, std::string arguments) {
  auto running = Run(record, program, arguments);
  ProgramResult result = co_await running;
  Report(record, program, result);
  if (result.failure != ProgramResult::Failure::kNone) co_return ErrorText(record, result.failure, result.error);
  co_return std::move(result.output);
}

}  // namespace TesselServer
