#include "host/FileAnswers.h"

#include <string>

#include "host/Names.h"
#include "host/RateDrawing.h"
#include "host/StatusJson.h"

namespace TesselServer {

void FileAnswers::Answer(std::int32_t index, std::string_view path) const {
  const auto send = [&](const std::string& data, const char* contentType) {
    tessel_.TrapFileDataEX(index, data, false, contentType, "200", "Cache-Control: no-store");
  };
  if (EqualNames(path, "status.json")) return send(StatusJson(StatusOf(tessel_)), "application/json");
  if (EqualNames(path, "requests.svg")) return send(RateDrawing(rate_.PerSecond()), "image/svg+xml");
  if (EqualNames(path, "form.echo")) return send(tessel_.RequestBody(index), "text/plain; charset=utf-8");
  tessel_.TrapFileData(index, "", true);
}

}  // namespace TesselServer
