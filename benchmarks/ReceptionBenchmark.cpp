// What it costs to turn a connection's bytes into a request.

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "control/connection/Reception.h"

namespace TesselServer {
namespace {

// What a browser sends for a picture.
const std::string kBrowserRequest =
    "GET /pictures/harbour%20view.png?size=large HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nConnection: keep-alive\r\n"
    "User-Agent: Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/120.0 Safari/537.36\r\n"
    "Accept: image/avif,image/webp,image/apng,image/svg+xml,image/*,*/*;q=0.8\r\n"
    "Referer: http://127.0.0.1:8080/pictures/index.html\r\nAccept-Encoding: gzip, deflate, br\r\n"
    "Accept-Language: en-US,en;q=0.9\r\n\r\n";

// A form with a body of that length.
std::string PostOf(std::size_t length) {
  return "POST /form HTTP/1.0\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
         std::to_string(length) + "\r\n\r\n" + std::string(length, 'b');
}

void ReceiveGet(benchmark::State& state) {
  for (auto _ : state) {
    Reception reception;
    benchmark::DoNotOptimize(reception.Data(kBrowserRequest));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kBrowserRequest.size()));
}
BENCHMARK(ReceiveGet);

// The work that one client can make of a request by sending each of its bytes alone.
void ReceiveByteByByte(benchmark::State& state, const std::string& request) {
  const std::string_view bytes = request;
  for (auto _ : state) {
    Reception reception;
    for (std::size_t i = 0; i < bytes.size(); ++i) benchmark::DoNotOptimize(reception.Data(bytes.substr(i, 1)));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK_CAPTURE(ReceiveByteByByte, Get, kBrowserRequest);
BENCHMARK_CAPTURE(ReceiveByteByByte, Post, PostOf(1'000));
BENCHMARK_CAPTURE(ReceiveByteByByte, LongHeader, "PUT / HTTP/1.0\r\nX: " + std::string(60'000, 'x') + "\r\n\r\n");

void ReceivePost(benchmark::State& state) {
  const std::string request = PostOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Reception reception;
    benchmark::DoNotOptimize(reception.Data(request));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(request.size()));
}
BENCHMARK(ReceivePost)->Arg(100)->Arg(50'000);

}  // namespace
}  // namespace TesselServer
