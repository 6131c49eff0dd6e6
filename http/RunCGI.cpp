#include "http/RunCGI.h"

#include <system_error>
#include <utility>
#include <vector>

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

// kept: "<BR>" and a line end behind each part, so a page that replaces line ends gets two breaks
std::string ErrorText(const cls_HTTP& record, ProgramResult::Failure failure, std::int32_t error) {
  std::string text;
  text.append(WhatFailed(failure)).append(kBreak);
  text.append("Error Number: ").append(std::to_string(error)).append(kBreak);
  text.append("Error Desc: ").append(record.SystemErrorText(error)).append(kBreak);
  return text;
}

std::string NotStarted(const cls_HTTP& record, std::errc reason) {
  return ErrorText(record, ProgramResult::Failure::kStart, static_cast<std::int32_t>(reason));
}

}  // namespace

bool IsProgramName(std::string_view path) { return EndsWithNoCase(path, ".exe"); }

bool IsBatchFile(std::string_view path) { return EndsWithNoCase(path, ".bat"); }

std::string RunProgram(cls_HTTP& record, const std::string& commandFile, std::string_view arguments) {
  if (commandFile.empty()) return NotStarted(record, std::errc::no_such_file_or_directory);
  if (record.Runner() == nullptr) return NotStarted(record, std::errc::function_not_supported);
  ProgramStart start;
  start.file = commandFile;
  if (IsBatchFile(commandFile)) {
    start.file = kBatchInterpreter;
    start.arguments.push_back(commandFile);
  }
  AppendWords(arguments, start.arguments);
  start.environment = Environment(record);
  start.waitMilliseconds = record.CGITimeoutMilliseconds();
  start.outputLimit = kMaxCGIOutputBytes;
  ProgramResult result = record.Runner()->Run(start);
  if (result.failure != ProgramResult::Failure::kNone) return ErrorText(record, result.failure, result.error);
  return std::move(result.output);
}

}  // namespace TesselServer
