// An output of lines whose reader may be slow, stop reading, or go away. A thread of its own writes them, in blocks, so
// that the thread that has a line to write never waits for the reader.
//
// Up to kMaxWaitingBytes wait; when a line would exceed that, it and those after it are lost until the waiting ones are
// being written, and then counted in one line where they would have been. Lines that an output refuses (a full disk)
// are counted in the same way, in front of the next line that it takes; so are lines for which there is no memory.
//
// Thread:    that of its owner; the writing thread is its own, and no signal is delivered to it.
// Ownership: the sink is kept until the writing thread has come back from it, be that after this object's end.
// Errors:    std::system_error from the constructor when no thread can be had; nothing else raises.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace TesselServer {

//   LogWriter log([](std::string_view bytes) { return WriteWhole(StandardStream::Output, bytes); }, "#");
//   log.Put("a line");
//   log.End();
//   log.WaitUntil(std::chrono::steady_clock::now() + 1s);
class LogWriter {
 public:
  // Writes bytes, waiting for as long as it takes, and returns how many were written: all, or fewer on a failure.
  using Sink = std::function<std::size_t(std::string_view)>;

  static constexpr std::size_t kBlockBytes = 64 * 1024;             // so much is written before its time
  static constexpr std::size_t kMaxWaitingBytes = 4 * 1024 * 1024;  // seconds of a busy server's log
  static constexpr std::chrono::milliseconds kBlockInterval{200};   // between two blocks; a reader sees lines come soon

  // `mark` begins the line that counts lost ones: "<mark>Lost lines: 12 (...)".
  LogWriter(Sink sink, std::string mark, std::chrono::milliseconds blockInterval = kBlockInterval);
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;
  ~LogWriter();  // ends; what is waiting is still written as long as the process lives

  // Adds `line`, without its end. A line that comes after a silence is written at once, others with the next block, at
  // the latest kBlockInterval after the last one. Ignored after End.
  void Put(std::string_view line);

  // Has everything that is waiting written without further delay.
  void End();

  // Waits after End until all is written, but no longer than until `limit`. Whether all is written.
  bool WaitUntil(std::chrono::steady_clock::time_point limit);

 private:
  struct Block;
  class BlockSink;
  struct Shared;

  std::shared_ptr<Shared> shared_;  // with the writing thread, which may block in the sink without end
};

}  // namespace TesselServer
