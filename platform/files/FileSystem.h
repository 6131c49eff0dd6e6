// Files as the server sees them: opened once, queried through their descriptor, never tested by name and opened again.
// In every path given to this layer "\" and "/" both separate.
//
// What takes long has a second form, a task that does it in turns: it goes on in the loop's next turn when the time of
// this one is over, and opens and reads beside the loop where a disk may keep it waiting (SlowDisk.h): in the turn no
// path is followed to another mount (OpenHere), but for a root of which it is known that it does not wait. What changes
// on disk meanwhile is seen or not. References that such a task is given stay good until it is done.
//
// Thread:    the host's thread only.
// Ownership: an OpenFile owns its descriptor and closes it; descriptors are close-on-exec.
// Errors:    a file that cannot be opened is a closed OpenFile or EntryKind::kNone. RootFolder::Find raises the socket
//            error 10024 or 10055 when the process has run out of descriptors or memory, for what it looks for may be
//            there.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/FileStamp.h"
#include "platform/tasks/Task.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {

class FileCache;
class FolderCache;
class FolderRecord;
struct CachedFile;
struct CollapsedPath;
class Turns;
class World;

// A file or directory that is open for reading, or nothing. A file whose contents are remembered counts as open and has
// no descriptor.
class OpenFile {
 public:
  OpenFile() = default;
  // Platform only: takes the descriptor over and asks it what it is; whatever is neither a regular file nor a directory
  // is closed at once.
  explicit OpenFile(int descriptor);
  // Platform only: an open file whose contents come from the cache.
  explicit OpenFile(std::shared_ptr<const CachedFile> cached);

  // What it was when it was opened. kNone when nothing is open; only regular files and directories ever are.
  EntryKind Kind() const { return IsOpen() ? KindOf(stamp_.mode) : EntryKind::kNone; }
  bool IsOpen() const { return descriptor_.IsOpen() || cached_ != nullptr; }

  // Length in bytes when it was opened; 0 for a directory.
  std::int64_t Size() const { return Kind() == EntryKind::kFile ? stamp_.size : 0; }

  FileIdentity Identity() const { return stamp_.identity; }

  // Time of last write when it was opened, in nanoseconds since 1 January 1970 UTC, modulo 2^64.
  std::int64_t ModifiedNanoseconds() const { return stamp_.modified; }

  // Reads the whole file into `bytes`, whatever its length now. False when it is longer than `limit` bytes, is no
  // regular file, or cannot be read; `bytes` then holds what was read.
  bool ReadAll(std::string& bytes, std::int64_t limit) const;

  // The absolute path without links that leads to it now, which says in which folder it really lies whatever name it
  // was found by. Asks the system at each call. "" when nothing is open or it cannot be determined (no /proc, for one,
  // or a file that is remembered and has just gone); a protection check must then refuse. " (deleted)" follows the name
  // of an open file that has been removed since.
  std::string CanonicalPath() const;

  // The whole contents where they are remembered, null otherwise.
  std::shared_ptr<const std::string> Contents() const;

  // Platform only. -1 for a file whose contents are remembered.
  int Descriptor() const { return descriptor_.Get(); }
  // Platform only. Null for one whose contents are not.
  const CachedFile* Cached() const { return cached_.get(); }
  // Platform only. What the system said of it when it was opened.
  const FileStamp& Stamp() const { return stamp_; }
  // Platform only. Whether its disk may keep each call waiting (SlowDisk.h), where that is known already: asking the
  // disk for it may have to wait as well. Known of what was opened in turns.
  std::optional<bool> MayWait() const { return mayWait_; }
  void MayWait(bool value) { mayWait_ = value; }

 private:
  UniqueDescriptor descriptor_{-1};
  std::shared_ptr<const CachedFile> cached_;
  FileStamp stamp_;
  std::optional<bool> mayWait_;
};

// What a look-up found.
struct FoundEntry {
  EntryKind kind = EntryKind::kNone;
  // The entry's true spelling below the root: "/" separators, none leading or trailing, "" = the root. It keeps the
  // names of links on the way, so it may name another folder than the one the entry lies in (OpenFile::CanonicalPath
  // has that one); only a link that is absolute or climbs out and comes back is replaced by the place it leads to.
  std::string name;
  bool readable = false;  // false: it exists but this process may not open it
  OpenFile file;          // open when readable
  // The last component of `name` is known to be the file's own: no link led to it, and no other spelling can have.
  // Where it is false OpenFile::CanonicalPath has the file's own name.
  bool isOwnName = false;
  // RootFolder::Remember can keep its contents: a file that was opened by exactly this name, without following a link.
  bool mayBeRemembered = false;
  // Platform only: it is not known what is there, for it lies where it would have to be opened beside the loop.
  bool isElsewhere = false;
};

// How the names of a path are compared with those on disk.
enum class NameMatch {
  kAnyCase,  // the spelling given, then the first name that is equal without regard to ASCII case
  kExact,    // the spelling given
};

// The document root: opens what lies beneath one folder, and nothing else.
//
//   RootFolder root("/srv/www");
//   root.Find("DOCS\\A B.HTM").name;      // "docs/a b.htm", if that is how it is spelled on disk
//   root.Find("docs/../../etc/passwd").kind;  // EntryKind::kNone
class RootFolder {
 public:
  static constexpr std::size_t kMaxPathBytes = 4096;      // PATH_MAX: nothing longer can be opened
  static constexpr std::size_t kMaxComponentBytes = 255;  // NAME_MAX

  // Keeps the folder's path, in its exact spelling (a link to a folder is one as well). It is opened when needed and
  // need not exist yet; each look-up detects that another folder has taken its place.
  explicit RootFolder(std::string path);

  // A folder that caches what it knows, as long as the system says that it has not changed: the names in folders
  // (FolderCache), and small files with their contents (FileCache), as far as Remember was called for them. `world`
  // outlives the object. Where the root lies on another mount than the system's root this asks its disk, and may have
  // to wait for it. With NameMatch::kExact a path is found as it is spelled, or not at all.
  RootFolder(std::string path, const World& world, NameMatch match = NameMatch::kAnyCase);
  RootFolder(RootFolder&&) noexcept;
  RootFolder& operator=(RootFolder&&) noexcept;
  RootFolder(const RootFolder&) = delete;
  RootFolder& operator=(const RootFolder&) = delete;
  ~RootFolder();

  const std::string& Path() const { return path_; }
  NameMatch Match() const { return match_; }

  // Finds `relative` beneath the root. Empty components and "." are dropped and ".." takes the component before it
  // away; a path that would climb above the root is not found. Each component is tried in the spelling given, then as
  // the first name in byte order that is equal without regard to ASCII case. Links are followed while their target
  // stays beneath the root. Not found as well: a path with a control character or NUL, a component or path longer
  // than the limits, a file's name with a separator after it, a file whose hidden or system attribute is set
  // (extended attribute "user.DOSATTRIB"), and whatever is neither a regular file nor a directory. The kernel keeps
  // the look-up beneath the root (openat2(2), RESOLVE_BENEATH), so neither a link nor a race leaves it. Where
  // the kernel or a sandbox does not offer that call, no link below the root is followed.
  FoundEntry Find(std::string_view relative) const;

  // The same, at once: nothing where the names in a folder would have to be read for it, or sorted, or hundreds of
  // components be looked at; where the root lies on a file system that may keep each call waiting (SlowDisk.h), or on
  // another mount than the system's root and that was not asked within the last minute; and where the path leads from
  // the root's mount to another one.
  std::optional<FoundEntry> FindAtOnce(std::string_view relative) const;

  // The same in turns, all of it beside the loop where it is not known that the disk does not wait. The object stays
  // alive, where it is, until the task is done.
  Task<FoundEntry> FindInTurns(std::string relative, Turns* turns) const;

  // To be called once for each request that is answered with the bytes of `found`, and for nothing that must not stay
  // in memory. At the second call within a minute a small file is kept with its contents, which then take the place of
  // its descriptor. Nothing happens to an entry that another folder has found.
  void Remember(FoundEntry& found) const;

  // The names in `folder`, which was found by this object, where they are remembered; else nullptr.
  Task<std::shared_ptr<FolderRecord>> NamesInTurns(const FoundEntry& folder, Turns* turns) const;

 private:
  struct Attempt;
  // How the root is reached, as the last look-up has found.
  struct Way {
    bool beginsAtRoot = false;  // a link or another mount leads to the root, so the whole path cannot be opened at once
    bool isOnOtherMount = false;  // than the system's root
    bool isKnown = false;         // that one does not wait
  };

  std::optional<FoundEntry> Remembered(const CollapsedPath& path) const;
  Attempt LookHere(const CollapsedPath& path) const;
  Task<FoundEntry> FindBesideLoop(CollapsedPath path, Turns& turns) const;
  void Learn(Attempt& attempt) const;
  void AskDisk();
  bool WasAsked() const;
  FoundEntry Direct(FoundEntry found) const;

  std::string path_;
  NameMatch match_ = NameMatch::kAnyCase;
  std::string systemPath_;  // path_ as the system takes it, "" for one that names nothing
  std::unique_ptr<FolderCache> folders_;
  std::unique_ptr<FileCache> files_;
  const World* world_ = nullptr;
  mutable Way way_;
  mutable bool mayWait_ = false;                   // it may keep each call waiting, for all that is known
  mutable std::optional<std::int64_t> whenAsked_;  // for that, World::MonotonicMilliseconds
};

// Opens the file or directory at `path`, absolute or below the working folder: in the spelling given, else with the
// case rule of RootFolder::Find for each component. For files that the host names itself (content types, error pages):
// no root holds it, links are followed anywhere, and hidden files are found. A file's name with a separator after it is
// not found.
OpenFile OpenPath(std::string_view path);
Task<OpenFile> OpenPathInTurns(std::string path, Turns* turns);

// What is at `path`, by the same rules; nothing is opened for reading, so a file that this process may not read
// counts as well.
EntryKind KindOfPath(std::string_view path);
Task<EntryKind> KindInTurns(std::string path, Turns* turns);

// Which file or folder is at `path`, with the case rule of OpenPath, asked without opening it.
struct PathIdentity {
  enum class State {
    kMissing,
    kFound,
    kDangling,  // a link is there whose target does not exist now
    kUnknown,   // for want of descriptors or permission; to be safe, take it for any file
  };
  State state = State::kMissing;
  FileIdentity identity;
};
PathIdentity IdentifyPath(std::string_view path);
Task<PathIdentity> IdentifyInTurns(std::string path, Turns* turns);

// The same, at once: nothing where the names in a folder would have to be read for it, or hundreds of components be
// looked at, or where it may lie on another mount than the system's root.
std::optional<PathIdentity> IdentifyAtOnce(std::string_view path);

// OpenFile::ReadAll in turns.
Task<bool> ReadInTurns(const OpenFile& file, std::string& bytes, std::int64_t limit, Turns* turns);

}  // namespace TesselServer
