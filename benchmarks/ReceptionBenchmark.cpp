// What it costs to turn a connection's bytes into a request and a path into an open file.

#include <benchmark/benchmark.h>

#include <string>

#include "control/internal/Reception.h"
#include "control/internal/RequestTarget.h"
#include "platform/FileSystem.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

// What a browser sends for a picture.
const std::string kBrowserRequest =
    "GET /pictures/harbour%20view.png?size=large HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nConnection: keep-alive\r\n"
    "User-Agent: Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/120.0 Safari/537.36\r\n"
    "Accept: image/avif,image/webp,image/apng,image/svg+xml,image/*,*/*;q=0.8\r\n"
    "Referer: http://127.0.0.1:8080/pictures/index.html\r\nAccept-Encoding: gzip, deflate, br\r\n"
    "Accept-Language: en-US,en;q=0.9\r\n\r\n";

void ReceiveGet(benchmark::State& state) {
  for (auto _ : state) {
    Reception reception;
    benchmark::DoNotOptimize(reception.Data(kBrowserRequest));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBrowserRequest.size()));
}
BENCHMARK(ReceiveGet);

void ReceivePost(benchmark::State& state) {
  const auto length = static_cast<std::size_t>(state.range(0));
  const std::string request =
      "POST /form HTTP/1.0\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
      std::to_string(length) + "\r\n\r\n" + std::string(length, 'b');
  for (auto _ : state) {
    Reception reception;
    benchmark::DoNotOptimize(reception.Data(request));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(request.size()));
}
BENCHMARK(ReceivePost)->Arg(100)->Arg(50'000);

void MapRequestPath(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(MapPath("/srv/www", "pictures/harbour%20view.png"));
}
BENCHMARK(MapRequestPath);

// 0: as spelled on disk; 1: in another case; 2: with a code that only the second look-up decodes
void ResolveRequestPath(benchmark::State& state) {
  const Kit::TemporaryTree tree;
  tree.Write("docs/a b-c.htm", "page");
  const RootFolder root(tree.Text());
  const char* const paths[] = {"docs/a%20b-c.htm", "DOCS/A%20B-C.HTM", "docs/a%20b%2Dc.htm"};
  const auto isSecret = [](const FoundEntry&) { return false; };
  for (auto _ : state) {
    benchmark::DoNotOptimize(ResolveTarget(root, paths[state.range(0)], "index.html", isSecret));
  }
}
BENCHMARK(ResolveRequestPath)->DenseRange(0, 2);

}  // namespace
}  // namespace TesselServer
