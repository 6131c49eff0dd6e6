// What it costs to process a page, from its file to its last byte.

#include <benchmark/benchmark.h>

#include <string>

#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

constexpr int kManyTags = 20'000;
constexpr std::size_t kMebibyte = 1024 * 1024;

// A site whose page.htm has that text and whose host answers with its arguments.
struct BenchmarkSite : Kit::PageSite {
  explicit BenchmarkSite(const std::string& page) {
    AllSwitchesOn();
    record.ServerPort("8080");
    host.answer = [](const Call& call) { return call.params; };
    tree.Write("page.htm", page);
  }
  using Call = Kit::FunctionHost::Call;
};

void Process(benchmark::State& state, BenchmarkSite& site) {
  std::size_t bytes = 0;
  for (auto _ : state) {
    site.host.calls.clear();
    const std::string result = site.Get("page.htm");
    bytes += result.size();
    benchmark::DoNotOptimize(result.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

void PageWithoutTags(benchmark::State& state) {
  BenchmarkSite site(std::string(1024, 'x'));
  Process(state, site);
}
BENCHMARK(PageWithoutTags);

void PageOfOneKibibyteWithFourEchoes(benchmark::State& state) {
  BenchmarkSite site(Repeated(std::string(220, 'x') + "<!--#echo var=\"SERVER_PORT\" -->", 4));
  Process(state, site);
}
BENCHMARK(PageOfOneKibibyteWithFourEchoes);

void TwentyThousandDifferentEchoes(benchmark::State& state) {
  std::string page;
  for (int i = 0; i < kManyTags; ++i) page += "<!--#echo var=\"NAME" + std::to_string(i) + "\" -->\n";
  BenchmarkSite site(page);
  Process(state, site);
}
BENCHMARK(TwentyThousandDifferentEchoes)->Unit(benchmark::kMillisecond);

void OneEchoTwentyThousandTimes(benchmark::State& state) {
  BenchmarkSite site(Repeated("<!--#echo var=\"SERVER_PORT\" -->\n", kManyTags));
  Process(state, site);
}
BENCHMARK(OneEchoTwentyThousandTimes)->Unit(benchmark::kMillisecond);

void TwentyThousandDifferentFunctions(benchmark::State& state) {
  std::string page;
  for (int i = 0; i < kManyTags; ++i) page += "<%= Function F(" + std::to_string(i) + ") %>\n";
  BenchmarkSite site(page);
  Process(state, site);
}
BENCHMARK(TwentyThousandDifferentFunctions)->Unit(benchmark::kMillisecond);

void OneFunctionTwentyThousandTimes(benchmark::State& state) {
  BenchmarkSite site(Repeated("<%= Function F(1) %>\n", kManyTags));
  Process(state, site);
}
BENCHMARK(OneFunctionTwentyThousandTimes)->Unit(benchmark::kMillisecond);

void TwentyThousandMissingIncludes(benchmark::State& state) {
  std::string page;
  for (int i = 0; i < kManyTags; ++i) page += "<!--#include file=\"missing" + std::to_string(i) + ".htm\" -->\n";
  BenchmarkSite site(page);
  Process(state, site);
}
BENCHMARK(TwentyThousandMissingIncludes)->Unit(benchmark::kMillisecond);

void IncludeOfOneMebibyte(benchmark::State& state) {
  BenchmarkSite site(Repeated("<!--#include file=\"large.txt\" -->\n", static_cast<int>(state.range(0))));
  site.tree.Write("large.txt", std::string(kMebibyte, 'x'));
  Process(state, site);
}
BENCHMARK(IncludeOfOneMebibyte)->Arg(1)->Arg(kManyTags)->Unit(benchmark::kMillisecond);

void LargestPage(benchmark::State& state) {
  BenchmarkSite site(std::string(cls_HTTP::kMaxPageBytes, 'x'));
  Process(state, site);
}
BENCHMARK(LargestPage)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace TesselServer
