#include "platform/files/SpellingWalk.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>

#include <algorithm>
#include <utility>

#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr int kFlagsForWalk = O_PATH | O_CLOEXEC;

bool HasLetter(std::string_view name) {
  return std::any_of(name.begin(), name.end(), [](char c) { return UpperAscii(c) >= 'A' && UpperAscii(c) <= 'Z'; });
}

void AppendName(std::string& path, std::string_view name) {
  if (!path.empty() && path.back() != '/') path += '/';
  path += name;
}

// How many components a path has.
std::size_t CountNames(std::string_view path) {
  std::size_t count = 0;
  char before = '/';
  for (const char c : path) {
    if (before == '/' && c != '/') ++count;
    before = c;
  }
  return count;
}

}  // namespace

SpellingWalk::SpellingWalk(OpenFunction open, int folder, std::string path)
    : open_(open), folder_(folder), path_(std::move(path)), walked_(path_.starts_with('/') ? "/" : "") {
  effort_ = CountNames(path_);
  stride_ = std::max<std::size_t>(effort_, 2) - 1;
}

SpellingWalk::State SpellingWalk::Step() {
  Stretch next = Next();
  if (next.count == 0) return State::kFound;
  stride_ = next.count;
  return next.count > 1 ? TryStretch(next) : TryOne(std::move(next));
}

SpellingWalk::State SpellingWalk::GoOn(std::string_view name) {
  if (name.empty()) return State::kMissing;
  isNarrowing_ = false;
  return After(OpenName(std::string(name)), name);
}

UniqueDescriptor SpellingWalk::OpenFolder(int flags) const {
  return UniqueDescriptor(here_.IsOpen() ? open_(here_.Get(), "", flags) : open_(folder_, walked_, flags));
}

// The next components, as many as the stride has.
SpellingWalk::Stretch SpellingWalk::Next() const {
  Stretch stretch;
  for (stretch.end = next_; stretch.end < path_.size() && stretch.count < stride_;) {
    const std::size_t end = std::min(path_.find('/', stretch.end), path_.size());
    if (end > stretch.end) {
      AppendName(stretch.text, std::string_view(path_).substr(stretch.end, end - stretch.end));
      ++stretch.count;
    }
    stretch.end = end + 1;
  }
  return stretch;
}

// Whatever keeps a stretch from being opened is found again at the component that it comes from.
SpellingWalk::State SpellingWalk::TryStretch(const Stretch& stretch) {
  UniqueDescriptor opened = Open(stretch.text, stretch.count);
  if (!opened.IsOpen()) {
    stride_ = isFirst_ ? 1 : stride_ / 2;
    isNarrowing_ = !isFirst_;
    isFirst_ = false;
    return State::kHasMore;
  }
  isFirst_ = false;
  next_ = stretch.end;
  stride_ = isNarrowing_ ? stride_ / 2 : stride_ * 2;
  return After(std::move(opened), stretch.text);
}

SpellingWalk::State SpellingWalk::TryOne(Stretch&& one) {
  isFirst_ = false;
  next_ = one.end;
  wanted_ = std::move(one.text);
  UniqueDescriptor opened = OpenName(wanted_);
  if (opened.Get() == -ENOENT) return HasLetter(wanted_) ? State::kNeedsNames : State::kMissing;
  if (opened.IsOpen() && !isNarrowing_) stride_ = 2;
  return After(std::move(opened), wanted_);
}

// What follows the opening of `name` where the walk has come to.
SpellingWalk::State SpellingWalk::After(UniqueDescriptor opened, std::string_view name) {
  const int error = opened.Get();
  AppendName(walked_, name);
  here_ = std::move(opened);
  if (here_.IsOpen()) return State::kHasMore;
  isNarrowing_ = false;
  if (error == -EXDEV) return ReplaceByTarget(&OpenAnywhere);
  if (error == kElsewhere) return ReplaceByTarget(&OpenTargetHere);
  return State::kMissing;
}

std::string SpellingWalk::Joined(std::string_view rest) const {
  std::string path = walked_;
  AppendName(path, rest);
  return path;
}

// Opens what is called `rest`, `count` components, where the walk has come to: a descriptor or a negative errno value.
// A path that is too long as a whole is not there, though its end could be opened.
UniqueDescriptor SpellingWalk::Open(const std::string& rest, std::size_t count) {
  if (!here_.IsOpen()) return OpenFromFolder(Joined(rest));
  if (walked_.size() + 1 + rest.size() >= PATH_MAX) return UniqueDescriptor(-ENAMETOOLONG);
  effort_ += kOpening + count;
  return UniqueDescriptor(open_(here_.Get(), rest, kFlagsForWalk));
}

// One component, in the way that the whole path would be opened where the short way does not lead there.
UniqueDescriptor SpellingWalk::OpenName(const std::string& name) {
  UniqueDescriptor opened = Open(name, 1);
  if (opened.IsOpen() || opened.Get() == -ENOENT || !here_.IsOpen()) return opened;
  return OpenFromFolder(Joined(name));
}

UniqueDescriptor SpellingWalk::OpenFromFolder(const std::string& path) {
  effort_ += kOpening + CountNames(path);
  return UniqueDescriptor(open_(folder_, path, kFlagsForWalk));
}

// Puts the link-free path of what the path leads to, opened through `open`, in its place, when that lies beneath the
// folder. Nothing is read through the descriptor that the path is determined with; the caller opens the new path under
// the rule of its own.
SpellingWalk::State SpellingWalk::ReplaceByTarget(OpenFunction open) {
  effort_ += kOpening + CountNames(walked_);
  const UniqueDescriptor target(open(folder_, walked_, kFlagsForWalk));
  if (target.Get() == kElsewhere) return State::kLeadsElsewhere;
  if (!target.IsOpen()) return State::kMissing;
  std::string base = PathOfDescriptor(folder_);
  std::string end = PathOfDescriptor(target.Get());
  if (base.empty() || end.empty()) return State::kMissing;
  if (base == end) {
    walked_.clear();
    return State::kHasMore;
  }
  if (base.back() != '/') base += '/';
  if (!end.starts_with(base)) return State::kMissing;
  walked_ = end.substr(base.size());
  return State::kHasMore;
}

}  // namespace TesselServer
