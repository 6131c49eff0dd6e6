// From the path of a request to the file or folder that answers it.
//
// Thread:    the host's thread.
// Ownership: a target owns its open file. The folder that a task looks in, and the secret files, outlive the task.
// Errors:    none; what is not there is EntryKind::kNone.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "http/SecretFiles.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

// The local path of a request as the system writes it: the root and the path joined with one "\", "/" as "\", "%20" as
// a blank, in upper case.
//
//   MapPath("/srv/www", "docs/a%20b.htm");  // "\SRV\WWW\DOCS\A B.HTM"
std::string MapPath(std::string_view virtualPath, std::string_view requestPath);

// Every "%XX" of `path` decoded, once. "" when one is no two hexadecimal digits, or encodes a control character, a
// NUL, "/" or "\": such a path names nothing. A path without "%" is returned as it is.
std::string DecodePath(std::string_view path);

// The text after the last "." of a file's name, the whole name when it has none, "" for a folder.
std::string_view TrapExtension(const FoundEntry& target, std::string_view fileName);

// The file part of a request, as server variables show it: the client's own spelling of the last name of its path, with
// "%20" as a blank; the name of what was found where that is another one (an index page, a decoded name); "" for a
// folder.
//
//   ScriptNameOf(found, "/docs/INDEX.HTML");  // "INDEX.HTML", though the file is "docs/index.html"
std::string ScriptNameOf(const FoundEntry& target, std::string_view requestPath);

// Whether a request is for a program: its path ends in ".exe", or ".exe?" is anywhere in path, "?" and query; any
// case.
bool IsProgramRequest(std::string_view requestPath, std::string_view query);

// The program in `folder` whose name is the last component of `requestPath`, read as by ResolveTarget. Nothing when it
// is no file there, is no name of a program, or is one of the `secrets`.
Task<FoundEntry> FindProgram(const RootFolder& folder, std::string requestPath, const SecretFiles& secrets,
                             Turns* turns);

// Finds what `requestPath` names beneath `root`: as it is spelled, "%20" being a blank; where nothing exists there,
// with every "%XX" decoded, for the links of listings are encoded further than requests are decoded. In a folder the
// first of the `indexPages` that is a file wins over the folder. One of the `secrets` counts as not existing.
Task<FoundEntry> ResolveTarget(const RootFolder& root, std::string requestPath, std::vector<std::string> indexPages,
                               const SecretFiles& secrets, Turns* turns);

// The same for what is found at once: a path that is spelled as it is on disk, without "%" where nothing exists at it.
// Nothing where the names of a folder have to be read, or a path has to be decoded.
std::optional<FoundEntry> ResolveAtOnce(const RootFolder& root, std::string_view requestPath,
                                        std::span<const std::string> indexPages, const SecretFiles& secrets);

}  // namespace TesselServer
