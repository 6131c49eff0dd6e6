// Replays folders of inputs through a fuzz target, as an ordinary test: each file whole, and each of its beginnings up
// to kMaxBeginnings bytes, for a parser's worst inputs often are good ones cut short.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/Require.h"

namespace {

constexpr std::size_t kMaxBeginnings = 512;

void Run(const std::vector<std::uint8_t>& bytes) {
  // A copy of its own size, so that a sanitizer sees a read behind the end.
  const std::vector<std::uint8_t> exact(bytes);
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

void Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
  TesselServer::Require(in.good() || in.eof(), "an input can be read");
  Run(bytes);
  while (!bytes.empty()) {
    bytes.resize(std::min(bytes.size() - 1, kMaxBeginnings));
    Run(bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      Replay(entry.path());
      ++replayed;
    }
  }
  std::printf("%d inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
