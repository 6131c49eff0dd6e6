// What it costs to turn the path of a request into an open file, or to find that there is none.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "control/answer/RequestTarget.h"
#include "platform/files/FileSystem.h"
#include "platform/world/World.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

constexpr int kFewFiles = 10;
constexpr int kManyFiles = 10'000;

// A site of `count` files in each of two folders, the root and "docs/old/notes", and of "a b-c.htm" in both.
class Site {
 public:
  explicit Site(std::int64_t count) : root_(tree_.Text(), SystemWorld()) {
    for (const std::string folder : {"", "docs/old/notes/"}) {
      for (std::int64_t i = 0; i < count; ++i) tree_.Write(folder + "file " + std::to_string(i) + ".htm", "");
      tree_.Write(folder + "a b-c.htm", "page");
    }
  }

  const RootFolder& Root() const { return root_; }

 private:
  Kit::TemporaryTree tree_;
  RootFolder root_;
};

// Each site is made once.
const Site& SiteOf(std::int64_t count) {
  static std::map<std::int64_t, Site> sites;
  return sites.try_emplace(count, count).first->second;
}

void FindPath(benchmark::State& state, std::string_view path, EntryKind expected) {
  const Site& site = SiteOf(state.range(0));
  if (site.Root().Find(path).kind != expected) state.SkipWithError("found something else");
  for (auto _ : state) {
    FoundEntry found = site.Root().Find(path);
    site.Root().Remember(found);
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK_CAPTURE(FindPath, AsSpelled, "a b-c.htm", EntryKind::kFile)->Arg(kFewFiles)->Arg(kManyFiles);
BENCHMARK_CAPTURE(FindPath, InAnotherCase, "A B-C.HTM", EntryKind::kFile)->Arg(kFewFiles)->Arg(kManyFiles);
BENCHMARK_CAPTURE(FindPath, Nested, "docs/old/notes/a b-c.htm", EntryKind::kFile)->Arg(kFewFiles)->Arg(kManyFiles);
BENCHMARK_CAPTURE(FindPath, NestedInAnotherCase, "DOCS/OLD/NOTES/A B-C.HTM", EntryKind::kFile)
    ->Arg(kFewFiles)
    ->Arg(kManyFiles);
BENCHMARK_CAPTURE(FindPath, Folder, "docs/old", EntryKind::kDirectory)->Arg(kFewFiles);
BENCHMARK_CAPTURE(FindPath, Missing, "missing.htm", EntryKind::kNone)->Arg(kFewFiles)->Arg(kManyFiles);
BENCHMARK_CAPTURE(FindPath, NestedMissing, "docs/old/notes/missing.htm", EntryKind::kNone)
    ->Arg(kFewFiles)
    ->Arg(kManyFiles);

void MapRequestPath(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(MapPath("/srv/www", "pictures/harbour%20view.png"));
}
BENCHMARK(MapRequestPath);

// The second look-up decodes more than the first one.
void ResolveRequestPath(benchmark::State& state, std::string_view path) {
  const Site& site = SiteOf(kFewFiles);
  const SecretFiles none("", e_AuthSource::GolbalFile, "");
  const std::vector<std::string> indexPages{"index.html"};
  for (auto _ : state) {
    auto entry = ResolveAtOnce(site.Root(), path, indexPages, none);
    if (!entry) entry = RunNow(ResolveTarget(site.Root(), std::string(path), indexPages, none, nullptr));
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK_CAPTURE(ResolveRequestPath, AsSpelled, "a%20b-c.htm");
BENCHMARK_CAPTURE(ResolveRequestPath, InAnotherCase, "A%20B-C.HTM");
BENCHMARK_CAPTURE(ResolveRequestPath, SecondLookUp, "a%20b%2Dc.htm");
BENCHMARK_CAPTURE(ResolveRequestPath, Missing, "missing.htm");

}  // namespace
}  // namespace TesselServer
