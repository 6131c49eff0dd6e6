// A kernel that lacks a system call, for a process of its own (tests/kit/Child.h).
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>

namespace TesselServer::Kit {

// Two ways to ask a file for an extended attribute; the second is younger than the headers of the C library, and has
// this number on all machines that we build on.
inline constexpr long kGetAttribute = SYS_getxattr;
inline constexpr long kGetAttributeAt = 464;

// From here on the kernel answers system call `number` with `error`, in this process and its children. False when it
// takes no filter.
inline bool RefuseSystemCall(long number, int error) {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{4, rules};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace TesselServer::Kit
