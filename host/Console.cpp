#include "host/Console.h"

#include <TesselServer/Printable.h>

namespace TesselServer {
namespace {

// What a line of the access log that is no request's begins with; the control has made the others printable already.
constexpr char kRemark = '#';

LogWriter::Sink SinkOf(StandardStream stream) {
  return [stream](std::string_view bytes) { return WriteWhole(stream, bytes); };
}

}  // namespace

Console::~Console() {
  if (!output_ || !error_) return;
  output_->End();
  error_->End();
  const auto limit = std::chrono::steady_clock::now() + kEndMilliseconds;
  output_->WaitUntil(limit);
  error_->WaitUntil(limit);
}

void Console::Log(std::string_view line) {
  if (line.starts_with(kRemark)) return Put(StandardStream::Output, Printable(line));
  Put(StandardStream::Output, line);
}

void Console::Tell(std::string_view text) { Put(StandardStream::Error, Printable(text)); }

void Console::Release() {
  output_.emplace(SinkOf(StandardStream::Output), "#");
  error_.emplace(SinkOf(StandardStream::Error), "tessel: ");
  for (const auto& [stream, line] : std::exchange(kept_, {})) Put(stream, line);
}

void Console::Put(StandardStream stream, std::string_view line) {
  if (!output_ || !error_) {
    kept_.emplace_back(stream, line);
  } else {
    (stream == StandardStream::Output ? *output_ : *error_).Put(line);
  }
}

}  // namespace TesselServer
