#include "files/cls_Base64.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "platform/files/FileSystem.h"
#include "platform/world/Error.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// The value of each byte; 0 outside the alphabet.
constexpr std::array<std::uint8_t, 256> kValues = [] {
  std::array<std::uint8_t, 256> values{};
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    values[static_cast<std::uint8_t>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

// Bytes of six bits in, bytes of eight bits out.
template <typename Bytes>
Bytes Decode(std::string_view text) {
  Bytes bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t bits = 0;
  unsigned held = 0;  // how many of the low bits are still to be written: 0, 2, 4 or 6
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == kPad) continue;
    if (text.substr(at, kLineEnd.size()) == kLineEnd) {
      ++at;
      continue;
    }
    bits = (bits << 6) | kValues[static_cast<std::uint8_t>(text[at])];
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes.push_back(static_cast<typename Bytes::value_type>((bits >> held) & 0xFF));
  }
  return bytes;
}

static_assert(cls_Base64::kLineLength % 4 == 0, "lines end between groups");

template <typename Bytes>
std::string Encode(const Bytes& bytes) {
  if (bytes.empty()) {
    throw Error(cls_Base64::kArrayNotDimensioned, "Input array is not dimensioned.", "Base64.EncodeArr");
  }
  constexpr std::size_t kFullLine = cls_Base64::kLineLength + kLineEnd.size();
  const std::size_t characters = (bytes.size() + 2) / 3 * 4;
  std::string text;
  text.reserve(characters + characters / cls_Base64::kLineLength * kLineEnd.size());
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = std::min<std::size_t>(bytes.size() - at, 3);
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = (bits << 8) | (i < count ? static_cast<std::uint8_t>(bytes[at + i]) : 0U);
    if (text.size() % kFullLine == cls_Base64::kLineLength) text += kLineEnd;
    for (std::size_t i = 0; i < 4; ++i) text += i <= count ? kAlphabet[(bits >> (18 - 6 * i)) & 0x3F] : kPad;
  }
  return text;
}

Error FileExistsError() { return Error(cls_Base64::kFileExists, "File already exists.", "Base64.DecodeToFile"); }

Error FileAccessError() { return Error(ErrorNumber::kFileAccess, "Path/File access error.", "Base64.DecodeToFile"); }

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

// Opens a new file for writing. "x" makes the kernel refuse a name that exists, even if it was created a moment before;
// "e" keeps the file out of child processes.
Stream CreateNewFile(const std::string& path) {
  Stream stream(std::fopen(path.c_str(), "wbxe"));
  if (stream != nullptr) return stream;
  std::error_code ignored;
  if (std::filesystem::exists(std::filesystem::symlink_status(path, ignored))) throw FileExistsError();
  throw FileAccessError();
}

}  // namespace

std::vector<std::uint8_t> cls_Base64::DecodeArr(std::string_view text) const {
  return Decode<std::vector<std::uint8_t>>(text);
}

std::string cls_Base64::DecodeStr(std::string_view text) const { return Decode<std::string>(text); }

void cls_Base64::DecodeToFile(std::string_view text, std::string_view path) const {
  if (path.find('\0') != std::string_view::npos) throw FileAccessError();
  if (KindOfPath(path) != EntryKind::kNone) throw FileExistsError();
  std::string realPath(path);
  std::replace(realPath.begin(), realPath.end(), '\\', '/');
  const std::string bytes = DecodeStr(text);
  Stream stream = CreateNewFile(realPath);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stream.get()) == bytes.size();
  if (std::fclose(stream.release()) == 0 && written) return;
  std::remove(realPath.c_str());
  throw FileAccessError();
}

std::string cls_Base64::EncodeArr(const std::vector<std::uint8_t>& bytes) const { return Encode(bytes); }

std::string cls_Base64::EncodeStr(std::string_view text) const { return Encode(text); }

std::string cls_Base64::EncodeFile(std::string_view path) const {
  std::string bytes;
  if (!OpenPath(path).ReadAll(bytes, kMaxFileBytes) || bytes.empty()) return {};
  return Encode(bytes);
}

}  // namespace TesselServer
