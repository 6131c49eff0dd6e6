// The contents of an open file, a piece at a time into the same room, so that a large file needs no large memory:
// neither to be filled, nor to be given back in one go.
//
//   FilePieces pieces(file, limit, turns);
//   for (;;) {
//     auto reading = pieces.Next(room);
//     const std::size_t bytes = co_await reading;
//     if (bytes == 0) co_return pieces.IsWhole();
//     Look(room.data(), bytes);
//   }
//
// Thread:    the loop's thread.
// Ownership: the file, and the turns, outlive it; the room outlives the task that fills it.
// Errors:    as IsWhole says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/files/FileSystem.h"
#include "platform/files/SlowDisk.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class FilePieces {
 public:
  // More than this is never read at once: thousands may wait for a slow disk, each with its room.
  static constexpr std::size_t kMostBytes = 32 * 1024;

  // A file of more than `limit` bytes is not read to its end.
  FilePieces(const OpenFile& file, std::int64_t limit, Turns* turns);

  // How much room holds the file as it is now, and one byte that shows that this was all, or kMostBytes.
  std::size_t UsualRoom() const;

  // Reads on: how many bytes have come, 0 at the end, or where it cannot be read any further.
  Task<std::size_t> Next(std::span<char> room);

  // Whether all of the file has come, within the limit.
  bool IsWhole() const { return isWhole_; }

 private:
  Task<ssize_t> Read(std::span<char> room);
  std::size_t Copy(std::span<char> room);
  std::size_t Took(ssize_t bytes, std::size_t asked);

  const OpenFile& file_;
  const std::int64_t limit_;
  Turns* const turns_;
  std::optional<PatientReader> reader_;
  std::int64_t offset_ = 0;
  bool isOver_ = false;
  bool isWhole_ = false;
};

}  // namespace TesselServer
