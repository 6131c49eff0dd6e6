// What it costs to process a page, from its file to its last byte.

#include <benchmark/benchmark.h>

#include <string>

#include "http/TagNormaliser.h"
#include "http/VariableEcho.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

constexpr int kManyTags = 20'000;
constexpr std::size_t kKibibyte = 1024;
constexpr std::size_t kMebibyte = 1024 * 1024;

const std::string kEcho = "<!--#echo var=\"SERVER_PORT\" -->";
const std::string kInclude = "<!--#include file=\"part.txt\" -->";
const std::string kIncludedPage = "<!--#include file=\"part.htm\" -->";

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

// HTML of that size without a tag of the server's, in lines of usual length.
std::string PlainHtml(std::size_t size) {
  const std::string line = "<p class=\"note\">The harbour lies <a href=\"view.htm\">below the hill</a>.</p>\r\n";
  return Repeated(line, static_cast<int>(size / line.size()));
}

// `text` with `count` times the same tag spread over it.
std::string WithTags(const std::string& text, const std::string& tag, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t begin = text.size() * i / count;
    all.append(text, begin, text.size() * (i + 1) / count - begin).append(tag);
  }
  return all;
}

void NormalisePage(benchmark::State& state, const std::string& page) {
  for (auto _ : state) benchmark::DoNotOptimize(NormaliseTags(page));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(page.size()));
}
BENCHMARK_CAPTURE(NormalisePage, OneKibibyteWithoutTags, PlainHtml(kKibibyte));
BENCHMARK_CAPTURE(NormalisePage, OneKibibyteWithFourTags, WithTags(PlainHtml(kKibibyte), kEcho, 4));
BENCHMARK_CAPTURE(NormalisePage, SixtyFourKibibytesWithoutTags, PlainHtml(64 * kKibibyte));
BENCHMARK_CAPTURE(NormalisePage, SixtyFourKibibytesWithFourTags, WithTags(PlainHtml(64 * kKibibyte), kEcho, 4));
BENCHMARK_CAPTURE(NormalisePage, TwentyThousandTags, Repeated(kEcho + "\n", kManyTags));

void EchoIntoPage(benchmark::State& state, const std::string& text) {
  BenchmarkSite site("");
  const std::string compact = NormaliseTags(text);
  for (auto _ : state) {
    Page page(compact);
    RunNow(EchoVariables(site.record, page));
    benchmark::DoNotOptimize(page.Text());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK_CAPTURE(EchoIntoPage, OneKibibyteWithoutTags, PlainHtml(kKibibyte));
BENCHMARK_CAPTURE(EchoIntoPage, OneKibibyteWithFourTags, WithTags(PlainHtml(kKibibyte), kEcho, 4));
BENCHMARK_CAPTURE(EchoIntoPage, SixtyFourKibibytesWithoutTags, PlainHtml(64 * kKibibyte));
BENCHMARK_CAPTURE(EchoIntoPage, SixtyFourKibibytesWithFourTags, WithTags(PlainHtml(64 * kKibibyte), kEcho, 4));

// The files are read anew each time.
void WholePage(benchmark::State& state, const std::string& text) {
  BenchmarkSite site(text);
  site.tree.Write("part.txt", PlainHtml(600));
  site.tree.Write("part.htm", PlainHtml(600));
  Process(state, site);
}
BENCHMARK_CAPTURE(WholePage, OneKibibyteWithoutTags, PlainHtml(kKibibyte));
BENCHMARK_CAPTURE(WholePage, OneKibibyteWithFourEchoes, WithTags(PlainHtml(kKibibyte), kEcho, 4));
BENCHMARK_CAPTURE(WholePage, OneEchoOneInclude, WithTags(PlainHtml(300), kEcho, 1) + kInclude);
BENCHMARK_CAPTURE(WholePage, OneEchoOneIncludedPage, WithTags(PlainHtml(300), kEcho, 1) + kIncludedPage);
BENCHMARK_CAPTURE(WholePage, SixtyFourKibibytesWithoutTags, PlainHtml(64 * kKibibyte));
BENCHMARK_CAPTURE(WholePage, SixtyFourKibibytesWithFourEchoes, WithTags(PlainHtml(64 * kKibibyte), kEcho, 4));

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
