#include "platform/files/SpellingWalk.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "platform/world/AsciiCase.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

bool HasLetter(std::string_view name) {
  return std::any_of(name.begin(), name.end(), [](char c) { return UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z'; });
}

void AppendName(std::string& path, std::string_view name) {
  if (!path.empty() && path.back() != '/') path += '/';
  path += name;
}

}  // namespace

SpellingWalk::SpellingWalk(OpenFunction open, int folder, std::string path)
    : open_(open), folder_(folder), path_(std::move(path)), walked_(path_.starts_with('/') ? "/" : "") {}

SpellingWalk::State SpellingWalk::Go() {
  while (next_ < path_.size()) {
    const std::size_t end = std::min(path_.find('/', next_), path_.size());
    wanted_.assign(path_, next_, end - next_);
    next_ = end + 1;
    if (wanted_.empty()) continue;
    const State state = Step();
    if (state != State::kFound) return state;
  }
  return State::kFound;
}

SpellingWalk::State SpellingWalk::GoOn(std::string_view name) {
  if (name.empty()) return State::kMissing;
  AppendName(walked_, name);
  const State state = After(Probe());
  return state == State::kFound ? Go() : state;
}

SpellingWalk::State SpellingWalk::Step() {
  const std::size_t length = walked_.size();
  AppendName(walked_, wanted_);
  const int probed = Probe();
  if (probed != -ENOENT) return After(probed);
  walked_.resize(length);
  return HasLetter(wanted_) ? State::kNeedsNames : State::kMissing;
}

SpellingWalk::State SpellingWalk::After(int probed) {
  if (probed == -EXDEV) return ReplaceByTarget(&OpenAnywhere);
  if (probed == kElsewhere) return ReplaceByTarget(&OpenTargetHere);
  return probed == 0 ? State::kFound : State::kMissing;
}

// 0 when something exists where the walk has come to, else the negative errno value.
int SpellingWalk::Probe() const {
  const UniqueDescriptor found(open_(folder_, walked_, O_PATH | O_CLOEXEC));
  return found.IsOpen() ? 0 : found.Get();
}

// Puts the link-free path of what the path leads to, opened through `open`, in its place, when that lies beneath the
// folder. Nothing is read through the descriptor that the path is determined with; the caller opens the new path under
// the rule of its own.
SpellingWalk::State SpellingWalk::ReplaceByTarget(OpenFunction open) {
  const UniqueDescriptor target(open(folder_, walked_, O_PATH | O_CLOEXEC));
  if (target.Get() == kElsewhere) return State::kLeadsElsewhere;
  if (!target.IsOpen()) return State::kMissing;
  std::string base = PathOfDescriptor(folder_);
  std::string end = PathOfDescriptor(target.Get());
  if (base.empty() || end.empty()) return State::kMissing;
  if (base == end) {
    walked_.clear();
    return State::kFound;
  }
  if (base.back() != '/') base += '/';
  if (!end.starts_with(base)) return State::kMissing;
  walked_ = end.substr(base.size());
  return State::kFound;
}

}  // namespace TesselServer
