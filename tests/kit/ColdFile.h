// Files whose bytes are on their disk alone.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer::Kit {

inline constexpr char kNoColdFiles[] = "the system keeps in memory what it is asked to forget";
// The bytes were there before the system had said that they were not, however often the test tried.
inline constexpr char kFastDisk[] = "the disk of this machine is as fast as its memory now";

// Has the system forget the bytes of a file that is not empty. False where it keeps some, as it does for files that
// have no disk.
inline bool MakeCold(const std::string& path) {
  const UniqueDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fsync(file.Get()) != 0 || posix_fadvise(file.Get(), 0, 0, POSIX_FADV_DONTNEED) != 0) return false;
  const off_t size = lseek(file.Get(), 0, SEEK_END);
  const auto bytes = static_cast<std::size_t>(size);
  void* const mapped = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file.Get(), 0);
  if (mapped == MAP_FAILED) return false;
  const auto pageBytes = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> pages((bytes + pageBytes - 1) / pageBytes);
  const bool isKnown = mincore(mapped, bytes, pages.data()) == 0;
  munmap(mapped, bytes);
  return isKnown && std::none_of(pages.begin(), pages.end(), [](unsigned char page) { return (page & 1) != 0; });
}

// Has the system read one byte of a file, and what lies around it in the same page, but nothing more.
inline void ReadAlone(const std::string& path, std::int64_t offset) {
  const UniqueDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  posix_fadvise(file.Get(), 0, 0, POSIX_FADV_RANDOM);
  char byte = 0;
  if (pread(file.Get(), &byte, 1, offset) != 1) throw std::runtime_error("not read: " + path);
}

}  // namespace TesselServer::Kit
