// A network and a tree of mounts of its own for a child process (tests/kit/Child.h): nothing but a loopback, and files
// put in place of the system's, which the child may change without harm to anybody.
#pragma once

#include <fcntl.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/world/UniqueDescriptor.h"

namespace TesselServer::Kit {

constexpr int kNoNamespace = 201;  // what a child returns when this machine gives it no network of its own

inline bool WriteSetting(const std::string& path, const std::string& value) {
  const UniqueDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  return write(file.Get(), value.data(), value.size()) == static_cast<ssize_t>(value.size());
}

// Moves this process into fresh namespaces (clone(2)), as root or as the root of a user namespace of its own. False
// when the machine does not allow it.
inline bool EnterOwn(int namespaces) {
  const std::string user = "0 " + std::to_string(geteuid()) + " 1";
  const std::string group = "0 " + std::to_string(getegid()) + " 1";
  return unshare(namespaces) == 0 ||
         (unshare(CLONE_NEWUSER | namespaces) == 0 && WriteSetting("/proc/self/uid_map", user) &&
          WriteSetting("/proc/self/setgroups", "deny") && WriteSetting("/proc/self/gid_map", group));
}

inline bool RaiseLoopback() {
  const UniqueDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq loopback{};
  std::strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(control.Get(), SIOCSIFFLAGS, &loopback) == 0;
}

// Moves this process into a fresh network.
inline bool EnterOwnNetwork(bool loopbackUp) { return EnterOwn(CLONE_NEWNET) && (!loopbackUp || RaiseLoopback()); }

// In a tree of mounts of its own (EnterOwn(CLONE_NEWNS)): no change of it shows outside.
inline bool KeepMountsToOneself() { return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0; }

// Puts `file` in the place of `system`, in the tree of mounts this process is in.
inline bool PutInPlaceOf(const std::string& system, const std::string& file) {
  return mount(file.c_str(), system.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

// Lets root have ping sockets in the network this process is in; in a fresh one nobody may.
inline bool AllowPingSockets() { return WriteSetting("/proc/sys/net/ipv4/ping_group_range", "0 0"); }

// Hosts of the network this process is in answer no echo.
inline bool IgnoreEchoes() { return WriteSetting("/proc/sys/net/ipv4/icmp_echo_ignore_all", "1"); }

// Gives up every right that root has beyond others.
inline bool DropRights() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[2] = {};
  return syscall(SYS_capset, &header, none) == 0;
}

}  // namespace TesselServer::Kit
