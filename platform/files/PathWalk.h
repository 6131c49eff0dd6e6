// Paths as text and names on disk: what a path means before anything is opened, how its components are really spelled,
// and the look-up that RootFolder uses. The way of opening is an argument, so that tests cover on any machine what only
// some kernels support.
//
// Thread:    any; the host's thread only where a cache is given.
// Ownership: returns values; descriptors stay the caller's, an entry owns what it opened.
// Errors:    none; nothing, or kNone, is returned for what cannot be found or opened.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/files/FileSystem.h"
#include "platform/files/OpenPaths.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class FolderCache;
class Turns;

// A path below a folder as it is looked up.
struct CollapsedPath {
  std::string text;       // "/" separators, none leading, trailing or doubled, no "." or ".."; "" = the folder
  bool asFolder = false;  // the path ended in a separator, "." or "..": only a folder can be meant
};

// Drops empty components and "." and lets ".." take the component before it away; "\" and "/" both separate. Nothing
// for a path that climbs above its start, holds a control character, or is longer than RootFolder's limits.
std::optional<CollapsedPath> CollapsePath(std::string_view path);

// Goes from `path` ("/" between its components, none at its ends) one component further, or back for "..". False where
// ".." would climb above its start; the path is then unchanged.
bool ApplyComponent(std::string& path, std::string_view component);

// `path` with "/" for every "\".
std::string WithSlashes(std::string_view path);

// `name` below the folder `root`; "" is the folder itself. The last name of a path ("/" separators), and what comes
// before that name, its separator included.
std::string JoinPath(std::string_view root, std::string_view name);
const char* LastNameOf(const std::string& path);
std::string FolderPathOf(const std::string& path);

// The path that `path` ("/" separators) has on disk: each component in the spelling given, else as the first name in
// byte order that is equal without regard to ASCII case. The text keeps the names of links that were followed, except
// where `open` refuses one with EXDEV and the link ends beneath `folder` all the same: there the walk goes on at the
// link's end. The names of folders that are read are taken from and kept in `known`, if there is one.
std::optional<std::string> TrueSpelling(OpenFunction open, int folder, std::string_view path,
                                        FolderCache* known = nullptr);

// The same in turns: some steps, or some names of a folder, in each. `folder` stays open and `known` alive meanwhile.
struct Spelling {
  std::optional<std::string> path;
  bool isElsewhere = false;  // `open` does not go where it may be (kElsewhere); there is no path then
};
// With NameMatch::kExact no folder's names are read: what is not there as it is spelled is missing.
Task<Spelling> TrueSpellingInTurns(OpenFunction open, int folder, std::string path, FolderCache* known, Turns* turns,
                                   NameMatch match = NameMatch::kAnyCase);

// The same at once: nothing where the names in a folder would have to be read or sorted for it, or where it would take
// more than some 40 microseconds: for a path of hundreds of components, or of dozens that are spelled otherwise.
std::optional<Spelling> TrueSpellingAtOnce(OpenFunction open, int folder, std::string path, FolderCache* known,
                                           NameMatch match = NameMatch::kAnyCase);

// The flags with which an entry is opened: non-blocking, so that a FIFO without a writer cannot hold the thread until
// it is seen to be one.
int FlagsForReading();

// What was opened by exactly the name `path`: kNone for what is not to be served. In this and in what follows an entry
// that isElsewhere is returned where `open` does not go where the path leads.
FoundEntry EntryOpened(const CollapsedPath& path, OpenFile file);

// What RootFolder::Find promises for the folder open as `root`, opened through `open`. `tried` is the error of an
// attempt to open the path without following a link, or 0.
FoundEntry FindBeneath(OpenFunction open, int root, const CollapsedPath& path, FolderCache* known = nullptr,
                       int tried = 0);

// Its parts: what is there in the spelling given, or nothing where other spellings are to be tried; then those, at once
// as TrueSpellingAtOnce has it, else nothing; or in turns, while `root` stays open and `known` alive.
std::optional<FoundEntry> FindAsSpelled(OpenFunction open, int root, const CollapsedPath& path, int tried);
std::optional<FoundEntry> FindOtherwiseAtOnce(OpenFunction open, int root, const CollapsedPath& path,
                                              FolderCache* known, NameMatch match = NameMatch::kAnyCase);
Task<FoundEntry> FindOtherwise(OpenFunction open, int root, CollapsedPath path, FolderCache* known, Turns* turns,
                               NameMatch match = NameMatch::kAnyCase);

}  // namespace TesselServer
