#include "host/FunctionAnswers.h"

#include <ctime>

#include "host/Echo.h"
#include "host/Names.h"

namespace TesselServer {
namespace {

struct Statistic {
  const char* name;
  std::string (Tessel::*text)() const;
};
constexpr Statistic kStatistics[] = {
    {"Version", &Tessel::Version},
    {"UpTime", &Tessel::Stats_UpTime},
    {"Requests", &Tessel::Stats_Requests},
    {"Errors", &Tessel::Stats_Errors},
    {"BytesSent", &Tessel::Stats_BytesSent},
    {"BytesReceived", &Tessel::Stats_BytesReceived},
    {"FreeConnections", &Tessel::Stats_FreeConnections},
};

std::string Now() {
  const auto now = std::time(nullptr);
  char text[sizeof "2024-02-29 18:20:05 and some more"];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&now))};
}

}  // namespace

void FunctionAnswers::Answer(std::int32_t index, std::string_view name) const {
  if (const auto text = Text(index, name)) tessel_.ReturnData(index, *text);
}

std::optional<std::string> FunctionAnswers::Text(std::int32_t index, std::string_view name) const {
  for (const auto& statistic : kStatistics) {
    if (EqualNames(name, statistic.name)) return (tessel_.*statistic.text)();
  }
  if (EqualNames(name, "Now")) return Now();
  if (EqualNames(name, "Echo")) return EchoText(tessel_.QueryString(index, ""), tessel_.HTTPHeader(index));
  return std::nullopt;
}

}  // namespace TesselServer
