#include "platform/files/FileSystem.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/files/EntryStatus.h"
#include "platform/files/FindBeneath.h"
#include "platform/files/KnownBeneath.h"
#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

// A path without an end in the middle, or "" (which nothing is found at) for one that a NUL would cut short.
std::string SystemPath(std::string_view path) {
  return path.find('\0') == std::string_view::npos ? WithSlashes(path) : std::string();
}

// As OpenAnywhereOrRaise; raises the lack of permission as well.
int OpenPermittedOrRaise(int folder, const std::string& path, int flags) {
  const int opened = OpenAnywhereOrRaise(folder, path, flags);
  if (opened == -EACCES) throw SystemError(EACCES);
  return opened;
}

// Opens a path that no root holds. Closed when there is nothing, or a file where only a folder can be meant.
OpenFile OpenAnyCase(std::string_view path, int flags) {
  const std::string text = SystemPath(path);
  if (text.empty()) return {};
  int opened = OpenAnywhere(AT_FDCWD, text, flags);
  if (opened == -ENOENT || opened == -ENOTDIR) {
    const auto spelling = TrueSpelling(&OpenAnywhere, AT_FDCWD, text);
    if (!spelling) return {};
    opened = OpenAnywhere(AT_FDCWD, *spelling, flags);
  }
  if (opened < 0) return {};
  OpenFile file(opened);
  if (file.Kind() == EntryKind::kFile && text.back() == '/') file.Close();
  return file;
}

}  // namespace

OpenFile::OpenFile(int descriptor) : descriptor_(descriptor) {
  struct stat status;
  if (descriptor_ >= 0 && fstat(descriptor_, &status) == 0) kind_ = KindOf(status);
  if (kind_ == EntryKind::kNone) {
    Close();
    return;
  }
  size_ = kind_ == EntryKind::kFile ? status.st_size : 0;
  identity_ = IdentityOf(status);
}

OpenFile::OpenFile(std::shared_ptr<const KnownFile> known)
    : known_(std::move(known)),
      kind_(EntryKind::kFile),
      size_(known_->stamp.size),
      identity_{known_->stamp.device, known_->stamp.inode} {}

OpenFile::OpenFile(OpenFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      known_(std::move(other.known_)),
      kind_(std::exchange(other.kind_, EntryKind::kNone)),
      size_(std::exchange(other.size_, 0)),
      identity_(std::exchange(other.identity_, {})) {}

OpenFile& OpenFile::operator=(OpenFile&& other) noexcept {
  if (this == &other) return *this;
  Close();
  descriptor_ = std::exchange(other.descriptor_, -1);
  known_ = std::move(other.known_);
  kind_ = std::exchange(other.kind_, EntryKind::kNone);
  size_ = std::exchange(other.size_, 0);
  identity_ = std::exchange(other.identity_, {});
  return *this;
}

OpenFile::~OpenFile() { Close(); }

bool OpenFile::ReadAll(std::string& bytes, std::int64_t limit) const {
  bytes.clear();
  if (kind_ != EntryKind::kFile) return false;
  constexpr std::size_t kLeastRoom = 4096;
  const auto most = static_cast<std::size_t>(std::max<std::int64_t>(limit, 0));
  if (known_) {
    bytes.assign(*known_->contents, 0, most);
    return known_->contents->size() <= most;
  }
  std::size_t length = 0;
  // One byte more than is expected: where it stays empty the end was seen.
  bytes.resize(std::min(static_cast<std::size_t>(size_), most) + 1);
  for (;;) {
    const ssize_t got = pread(descriptor_, bytes.data() + length, bytes.size() - length, static_cast<off_t>(length));
    if (got < 0 && errno == EINTR) continue;
    if (got > 0) length += static_cast<std::size_t>(got);
    if (got <= 0 || length > most) {
      bytes.resize(std::min(length, most));
      return got == 0;
    }
    if (length == bytes.size()) bytes.resize(std::min(std::max(2 * length, kLeastRoom), most + 1));
  }
}

std::string OpenFile::CanonicalPath() const {
  if (known_) {
    const UniqueDescriptor file(OpenAnywhere(AT_FDCWD, known_->path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    const bool isSame = file.IsOpen() && fstat(file.Get(), &status) == 0 && IdentityOf(status) == identity_;
    return isSame ? PathOfDescriptor(file.Get()) : std::string();
  }
  return IsOpen() ? PathOfDescriptor(descriptor_) : std::string();
}

std::shared_ptr<const std::string> OpenFile::Contents() const { return known_ ? known_->contents : nullptr; }

void OpenFile::Close() {
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = -1;
  known_.reset();
  kind_ = EntryKind::kNone;
  size_ = 0;
  identity_ = {};
}

RootFolder::RootFolder(std::string path)
    : path_(std::move(path)), systemPath_(SystemPath(path_)), known_(std::make_unique<KnownBeneath>(systemPath_)) {}

RootFolder::RootFolder(RootFolder&& other) noexcept
    : path_(std::move(other.path_)),
      systemPath_(std::move(other.systemPath_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      identity_(std::exchange(other.identity_, {})),
      known_(std::move(other.known_)) {}

RootFolder& RootFolder::operator=(RootFolder&& other) noexcept {
  std::swap(path_, other.path_);
  std::swap(systemPath_, other.systemPath_);
  std::swap(descriptor_, other.descriptor_);
  std::swap(identity_, other.identity_);
  std::swap(known_, other.known_);
  return *this;
}

RootFolder::~RootFolder() {
  if (descriptor_ >= 0) close(descriptor_);
}

FoundEntry RootFolder::Find(std::string_view relative) const {
  const auto path = CollapsePath(relative);
  if (!path || !known_) return {};
  if (!path->asFolder) {
    if (auto file = known_->files.Find(path->text))
      return {EntryKind::kFile, path->text, true, OpenFile(std::move(file))};
  }
  if (known_->Lacks(path->text)) return {};
  const int root = Descriptor();
  if (root < 0) return {};
  FoundEntry found = FindBeneath(&OpenBeneathOrRaise, root, relative, &known_->folders);
  if (found.name == path->text && found.readable && found.kind == EntryKind::kFile) {
    if (auto file = known_->files.Remember(path->text, found.file)) found.file = OpenFile(std::move(file));
  }
  return found;
}

int RootFolder::Descriptor() const {
  struct stat status;
  const bool isThere = !systemPath_.empty() && stat(systemPath_.c_str(), &status) == 0;
  if (isThere && descriptor_ >= 0 && IdentityOf(status) == identity_) return descriptor_;
  UniqueDescriptor old(std::exchange(descriptor_, -1));
  if (!isThere) return -1;
  UniqueDescriptor opened(OpenAnywhereOrRaise(AT_FDCWD, systemPath_, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!opened.IsOpen() || fstat(opened.Get(), &status) != 0) return -1;
  identity_ = IdentityOf(status);
  descriptor_ = opened.Release();
  return descriptor_;
}

OpenFile OpenPath(std::string_view path) { return OpenAnyCase(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }

PathIdentity IdentifyPath(std::string_view path) {
  using State = PathIdentity::State;
  const std::string text = SystemPath(path);
  if (text.empty()) return {};
  struct stat status;
  if (stat(text.c_str(), &status) == 0) return {State::kFound, IdentityOf(status)};
  if (errno != ENOENT && errno != ENOTDIR) return {State::kUnknown, {}};
  if (lstat(text.c_str(), &status) == 0) return {State::kDangling, {}};
  try {
    const auto spelling = TrueSpelling(&OpenPermittedOrRaise, AT_FDCWD, text);
    if (!spelling || stat(spelling->c_str(), &status) != 0) return {};
    return {State::kFound, IdentityOf(status)};
  } catch (const Error&) {
    return {State::kUnknown, {}};
  }
}

EntryKind KindOfPath(std::string_view path) { return OpenAnyCase(path, O_PATH | O_CLOEXEC).Kind(); }

}  // namespace TesselServer
