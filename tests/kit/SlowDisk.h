// A folder on a file system that keeps its readers waiting: the program of tests/kit/SlowDisk, mounted as long as the
// test needs it. Its path comes from CMake, as TESSEL_SLOW_DISK.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/kit/ClientProcess.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

class SlowDisk {
 public:
  // Whether this machine has file systems in user space.
  static bool IsPossible() { return access("/dev/fuse", R_OK | W_OK) == 0; }

  // Shows the folder `shown`, for reading only, and sleeps `pause` milliseconds in each reading. It is mounted on a
  // folder that is made in `parent`. Its program is no child of this process, for tests that count those.
  explicit SlowDisk(const std::string& shown, int pause = 0,
                    const std::filesystem::path& parent = std::filesystem::temp_directory_path())
      : mountPoint_(parent), heldFile_(shown + ".held") {
    ClientProcess start(
        {"/bin/sh", "-c", R"("$@" &)", "sh", TESSEL_SLOW_DISK, shown, mountPoint_.Text(), std::to_string(pause)});
    if (!Until([this] { return Device() != before_; })) throw std::runtime_error("no slow disk: " + start.Errors());
    WaitFor(start);
  }
  SlowDisk(const SlowDisk&) = delete;
  SlowDisk& operator=(const SlowDisk&) = delete;
  ~SlowDisk() {
    Release();
    ClientProcess unmount({"fusermount3", "-u", "-z", mountPoint_.Text()});
    WaitFor(unmount);
  }

  std::string Path() const { return mountPoint_.Text(); }
  // That of the folder, in its parent.
  std::string Name() const { return mountPoint_.Path().filename().string(); }

  // Every reading that begins from now on waits until it is released; and so they do.
  void Hold() const { std::ofstream{heldFile_}; }
  // Likewise every call there is, whatever is asked for.
  void HoldAll() const { std::ofstream{heldFile_ + "-all"}; }
  void Release() const {
    std::filesystem::remove(heldFile_ + "-all");
    std::filesystem::remove(heldFile_);
  }

 private:
  dev_t Device() const {
    struct stat status {};
    stat(mountPoint_.Text().c_str(), &status);
    return status.st_dev;
  }
  static bool Until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    for (; !condition(); std::this_thread::yield()) {
      if (std::chrono::steady_clock::now() > end) return false;
    }
    return true;
  }
  static void WaitFor(ClientProcess& process) {
    Until([&process] { return process.HasEnded(); });
    process.Kill();
  }

  TemporaryTree mountPoint_;
  dev_t before_ = Device();  // of the folder itself
  std::string heldFile_;
};

}  // namespace TesselServer::Kit
