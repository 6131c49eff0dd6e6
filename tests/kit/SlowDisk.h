// A folder on a file system that keeps its readers waiting: the program of tests/kit/SlowDisk, mounted as long as the
// test needs it. Its path comes from CMake, as TESSEL_SLOW_DISK.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/kit/ClientProcess.h"
#include "tests/kit/LoopTools.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

class SlowDisk {
 public:
  // Whether this machine has file systems in user space.
  static bool IsPossible() { return access("/dev/fuse", R_OK | W_OK) == 0; }

  // Shows the folder `shown`, for reading only, and sleeps `pause` milliseconds in each reading.
  explicit SlowDisk(const std::string& shown, int pause = 0)
      : heldFile_(shown + ".held"), program_({TESSEL_SLOW_DISK, shown, mountPoint_.Text(), std::to_string(pause)}) {
    for (const auto start = Clock::now(); Device() == before_; std::this_thread::yield()) {
      if (program_.HasEnded() || Since(start) > kTooLong)
        throw std::runtime_error("no slow disk: " + program_.Errors());
    }
  }
  SlowDisk(const SlowDisk&) = delete;
  SlowDisk& operator=(const SlowDisk&) = delete;
  ~SlowDisk() {
    Release();
    ClientProcess unmount({"fusermount3", "-u", "-z", mountPoint_.Text()});
    WaitFor(unmount);
    WaitFor(program_);
  }

  std::string Path() const { return mountPoint_.Text(); }

  // Every reading that begins from now on waits until it is released; and so they do.
  void Hold() const { std::ofstream{heldFile_}; }
  void Release() const { std::filesystem::remove(heldFile_); }

 private:
  dev_t Device() const {
    struct stat status {};
    stat(mountPoint_.Text().c_str(), &status);
    return status.st_dev;
  }
  static void WaitFor(ClientProcess& process) {
    for (const auto start = Clock::now(); !process.HasEnded() && Since(start) < kTooLong;) std::this_thread::yield();
    process.Kill();
  }

  TemporaryTree mountPoint_;
  dev_t before_ = Device();  // of the folder itself
  std::string heldFile_;
  ClientProcess program_;
};

}  // namespace TesselServer::Kit
