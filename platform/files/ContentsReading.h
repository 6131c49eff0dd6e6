// The reading of a whole file into a text, piece by piece, whatever its length now.
//
//   ContentsReading reading(bytes, expected, limit);
//   while (!reading.IsOver()) {
//     const std::span<char> room = reading.Room(kPieceBytes);
//     reading.Took(pread(file, room.data(), room.size(), reading.Offset()));
//   }
//   return reading.IsWhole();
//
// Thread:    one.
// Ownership: the text outlives it, and is touched by none else until IsOver.
// Errors:    Room throws std::bad_alloc.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace TesselServer {

class ContentsReading {
 public:
  // `expected` is the file's length in bytes when it was opened; more than `limit` bytes are not kept.
  ContentsReading(std::string& bytes, std::int64_t expected, std::int64_t limit);

  // Where the next bytes of the file go, those from Offset() on; at least one byte, and no more than `most`.
  std::span<char> Room(std::size_t most);
  std::int64_t Offset() const { return static_cast<std::int64_t>(length_); }

  // How many bytes came: 0 at the end of the file, negative where it cannot be read.
  void Took(ssize_t bytes);

  // Whether nothing more is to be read; the text then holds what was. And whether that is the whole file.
  bool IsOver() const { return isOver_; }
  bool IsWhole() const { return isWhole_; }

 private:
  std::string& bytes_;
  std::size_t usual_;
  std::size_t most_;
  std::size_t goal_;  // how long the text shall become before it is known whether more is to come
  std::size_t length_ = 0;
  bool isOver_ = false;
  bool isWhole_ = false;
};

}  // namespace TesselServer
