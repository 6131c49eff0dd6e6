#include "platform/files/OpenPaths.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/files/SlowDisk.h"
#include "platform/world/SystemErrors.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

// The kernel asks for another try when a rename elsewhere crosses a ".." inside a link; many renames in a row must not
// block the only thread.
constexpr int kMaxTries = 16;

const char* TextOf(const std::string& path) { return path.empty() ? "." : path.c_str(); }

int KernelOpen(int folder, const char* path, int flags, std::uint64_t resolve) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = resolve;
  const long opened = syscall(SYS_openat2, folder, path, &how, sizeof how);
  return opened < 0 ? -errno : static_cast<int>(opened);
}

int KernelOpenPatiently(int folder, const std::string& path, int flags, std::uint64_t resolve) {
  int opened = -EAGAIN;
  for (int i = 0; i < kMaxTries && (opened == -EAGAIN || opened == -EINTR); ++i) {
    opened = KernelOpen(folder, TextOf(path), flags, resolve);
  }
  return opened;
}

// Whether the call as such is refused: a file's own permissions never keep the name "/" from being looked up.
bool IsRefusedBySandbox() {
  const UniqueDescriptor probe(KernelOpen(AT_FDCWD, "/", O_PATH | O_CLOEXEC, 0));
  return probe.Get() == -EPERM;
}

// Whether openat2 failed because the kernel lacks it or a sandbox refuses it.
bool IsNotOffered(int opened) { return opened == -ENOSYS || (opened == -EPERM && IsRefusedBySandbox()); }

// Whether it is known that a path begins where nothing has to be waited for. That is asked of the system's root once:
// programs and libraries lie there, this process's own among them.
bool BeginsHere(int folder, const std::string& path) {
  if (!path.starts_with('/')) return folder != AT_FDCWD;
  static const bool rootWaits = MayWaitAt("/");
  return !rootWaits;
}

int OpenInKernelHere(int folder, const std::string& path, int flags, std::uint64_t resolve) {
  if (!BeginsHere(folder, path)) return kElsewhere;
  const int opened = KernelOpenPatiently(folder, path, flags, resolve | RESOLVE_NO_XDEV);
  return opened == -EXDEV ? kElsewhere : opened;
}

// The device of what is called `name` in `folder`, "" being the folder itself: known without asking the disk.
std::optional<std::uint64_t> DeviceOf(int folder, const char* name) {
  struct statx facts {};
  const int flags = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (statx(folder, name, flags, STATX_TYPE, &facts) != 0) return std::nullopt;
  return makedev(facts.stx_dev_major, facts.stx_dev_minor);
}

// OpenWithoutLinks; kElsewhere for what does not lie on `device`, where one is given.
int OpenStepByStep(int folder, const std::string& path, int flags, std::optional<std::uint64_t> device) {
  int parent = folder;
  UniqueDescriptor held(-1);  // `parent`, once it is no longer the caller's
  std::string_view rest = path;
  for (;;) {
    const std::size_t end = rest.find('/');
    const std::string component(rest.substr(0, end));
    if (component == "..") return -ENOENT;
    if (device) {
      const auto next = DeviceOf(parent, component.c_str());
      if (next && next != device) return kElsewhere;
    }
    if (end == std::string_view::npos) return OpenAnywhere(parent, component, flags | O_NOFOLLOW);
    const int next = OpenAnywhere(parent, component, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) return next;
    held = UniqueDescriptor(next);
    parent = next;
    rest.remove_prefix(end + 1);
  }
}

// Raises the error of a call that failed for want of descriptors or memory.
int OrRaise(int opened) {
  if (opened == -EMFILE || opened == -ENFILE || opened == -ENOMEM) throw SystemError(-opened);
  return opened;
}

}  // namespace

int OpenAnywhere(int folder, const std::string& path, int flags) {
  const int opened = openat(folder, TextOf(path), flags);
  return opened < 0 ? -errno : opened;
}

int OpenBeneath(int folder, const std::string& path, int flags) {
  const int opened = KernelOpenPatiently(folder, path, flags, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS);
  return IsNotOffered(opened) ? OpenWithoutLinks(folder, path, flags) : opened;
}

int OpenDirectly(int folder, const std::string& path, int flags) {
  const int opened = KernelOpen(folder, TextOf(path), flags, RESOLVE_NO_SYMLINKS);
  if (!IsNotOffered(opened)) return opened;
  return folder == AT_FDCWD ? -ELOOP : OpenWithoutLinks(folder, path, flags);
}

int OpenWithoutLinks(int folder, const std::string& path, int flags) {
  return OpenStepByStep(folder, path, flags, std::nullopt);
}

int OpenHere(int folder, const std::string& path, int flags) {
  const int opened = OpenInKernelHere(folder, path, flags, 0);
  return IsNotOffered(opened) ? kElsewhere : opened;
}

int OpenTargetHere(int folder, const std::string& path, int flags) {
  const int opened = OpenHere(folder, path, flags);
  if (opened != kElsewhere || folder == AT_FDCWD) return opened;
  const std::string base = PathOfDescriptor(folder);
  return base.empty() ? kElsewhere : OpenHere(AT_FDCWD, base + "/" + path, flags);
}

int OpenBeneathHere(int folder, const std::string& path, int flags) {
  const int opened = OpenInKernelHere(folder, path, flags, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS);
  return IsNotOffered(opened) ? OpenWithoutLinksHere(folder, path, flags) : opened;
}

int OpenDirectlyHere(int folder, const std::string& path, int flags) {
  const int opened = OpenInKernelHere(folder, path, flags, RESOLVE_NO_SYMLINKS);
  if (!IsNotOffered(opened)) return opened;
  return folder == AT_FDCWD ? kElsewhere : OpenWithoutLinksHere(folder, path, flags);
}

int OpenWithoutLinksHere(int folder, const std::string& path, int flags) {
  const auto device = DeviceOf(folder, "");
  return device ? OpenStepByStep(folder, path, flags, device) : kElsewhere;
}

int OpenAnywhereOrRaise(int folder, const std::string& path, int flags) {
  return OrRaise(OpenAnywhere(folder, path, flags));
}

int OpenBeneathOrRaise(int folder, const std::string& path, int flags) {
  return OrRaise(OpenBeneath(folder, path, flags));
}

int OpenDirectlyOrRaise(int folder, const std::string& path, int flags) {
  return OrRaise(OpenDirectly(folder, path, flags));
}

int OpenHereOrRaise(int folder, const std::string& path, int flags) { return OrRaise(OpenHere(folder, path, flags)); }

int OpenBeneathHereOrRaise(int folder, const std::string& path, int flags) {
  return OrRaise(OpenBeneathHere(folder, path, flags));
}

int OpenDirectlyHereOrRaise(int folder, const std::string& path, int flags) {
  return OrRaise(OpenDirectlyHere(folder, path, flags));
}

std::string PathOfDescriptor(int descriptor) {
  std::array<char, PATH_MAX> target;
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), target.data(), target.size());
  if (length <= 0 || target[0] != '/' || static_cast<std::size_t>(length) == target.size()) return {};
  return std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace TesselServer
