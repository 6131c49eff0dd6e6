#include "platform/internal/DosAttributes.h"

#include <errno.h>
#include <sys/xattr.h>

#include <array>
#include <charconv>

#include "platform/AsciiCase.h"

namespace TesselServer {
namespace {

constexpr char kName[] = "user.DOSATTRIB";

using Buffer = std::array<char, 1024>;  // many times what anybody has been seen to write

std::uint32_t Parse(const Buffer& value, ssize_t length) {
  return length > 0 ? ParseDosAttributes({value.data(), static_cast<std::size_t>(length)}) : 0;
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

DosAttributesAnswer AskDosAttributes(int folder, std::string_view name) {
  const std::string path = std::string("/proc/self/fd/").append(std::to_string(folder)).append("/").append(name);
  Buffer value;
  const ssize_t length = getxattr(path.c_str(), kName, value.data(), value.size());
  const int error = length < 0 ? errno : 0;
  return {Parse(value, length), error == 0 || error == ENODATA, error != ENOTSUP};
}

bool WriteDosAttributes(const std::string& path, std::uint32_t attributes) {
  std::array<char, 10> text{'0', 'x'};
  const auto end = std::to_chars(text.data() + 2, text.data() + text.size(), attributes, 16).ptr;
  return setxattr(path.c_str(), kName, text.data(), static_cast<std::size_t>(end - text.data()), 0) == 0;
}

}  // namespace TesselServer
