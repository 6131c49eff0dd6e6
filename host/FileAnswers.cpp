#include "host/FileAnswers.h"

#include <string>

#include "host/Names.h"
#include "host/RateDrawing.h"
#include "host/StatusJson.h"

namespace TesselServer {

void FileAnswers::Answer(std::int32_t index, std::string_view path) const {
  const auto send = [&](const std::string& data, const char* contentType, const char* status = "200") {
    tessel_.TrapFileDataEX(index, data, false, contentType, status, "Cache-Control: no-store");
  };
  if (EqualNames(path, "status.json")) return send(StatusJson(StatusOf(tessel_)), "application/json");
  if (EqualNames(path, "requests.svg")) return send(RateDrawing(rate_.PerSecond()), "image/svg+xml");
  if (EqualNames(path, "form.echo")) {
    const std::string body = tessel_.RequestBody(index);
    const bool isTooLong = body.size() > kMaxEchoBytes;
    return send(isTooLong ? "" : body, "text/plain; charset=utf-8", isTooLong ? "400" : "200");
  }
  tessel_.TrapFileData(index, "", true);
}

}  // namespace TesselServer
