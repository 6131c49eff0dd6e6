// What it costs to encode and decode the texts of URLs, and to take values out of a query.

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "control/answer/RequestTarget.h"
#include "support/cls_QueryString.h"
#include "support/mURLEncode.h"

namespace TesselServer {
namespace {

// `text` again and again, until it has `size` bytes.
std::string Filled(std::string_view text, std::int64_t size) {
  std::string all;
  while (all.size() < static_cast<std::size_t>(size)) all += text;
  all.resize(static_cast<std::size_t>(size));
  return all;
}

void EncodeName(benchmark::State& state) {
  const std::string name = Filled("Harbour view (morning) - 2026-11-15.png", state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(URLEncode(name, false));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EncodeName)->Arg(39)->Arg(4'096);

void DecodePath(benchmark::State& state, std::string_view text) {
  const std::string path = Filled(text, state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(MapPath("/srv/www", path));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(DecodePath, Plain, "pictures/harbour.png/")->Arg(42)->Arg(4'096);
BENCHMARK_CAPTURE(DecodePath, Blanks, "harbour%20view%20")->Arg(34)->Arg(4'096);

// A query of `count` fields, "name0=value0&" and so on.
std::string Query(std::int64_t count) {
  std::string query;
  for (std::int64_t i = 0; i < count; ++i) {
    query.append("name").append(std::to_string(i)).append("=value").append(std::to_string(i)).append("&");
  }
  return query;
}

void CountQueryItems(benchmark::State& state) {
  cls_QueryString query;
  for (auto _ : state) {
    state.PauseTiming();  // a count is remembered until the text changes
    query.QueryString(Query(state.range(0)));
    state.ResumeTiming();
    benchmark::DoNotOptimize(query.Count("name3"));
    benchmark::DoNotOptimize(query.Count("none"));
  }
}
BENCHMARK(CountQueryItems)->Arg(5)->Arg(500);

void TakeQueryItem(benchmark::State& state) {
  cls_QueryString query;
  query.QueryString(Query(state.range(0)));
  const std::string last = "name" + std::to_string(state.range(0) - 1);
  for (auto _ : state) benchmark::DoNotOptimize(query.Item(last, 1, "&"));
}
BENCHMARK(TakeQueryItem)->Arg(5)->Arg(500);

}  // namespace
}  // namespace TesselServer
