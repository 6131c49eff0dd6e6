#include "host/StatusJson.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace TesselServer {
namespace {

// The whole numbers in `text`, separated by `separator`; none when one of them is something else.
std::vector<std::int64_t> Numbers(std::string_view text, char separator) {
  std::vector<std::int64_t> numbers;
  for (const char* at = text.data();; ++at) {
    std::int64_t number = 0;
    const auto [stopped, error] = std::from_chars(at, text.data() + text.size(), number);
    if (error != std::errc()) return {};
    numbers.push_back(number);
    at = stopped;
    if (at == text.data() + text.size()) return numbers;
    if (*at != separator) return {};
  }
}

std::string NumberOrNull(std::optional<std::int64_t> value) { return value ? std::to_string(*value) : "null"; }

std::string NumberAt(const std::vector<std::int64_t>& numbers, std::size_t count, std::size_t index) {
  return NumberOrNull(numbers.size() == count ? std::optional(numbers[index]) : std::nullopt);
}

// "12K" as 12.
std::string Kilobytes(std::string_view text) {
  return text.ends_with('K') ? NumberAt(Numbers(text.substr(0, text.size() - 1), ','), 1, 0)
                             : NumberOrNull(std::nullopt);
}

// "dd:hh:mm:ss" in seconds.
std::string Seconds(std::string_view upTime) {
  const auto parts = Numbers(upTime, ':');
  if (parts.size() != 4) return NumberOrNull(std::nullopt);
  return NumberOrNull(((parts[0] * 24 + parts[1]) * 60 + parts[2]) * 60 + parts[3]);
}

}  // namespace

Status StatusOf(const Tessel& tessel) {
  return {
      tessel.Version(),         tessel.Stats_Requests(), tessel.Stats_Errors(),         tessel.Stats_BytesReceived(),
      tessel.Stats_BytesSent(), tessel.Stats_UpTime(),   tessel.Stats_FreeConnections()};
}

std::string JsonString(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string json = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      json += {'\\', c};
    } else if (byte >= 0x20 && byte < 0x7F) {
      json += c;
    } else {
      json += {'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return json + '"';
}

std::string StatusJson(const Status& status) {
  const auto connections = Numbers(status.freeConnections, '/');
  const std::pair<const char*, std::string> members[] = {
      {"version", JsonString(status.version)},
      {"requests", NumberAt(Numbers(status.requests, ','), 1, 0)},
      {"errors", NumberAt(Numbers(status.errors, ','), 1, 0)},
      {"kilobytesReceived", Kilobytes(status.bytesReceived)},
      {"kilobytesSent", Kilobytes(status.bytesSent)},
      {"upTime", JsonString(status.upTime)},
      {"upTimeSeconds", Seconds(status.upTime)},
      {"freeConnections", NumberAt(connections, 2, 0)},
      {"maxConnections", NumberAt(connections, 2, 1)},
  };
  std::string json;
  for (const auto& [name, value] : members)
    json += (json.empty() ? "{\n  " : ",\n  ") + JsonString(name) + ": " + value;
  return json + "\n}\n";
}

}  // namespace TesselServer
