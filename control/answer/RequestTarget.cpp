#include "control/answer/RequestTarget.h"

#include <algorithm>
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

std::string WithBlanks(std::string_view requestPath) { return ReplaceAll(requestPath, "%20", " "); }

// Whether a path is so long that nothing is found at it, however it is read: decoded it is a third as long at least.
bool IsTooLong(std::string_view requestPath) { return requestPath.size() > 3 * RootFolder::kMaxPathBytes; }

Task<FoundEntry> FindOnce(const RootFolder& root, std::string requestPath, Turns* turns) {
  if (IsTooLong(requestPath)) co_return FoundEntry();
  auto asItIs = root.FindInTurns(WithBlanks(requestPath), turns);
  FoundEntry entry = co_await asItIs;
  if (entry.kind != EntryKind::kNone) co_return entry;
  std::string decoded = DecodePath(requestPath);
  if (decoded.empty() || decoded == requestPath) co_return entry;
  auto asDecoded = root.FindInTurns(std::move(decoded), turns);
  co_return co_await asDecoded;
}

std::string PageIn(const FoundEntry& folder, const std::string& name) { return folder.name + "/" + name; }

Task<FoundEntry> FindIndexPage(const RootFolder& root, const FoundEntry& folder,
                               const std::vector<std::string>& indexPages, const SecretFiles& secrets, Turns* turns) {
  for (const std::string& name : indexPages) {
    if (name.empty()) continue;
    auto search = root.FindInTurns(PageIn(folder, name), turns);
    FoundEntry page = co_await search;
    if (page.kind != EntryKind::kFile) continue;
    auto check = secrets.ContainsInTurns(page, turns);
    const bool isSecret = co_await check;
    if (!isSecret) co_return page;
  }
  co_return FoundEntry();
}

// The first index page of a folder; kNone where it has none, nothing where that is not known at once.
std::optional<FoundEntry> IndexPageAtOnce(const RootFolder& root, const FoundEntry& folder,
                                          std::span<const std::string> indexPages, const SecretFiles& secrets) {
  for (const std::string& name : indexPages) {
    if (name.empty()) continue;
    auto page = root.FindAtOnce(PageIn(folder, name));
    if (!page) return std::nullopt;
    if (page->kind != EntryKind::kFile) continue;
    const auto isSecret = secrets.ContainsAtOnce(*page);
    if (!isSecret) return std::nullopt;
    if (!*isSecret) return page;
  }
  return FoundEntry();
}

}  // namespace

std::string MapPath(std::string_view virtualPath, std::string_view requestPath) {
  if (!virtualPath.empty() && IsSeparator(virtualPath.back())) virtualPath.remove_suffix(1);
  if (!requestPath.empty() && IsSeparator(requestPath.front())) requestPath.remove_prefix(1);
  std::string path;
  path.reserve(virtualPath.size() + 1 + requestPath.size());
  path.append(virtualPath).append("\\").append(requestPath);
  std::transform(path.begin(), path.end(), path.begin(), [](char c) { return c == '/' ? '\\' : UpperAscii(c); });
  return path.find('%') == std::string::npos ? path : WithBlanks(path);
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
  if (IsProgramName(requestPath)) return true;  // or the "?" is the one after the path
  return FindNoCase(requestPath, ".exe?") != kNpos || FindNoCase(query, ".exe?") != kNpos;
}

Task<FoundEntry> FindProgram(const RootFolder& folder, std::string requestPath, const SecretFiles& secrets,
                             Turns* turns) {
  auto search = FindOnce(folder, std::string(LastComponent(requestPath)), turns);
  FoundEntry program = co_await search;
  if (program.kind != EntryKind::kFile || !IsProgramName(program.name)) co_return FoundEntry();
  auto check = secrets.ContainsInTurns(program, turns);
  const bool isSecret = co_await check;
  if (isSecret) co_return FoundEntry();
  co_return program;
}

Task<FoundEntry> ResolveTarget(const RootFolder& root, std::string requestPath, std::vector<std::string> indexPages,
                               const SecretFiles& secrets, Turns* turns) {
  auto search = FindOnce(root, std::move(requestPath), turns);
  FoundEntry entry = co_await search;
  if (entry.kind == EntryKind::kDirectory) {
    auto pageSearch = FindIndexPage(root, entry, indexPages, secrets, turns);
    FoundEntry page = co_await pageSearch;
    if (page.kind == EntryKind::kFile) co_return page;
    co_return entry;
  }
  if (entry.kind != EntryKind::kFile) co_return entry;
  auto check = secrets.ContainsInTurns(entry, turns);
  const bool isSecret = co_await check;
  if (isSecret) co_return FoundEntry();
  co_return entry;
}

std::optional<FoundEntry> ResolveAtOnce(const RootFolder& root, std::string_view requestPath,
                                        std::span<const std::string> indexPages, const SecretFiles& secrets) {
  if (IsTooLong(requestPath)) return FoundEntry();
  auto entry = root.FindAtOnce(WithBlanks(requestPath));
  if (!entry) return entry;
  switch (entry->kind) {
    case EntryKind::kNone:
      if (requestPath.find('%') != std::string_view::npos) return std::nullopt;
      return entry;
    case EntryKind::kDirectory: {
      auto page = IndexPageAtOnce(root, *entry, indexPages, secrets);
      return page && page->kind == EntryKind::kNone ? std::move(entry) : std::move(page);
    }
    case EntryKind::kFile: {
      const auto isSecret = secrets.ContainsAtOnce(*entry);
      if (!isSecret) return std::nullopt;
      return *isSecret ? FoundEntry() : std::move(entry);
    }
  }
  return std::nullopt;
}

}  // namespace TesselServer
