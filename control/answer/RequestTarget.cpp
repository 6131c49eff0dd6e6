#include "control/answer/RequestTarget.h"

#include <utility>

#include "http/RunCGI.h"
#include "platform/world/AsciiCase.h"
#include "support/PathText.h"
#include "support/Text.h"

namespace TesselServer {

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// The byte that "%XX" at `position` encodes, or -1 when that is malformed or not allowed.
int DecodeAt(std::string_view path, std::size_t position) {
  if (position + 2 >= path.size()) return -1;
  const int high = HexDigit(path[position + 1]);
  const int low = HexDigit(path[position + 2]);
  if (high < 0 || low < 0) return -1;
  const int byte = high * 16 + low;
  const bool allowed = byte >= 0x20 && byte != 0x7F && !IsSeparator(static_cast<char>(byte));
  return allowed ? byte : -1;
}

FoundEntry FindOnce(const RootFolder& root, std::string_view requestPath) {
  FoundEntry entry = root.Find(ReplaceAll(requestPath, "%20", " "));
  if (entry.kind != EntryKind::kNone) return entry;
  const std::string decoded = DecodePath(requestPath);
  if (decoded.empty() || decoded == requestPath) return entry;
  return root.Find(decoded);
}

FoundEntry FindIndexPage(const RootFolder& root, const FoundEntry& folder, std::span<const std::string> indexPages,
                         const std::function<bool(const FoundEntry&)>& isSecret) {
  for (const std::string& name : indexPages) {
    if (name.empty()) continue;
    FoundEntry page = root.Find(folder.name + "/" + name);
    if (page.kind == EntryKind::kFile && !isSecret(page)) return page;
  }
  return {};
}

}  // namespace

std::string MapPath(std::string_view virtualPath, std::string_view requestPath) {
  if (!virtualPath.empty() && IsSeparator(virtualPath.back())) virtualPath.remove_suffix(1);
  if (!requestPath.empty() && IsSeparator(requestPath.front())) requestPath.remove_prefix(1);
  const std::string joined = std::string(virtualPath) + "\\" + std::string(requestPath);
  return Upper(ReplaceAll(ReplaceAll(joined, "/", "\\"), "%20", " "));
}

std::string DecodePath(std::string_view path) {
  std::string decoded;
  decoded.reserve(path.size());
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%') {
      decoded += path[i];
      continue;
    }
    const int byte = DecodeAt(path, i);
    if (byte < 0) return {};
    decoded += static_cast<char>(byte);
    i += 2;
  }
  return decoded;
}

std::string_view TrapExtension(const FoundEntry& target, std::string_view fileName) {
  return target.kind == EntryKind::kDirectory ? std::string_view() : ExtensionOf(fileName);
}

std::string ScriptNameOf(const FoundEntry& target, std::string_view requestPath) {
  if (target.kind == EntryKind::kDirectory) return {};
  std::string asked = ReplaceAll(LastComponent(requestPath), "%20", " ");
  const std::string_view found = LastComponent(target.name);
  return target.kind == EntryKind::kNone || EqualNoCase(asked, found) ? asked : std::string(found);
}

bool IsProgramRequest(std::string_view requestPath, std::string_view query) {
  const std::string asked = std::string(requestPath) + "?" + std::string(query);
  return IsProgramName(requestPath) || FindNoCase(asked, ".exe?") != std::string::npos;
}

FoundEntry FindProgram(const RootFolder& folder, std::string_view requestPath,
                       const std::function<bool(const FoundEntry&)>& isSecret) {
  FoundEntry program = FindOnce(folder, LastComponent(requestPath));
  const bool isProgram = program.kind == EntryKind::kFile && IsProgramName(program.name) && !isSecret(program);
  return isProgram ? std::move(program) : FoundEntry();
}

FoundEntry ResolveTarget(const RootFolder& root, std::string_view requestPath, std::span<const std::string> indexPages,
                         const std::function<bool(const FoundEntry&)>& isSecret) {
  FoundEntry entry = FindOnce(root, requestPath);
  if (entry.kind == EntryKind::kDirectory) {
    FoundEntry page = FindIndexPage(root, entry, indexPages, isSecret);
    return page.kind == EntryKind::kFile ? std::move(page) : std::move(entry);
  }
  if (entry.kind == EntryKind::kFile && isSecret(entry)) return {};
  return entry;
}

}  // namespace TesselServer
