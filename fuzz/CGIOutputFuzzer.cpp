// Outputs of programs: whatever they print, nothing of it is lost or made up, and no value ends a header line.
//
// The input is the output.
#include <string>

#include "fuzz/Require.h"
#include "http/CGIOutput.h"

namespace {

using TesselServer::CGIOutput;
using TesselServer::Require;

void CheckWhole(const CGIOutput& parsed, std::string_view output) {
  Require(output.starts_with("HTTP/"), "a whole response says so");
  Require(parsed.wholeHead + parsed.body == output, "a whole response is left as it is");
  Require(parsed.wholeHead.empty() || parsed.wholeHead.ends_with('\n'), "its head ends with a line");
  Require((parsed.statusCode + parsed.contentType + parsed.extraHeaders).empty(), "nothing is read from it");
}

void CheckExtraHeaders(std::string_view lines) {
  while (!lines.empty()) {
    const auto end = lines.find("\r\n");
    Require(end != std::string_view::npos && end != 0, "each further line has its end, and none is blank");
    const auto line = lines.substr(0, end);
    Require(line.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos, "no line holds another");
    const auto colon = line.find(": ");
    Require(colon != std::string_view::npos && colon != 0, "each further line is a field");
    lines.remove_prefix(end + 2);
  }
}

void CheckParsed(const CGIOutput& parsed, std::string_view output) {
  Require(parsed.wholeHead.empty(), "only a whole response has its own head");
  Require(!parsed.contentType.empty(), "there is always a type");
  Require(parsed.contentType.find_first_of("\r\n") == std::string::npos, "the type is one line");
  Require(parsed.statusCode.empty() ||
              (parsed.statusCode.size() == 3 && parsed.statusCode >= "200" && parsed.statusCode <= "599"),
          "a status is a code");
  Require(output.ends_with(parsed.body), "the body is the end of the output");
  const auto header = output.substr(0, output.size() - parsed.body.size());
  Require(header.empty() || header.ends_with("\n\n") || header.ends_with("\n\r\n"), "a blank line ends the header");
  if (header.empty()) Require((parsed.statusCode + parsed.extraHeaders).empty(), "without a header nothing is said");
  CheckExtraHeaders(parsed.extraHeaders);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto output = TesselServer::AsText(data, size);
  const CGIOutput parsed = TesselServer::ParseCGIOutput(std::string(output));
  if (parsed.isWholeResponse) {
    CheckWhole(parsed, output);
  } else {
    CheckParsed(parsed, output);
  }
  return 0;
}
