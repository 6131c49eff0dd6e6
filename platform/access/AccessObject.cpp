#include "platform/access/AccessObject.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <utility>

#include "platform/files/OpenPaths.h"
#include "platform/files/PathWalk.h"

namespace TesselServer {
namespace {

constexpr const char* kAttribute = "system.posix_acl_access";

// Enough to be asked what it is, and no more.
constexpr int kFindFlags = O_PATH | O_CLOEXEC;

std::errc LastError() { return static_cast<std::errc>(errno); }

int FindObject(std::string_view path) {
  if (path.find('\0') != std::string_view::npos) return -EINVAL;
  if (path.empty()) return -ENOENT;
  const std::string text = WithSlashes(path);
  const int found = OpenAnywhere(AT_FDCWD, text, kFindFlags);
  if (found != -ENOENT) return found;
  const auto spelling = TrueSpelling(&OpenAnywhere, AT_FDCWD, text);
  if (!spelling) return found;
  return OpenAnywhere(AT_FDCWD, *spelling, text.back() == '/' ? kFindFlags | O_DIRECTORY : kFindFlags);
}

}  // namespace

AccessObject::AccessObject(std::string_view path) : descriptor_(FindObject(path)) {}

std::errc AccessObject::Read(AccessList& list) const {
  if (!descriptor_.IsOpen()) return static_cast<std::errc>(-descriptor_.Get());
  std::string value(AccessList::kMaxBytes, '\0');
  const ssize_t length = getxattr(SystemName().c_str(), kAttribute, value.data(), value.size());
  if (length < 0) {
    if (errno != ENODATA) return LastError();
    struct stat status;
    if (fstat(descriptor_.Get(), &status) != 0) return LastError();
    list = AccessList::FromMode(status.st_mode);
    return {};
  }
  auto read = AccessList::FromBytes(std::string_view(value.data(), static_cast<std::size_t>(length)));
  if (!read) return std::errc::bad_message;
  list = std::move(*read);
  return {};
}

std::errc AccessObject::Write(const AccessList& list) const {
  if (!descriptor_.IsOpen()) return static_cast<std::errc>(-descriptor_.Get());
  const std::string value = list.Bytes();
  return setxattr(SystemName().c_str(), kAttribute, value.data(), value.size(), 0) == 0 ? std::errc() : LastError();
}

// The name by which the system lets a descriptor's object be asked for extended attributes, for which a descriptor
// without rights is not enough.
std::string AccessObject::SystemName() const { return "/proc/self/fd/" + std::to_string(descriptor_.Get()); }

}  // namespace TesselServer
