#include "platform/settings/RegistryStore.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "platform/files/FileSystem.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer {
namespace {

struct Root {
  std::string_view name;
  std::uint32_t handle;
};
constexpr std::array<Root, 7> kRoots{{
    {"HKEY_CLASSES_ROOT", 0x80000000},
    {"HKEY_CURRENT_USER", 0x80000001},
    {"HKEY_LOCAL_MACHINE", 0x80000002},
    {"HKEY_USERS", 0x80000003},
    {"HKEY_PERFOrMANCE_DATA", 0x80000004},  // kept: with the small "r", and only so
    {"HKEY_CURRENT_CONFIG", 0x80000005},
    {"HKEY_DYN_DATA", 0x80000006},
}};

constexpr std::string_view kContentType = "Content Type";
struct BuiltIn {
  std::string_view key;
  std::string_view contentType;
};
constexpr BuiltIn kBuiltIn[] = {
    {".7z", "application/x-7z-compressed"},
    {".aac", "audio/aac"},
    {".atom", "application/atom+xml"},
    {".avi", "video/x-msvideo"},
    {".avif", "image/avif"},
    {".bmp", "image/bmp"},
    {".bz2", "application/x-bzip2"},
    {".crt", "application/x-x509-ca-cert"},
    {".css", "text/css"},
    {".csv", "text/csv"},
    {".deb", "application/vnd.debian.binary-package"},
    {".doc", "application/msword"},
    {".docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {".eml", "message/rfc822"},
    {".epub", "application/epub+zip"},
    {".flac", "audio/flac"},
    {".gif", "image/gif"},
    {".gz", "application/gzip"},
    {".htm", "text/html"},
    {".html", "text/html"},
    {".ico", "image/x-icon"},
    {".ics", "text/calendar"},
    {".jar", "application/java-archive"},
    {".jpeg", "image/jpeg"},
    {".jpg", "image/jpeg"},
    {".js", "text/javascript"},
    {".json", "application/json"},
    {".log", "text/plain"},
    {".m3u8", "application/vnd.apple.mpegurl"},
    {".m4a", "audio/mp4"},
    {".m4v", "video/mp4"},
    {".md", "text/markdown"},
    {".mid", "audio/midi"},
    {".mjs", "text/javascript"},
    {".mov", "video/quicktime"},
    {".mp3", "audio/mpeg"},
    {".mp4", "video/mp4"},
    {".mpeg", "video/mpeg"},
    {".mpg", "video/mpeg"},
    {".odp", "application/vnd.oasis.opendocument.presentation"},
    {".ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {".odt", "application/vnd.oasis.opendocument.text"},
    {".oga", "audio/ogg"},
    {".ogg", "audio/ogg"},
    {".ogv", "video/ogg"},
    {".opus", "audio/ogg"},
    {".otf", "font/otf"},
    {".pdf", "application/pdf"},
    {".png", "image/png"},
    {".ppt", "application/vnd.ms-powerpoint"},
    {".pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {".ps", "application/postscript"},
    {".rar", "application/vnd.rar"},
    {".rss", "application/rss+xml"},
    {".rtf", "application/rtf"},
    {".shtml", "text/html"},
    {".svg", "image/svg+xml"},
    {".svgz", "image/svg+xml"},
    {".tar", "application/x-tar"},
    {".text", "text/plain"},
    {".tif", "image/tiff"},
    {".tiff", "image/tiff"},
    {".ttf", "font/ttf"},
    {".txt", "text/plain"},
    {".wasm", "application/wasm"},
    {".wav", "audio/wav"},
    {".webm", "video/webm"},
    {".webmanifest", "application/manifest+json"},
    {".webp", "image/webp"},
    {".woff", "font/woff"},
    {".woff2", "font/woff2"},
    {".xht", "application/xhtml+xml"},
    {".xhtml", "application/xhtml+xml"},
    {".xls", "application/vnd.ms-excel"},
    {".xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {".xml", "text/xml"},
    {".xz", "application/x-xz"},
    {".zip", "application/zip"},
};

void AppendUpper(std::string& text, std::string_view name) {
  std::transform(name.begin(), name.end(), std::back_inserter(text), UpperAscii);
}

// The one text under which a value is kept. Steps of a key are never empty, so the first "\\" ends the key whatever
// the value's name holds.
std::string IndexText(std::uint32_t root, std::string_view key, std::string_view valueName) {
  std::string text = std::to_string(root);
  while (!key.empty()) {
    const std::size_t end = std::min(key.find('\\'), key.size());
    if (end > 0) {
      text += '\\';
      AppendUpper(text, key.substr(0, end));
    }
    key.remove_prefix(std::min(end + 1, key.size()));
  }
  text += "\\\\";
  AppendUpper(text, valueName);
  return text;
}

bool HasControl(std::string_view text) { return std::any_of(text.begin(), text.end(), IsControl); }

}  // namespace

RegistryStore::RegistryStore() {
  for (const BuiltIn& each : kBuiltIn) PutText(kClassesRoot, each.key, kContentType, each.contentType);
}

std::optional<std::uint32_t> RegistryStore::RootHandle(std::string_view name) {
  const auto root = std::find_if(kRoots.begin(), kRoots.end(), [name](const Root& each) { return each.name == name; });
  if (root == kRoots.end()) return std::nullopt;
  return root->handle;
}

void RegistryStore::PutBytes(std::uint32_t root, std::string_view key, std::string_view valueName,
                             std::string_view bytes) {
  std::string index = IndexText(root, key, valueName);
  std::string value(bytes);
  const std::lock_guard lock(mutex_);
  values_.insert_or_assign(std::move(index), std::move(value));
  revision_.fetch_add(1, std::memory_order_release);
}

bool RegistryStore::PutContentType(std::string_view extension, std::string_view contentType) {
  if (extension.starts_with('.')) extension.remove_prefix(1);
  if (extension.empty() || extension.find_first_of("\\=") != std::string_view::npos || HasControl(extension))
    return false;
  if (contentType.empty() || HasControl(contentType)) return false;
  PutText(kClassesRoot, "." + std::string(extension), kContentType, contentType);
  return true;
}

void RegistryStore::PutText(std::uint32_t root, std::string_view key, std::string_view valueName,
                            std::string_view text) {
  std::string bytes(text);
  bytes += '\0';
  PutBytes(root, key, valueName, bytes);
}

std::int32_t RegistryStore::LoadFile(std::string_view path) {
  std::string bytes;
  if (!OpenPath(path).ReadAll(bytes, kMaxFileBytes)) return 0;
  std::int32_t taken = 0;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (TakeLine(line)) ++taken;
  }
  return taken;
}

bool RegistryStore::TakeLine(std::string_view line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || HasControl(line)) return false;
  const std::string_view path = line.substr(0, equals);
  const std::size_t rootEnd = path.find('\\');
  const std::size_t keyEnd = path.rfind('\\');
  if (rootEnd == keyEnd) return false;  // no "\", or one: no key
  const auto root = RootHandle(path.substr(0, rootEnd));
  const std::string_view key = path.substr(rootEnd + 1, keyEnd - rootEnd - 1);
  if (!root || key.find_first_not_of('\\') == std::string_view::npos) return false;
  const std::string_view valueName = path.substr(keyEnd + 1);
  PutText(*root, key, valueName == "*" ? "" : valueName, line.substr(equals + 1));
  return true;
}

std::optional<std::string> RegistryStore::Bytes(std::uint32_t root, std::string_view key,
                                                std::string_view valueName) const {
  const std::string index = IndexText(root, key, valueName);
  const std::lock_guard lock(mutex_);
  const auto found = values_.find(index);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

}  // namespace TesselServer
