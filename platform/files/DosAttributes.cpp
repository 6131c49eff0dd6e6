#include "platform/files/DosAttributes.h"

#include <errno.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>

#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr char kName[] = "user.DOSATTRIB";

using Buffer = std::array<char, 1024>;  // many times the longest value seen

std::uint32_t Parse(const Buffer& value, ssize_t length) {
  return length > 0 ? ParseDosAttributes({value.data(), static_cast<std::size_t>(length)}) : 0;
}

// getxattrat(2) is younger than the C library that we build with.
#if defined(SYS_getxattrat)
constexpr long kGetAttributeAt = SYS_getxattrat;
#elif defined(__LP64__) && (defined(__x86_64__) || defined(__aarch64__) || defined(__riscv))
constexpr long kGetAttributeAt = 464;
#else
constexpr long kGetAttributeAt = -1;  // which no kernel has
#endif

struct AttributeRoom {  // the call's struct xattr_args
  alignas(8) std::uint64_t value;
  std::uint32_t size;
  std::uint32_t flags;
};

// False once the kernel, or a sandbox, has refused the call as such. To read such an attribute of a file is never
// refused with EPERM.
std::atomic<bool> hasGetAttributeAt = true;

// The length of the value, or a negative errno value.
ssize_t AskAt(int folder, const char* name, Buffer& value) {
  if (!hasGetAttributeAt.load(std::memory_order_relaxed)) return -ENOSYS;
  AttributeRoom room{reinterpret_cast<std::uintptr_t>(value.data()), static_cast<std::uint32_t>(value.size()), 0};
  const long length = syscall(kGetAttributeAt, folder, name, 0, kName, &room, sizeof room);
  if (length >= 0) return length;
  const int error = errno;
  if (error == ENOSYS || error == EPERM) hasGetAttributeAt.store(false, std::memory_order_relaxed);
  return -error;
}

ssize_t AskThroughProc(int folder, const char* name, Buffer& value) {
  const std::string path = std::string("/proc/self/fd/").append(std::to_string(folder)).append("/").append(name);
  const ssize_t length = getxattr(path.c_str(), kName, value.data(), value.size());
  return length >= 0 ? length : -errno;
}

}  // namespace

std::uint32_t ParseDosAttributes(std::string_view value) {
  if (value.size() < 3 || value[0] != '0' || LowerAscii(value[1]) != 'x') return 0;
  std::uint32_t attributes = 0;
  std::from_chars(value.data() + 2, value.data() + value.size(), attributes, 16);
  return attributes;
}

std::uint32_t DosAttributesOf(int descriptor) {
  Buffer value;
  return Parse(value, fgetxattr(descriptor, kName, value.data(), value.size()));
}

std::uint32_t DosAttributesOf(const std::string& path) {
  Buffer value;
  return Parse(value, getxattr(path.c_str(), kName, value.data(), value.size()));
}

DosAttributesAnswer AskDosAttributes(int folder, const char* name) {
  Buffer value;
  ssize_t length = AskAt(folder, name, value);
  if (length == -ENOSYS || length == -EPERM) length = AskThroughProc(folder, name, value);
  return {Parse(value, length), length >= 0 || length == -ENODATA, length != -ENOTSUP};
}

bool WriteDosAttributes(const std::string& path, std::uint32_t attributes) {
  std::array<char, 10> text{'0', 'x'};
  const auto end = std::to_chars(text.data() + 2, text.data() + text.size(), attributes, 16).ptr;
  return setxattr(path.c_str(), kName, text.data(), static_cast<std::size_t>(end - text.data()), 0) == 0;
}

}  // namespace TesselServer
