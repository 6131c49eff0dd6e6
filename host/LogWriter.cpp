#include "host/LogWriter.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include <TesselServer/HostProcess.h>

namespace TesselServer {
namespace {

using Clock = std::chrono::steady_clock;

std::int64_t CountLines(std::string_view text) { return std::count(text.begin(), text.end(), '\n'); }

// Adds a line with its end, the whole of it or nothing. False where there is no memory for it.
bool AppendLine(std::string& lines, std::string_view line) {
  const auto before = lines.size();
  try {
    lines.append(line) += '\n';
    return true;
  } catch (const std::bad_alloc&) {
    lines.resize(before);
    return false;
  }
}

}  // namespace

// What is written in one go.
struct LogWriter::Block {
  std::string lines;
  std::int64_t lost = 0;  // how many lines came after these and found no room

  bool Empty() const { return lines.empty() && lost == 0; }
};

// Writes blocks, and counts what is lost.
class LogWriter::BlockSink {
 public:
  BlockSink(Sink sink, std::string mark) : sink_(std::move(sink)), mark_(std::move(mark)) {}

  void Write(const Block& block) {
    const std::string_view lines = block.lines;
    const auto written = TellLost() ? Put(lines) : 0;
    lost_ += CountLines(lines.substr(written)) + block.lost;
    if (written == lines.size()) TellLost();
  }

 private:
  // Whether the output has taken the line that counts the lost ones, or none were lost.
  bool TellLost() {
    try {
      return lost_ == 0 || PutLost();
    } catch (const std::bad_alloc&) {
      return false;  // they stay counted
    }
  }

  bool PutLost() {
    const auto line = std::string(lineIsCut_ ? "\n" : "") + mark_ + "Lost lines: " + std::to_string(lost_) +
                      " (this output was not read, or could not be written)\n";
    if (Put(line) < line.size()) return false;
    lost_ = 0;
    return true;
  }

  std::size_t Put(std::string_view bytes) {
    const auto written = Taken(bytes);
    if (written > 0) lineIsCut_ = bytes[written - 1] != '\n';
    return written;
  }

  // How many bytes the output took; none where there is no memory for it, which must not end the process.
  std::size_t Taken(std::string_view bytes) {
    try {
      return sink_(bytes);
    } catch (const std::bad_alloc&) {
      return 0;
    }
  }

  Sink sink_;
  std::string mark_;
  std::int64_t lost_ = 0;  // not reported yet
  bool lineIsCut_ = false;
};

// What the two threads have in common.
struct LogWriter::Shared {
  std::mutex mutex;
  std::condition_variable toWrite;  // a first line waits, a whole block, or the end has come
  std::condition_variable written;  // all of it, after the end
  Block waiting;
  bool ended = false;
  bool allWritten = false;

  // Waits until a block is due; nothing after the last one. No block comes before `earliest` unless it is whole.
  std::optional<Block> Next(Clock::time_point earliest) {
    std::unique_lock lock(mutex);
    toWrite.wait(lock, [this] { return ended || !waiting.Empty(); });
    toWrite.wait_until(lock, earliest, [this] { return ended || waiting.lines.size() >= kBlockBytes; });
    if (waiting.Empty()) return std::nullopt;
    return std::exchange(waiting, Block());
  }

  void WriteAll(BlockSink& sink, std::chrono::milliseconds blockInterval) {
    Clock::time_point earliest{};
    while (const auto block = Next(earliest)) {
      earliest = Clock::now() + blockInterval;
      sink.Write(*block);
    }
    const std::lock_guard lock(mutex);
    allWritten = true;
    written.notify_all();
  }
};

LogWriter::LogWriter(Sink sink, std::string mark, std::chrono::milliseconds blockInterval)
    : shared_(std::make_shared<Shared>()) {
  RunDetached([shared = shared_, to = BlockSink(std::move(sink), std::move(mark)), blockInterval]() mutable {
    shared->WriteAll(to, blockInterval);
  });
}

LogWriter::~LogWriter() { End(); }

void LogWriter::Put(std::string_view line) {
  bool due = false;
  {
    const std::lock_guard lock(shared_->mutex);
    if (shared_->ended) return;
    auto& [lines, lost] = shared_->waiting;
    const bool first = shared_->waiting.Empty();
    const bool whole = lines.size() >= kBlockBytes;
    const bool hasRoom = lost == 0 && lines.size() + line.size() < kMaxWaitingBytes;
    if (!hasRoom || !AppendLine(lines, line)) ++lost;
    due = first || (!whole && lines.size() >= kBlockBytes);
  }
  if (due) shared_->toWrite.notify_one();
}

void LogWriter::End() {
  const std::lock_guard lock(shared_->mutex);
  shared_->ended = true;
  shared_->toWrite.notify_one();
}

bool LogWriter::WaitUntil(std::chrono::steady_clock::time_point limit) {
  std::unique_lock lock(shared_->mutex);
  return shared_->written.wait_until(lock, limit, [this] { return shared_->allWritten; });
}

}  // namespace TesselServer
