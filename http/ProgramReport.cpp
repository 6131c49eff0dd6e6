#include "http/ProgramReport.h"

#include <algorithm>
#include <system_error>

#include "platform/world/SystemErrorText.h"
#include "support/Format.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

using Failure = ProgramResult::Failure;

constexpr std::size_t kMaxNameBytes = 4096;  // no path is longer; a page may look for any text

// The name as part of one line.
std::string InOneLine(std::string_view name) {
  std::string text(name.substr(0, kMaxNameBytes));
  std::replace_if(text.begin(), text.end(), IsControl, '?');
  return text;
}

std::string ErrorText(std::int32_t error) { return "[" + std::to_string(error) + "] " + SystemErrorText(error); }

std::string HowItEnded(const ProgramResult& result) {
  if (result.failure == Failure::kRead) return ", output not read, " + ErrorText(result.error);
  if (!result.ended) return ", time-out, it runs on";
  if (result.signal) return ", signal " + std::to_string(*result.signal);
  if (result.exitCode.value_or(0) != 0) return ", exit code " + std::to_string(*result.exitCode);
  return {};
}

}  // namespace

std::string ProgramReport(std::string_view program, const ProgramResult& result) {
  std::string report = "Program " + InOneLine(program) + ":";
  if (result.failure == Failure::kPipe || result.failure == Failure::kStart) {
    if (result.error == static_cast<std::int32_t>(std::errc::operation_canceled)) return {};
    return report + " not started, " + ErrorText(result.error);
  }
  std::string what = HowItEnded(result);
  if (result.outputWasCut) what += ", output cut at " + std::to_string(result.output.size()) + " bytes";
  if (what.empty()) return {};
  const double seconds = static_cast<double>(result.milliseconds) / 1000;
  return report + what.substr(1) + ", after " + FormatNumber(seconds, "0.000") + " s";
}

}  // namespace TesselServer
