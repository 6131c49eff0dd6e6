// What it costs to write the fixed parts of an answer: its header, its log line.

#include <benchmark/benchmark.h>

#include "control/answer/AccessLog.h"
#include "http/cls_HTTP.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

void BuildHeader(benchmark::State& state) {
  cls_HTTP record(SystemWorld());
  record.ServerSoftware("Orvane Tessel/1.1");
  for (auto _ : state) benchmark::DoNotOptimize(record.BuildHeader("200", 1024, "text/html", true, ""));
}
BENCHMARK(BuildHeader);

void WriteLogLine(benchmark::State& state) {
  World& world = SystemWorld();
  for (auto _ : state) {
    const std::int64_t now = world.UtcSeconds();
    benchmark::DoNotOptimize(AccessLogLine("127.0.0.1", LogTimestamp(now, world.BiasMinutes(now)),
                                           "GET /pictures/harbour%20view.png HTTP/1.1", "200", 1169,
                                           "http://127.0.0.1:8080/", "Mozilla/5.0 (X11; Linux x86_64)"));
  }
}
BENCHMARK(WriteLogLine);

void FindBuiltInContentType(benchmark::State& state) {
  cls_HTTP record(SystemWorld());
  record.ContentTypeSource(static_cast<e_ContentTypeSource>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(record.ContentTypeOf("\\SRV\\WWW\\PICTURES\\HARBOUR.PNG"));
}
BENCHMARK(FindBuiltInContentType)
    ->Arg(static_cast<int>(e_ContentTypeSource::Registry))
    ->Arg(static_cast<int>(e_ContentTypeSource::Internal));

}  // namespace
}  // namespace TesselServer
