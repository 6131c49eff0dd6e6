// What a folder's page costs, by the number of its entries: the time for which a listing holds the thread.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include "files/cls_DirListing.h"
#include "platform/files/FileSystem.h"
#include "platform/files/FolderCache.h"
#include "platform/world/World.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;

// A folder of `count` entries, one in ten of them a folder, as long as the object lives.
class FilledFolder {
 public:
  explicit FilledFolder(std::int64_t count) {
    std::string pattern = (fs::temp_directory_path() / "tessel-listing-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    for (std::int64_t i = 0; i < count; ++i) {
      const fs::path entry = path_ / ("entry number " + std::to_string(i) + ".txt");
      if (i % 10 == 0) {
        fs::create_directory(entry);
      } else {
        std::ofstream(entry) << "text";
      }
    }
  }
  FilledFolder(const FilledFolder&) = delete;
  FilledFolder& operator=(const FilledFolder&) = delete;
  ~FilledFolder() { fs::remove_all(path_); }

  std::string Path() const { return path_.string(); }
  OpenFile Open() const { return OpenFile(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); }

 private:
  fs::path path_;
};

void List(benchmark::State& state, const FilledFolder& folder, FolderCache* cache) {
  const OpenFile directory = folder.Open();
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto names = cache != nullptr ? cache->NamesOf("", directory.Descriptor()) : nullptr;
    cls_DirListing listing(SystemWorld(), directory, {"htaccess.txt", {}, {}}, std::move(names));
    std::string localDir = "/srv/www/folder";
    std::string urlPath = "/folder/";
    bytes = listing.GetDirListing(localDir, urlPath, "My server").size();
  }
  state.counters["page_bytes"] = static_cast<double>(bytes);
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// A folder that is read.
void ListFolder(benchmark::State& state) { List(state, FilledFolder(state.range(0)), nullptr); }
BENCHMARK(ListFolder)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// One that is remembered, as it is once the latest change is two seconds old.
void ListRememberedFolder(benchmark::State& state) {
  const FilledFolder folder(state.range(0));
  FolderCache cache(folder.Path(), SystemWorld());
  std::this_thread::sleep_for(std::chrono::nanoseconds(kSettledNanoseconds) + std::chrono::milliseconds(50));
  cache.NamesOf("", folder.Open().Descriptor());
  List(state, folder, &cache);
}
BENCHMARK(ListRememberedFolder)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace TesselServer
