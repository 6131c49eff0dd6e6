// Paths as text and names on disk: what a path means before anything is opened, and how its components are really
// spelled.
//
// Thread:    any.
// Ownership: returns values; descriptors stay the caller's.
// Errors:    none; nothing is returned for what cannot be found.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/files/OpenPaths.h"

namespace TesselServer {

class KnownFolders;

// A path below a folder as it is looked up.
struct CollapsedPath {
  std::string text;       // "/" separators, none leading, trailing or doubled, no "." or ".."; "" = the folder
  bool asFolder = false;  // the path ended in a separator, "." or "..": only a folder can be meant
};

// Drops empty components and "." and lets ".." take the component before it away; "\" and "/" both separate. Nothing
// for a path that climbs above its start, holds a control character, or is longer than RootFolder's limits.
std::optional<CollapsedPath> CollapsePath(std::string_view path);

// `path` with "/" for every "\".
std::string WithSlashes(std::string_view path);

// The path that `path` ("/" separators) has on disk: each component in the spelling given, else as the first name in
// byte order that is equal without regard to ASCII case. The text keeps the names of links that were followed, except
// where `open` refuses one with EXDEV and the link ends beneath `folder` all the same: there the walk goes on at the
// link's end. The names of folders that are read are taken from and kept in `known`, if there is one.
std::optional<std::string> TrueSpelling(OpenFunction open, int folder, std::string_view path,
                                        KnownFolders* known = nullptr);

}  // namespace TesselServer
