// The page that shows a folder: a heading, a link to the parent folder, a row for each sub-folder and for each file.
//
// kept: names are shown in the page as they are on disk, neither escaped nor, in the links of files, encoded. Who may
// name a file in a served folder may put markup into its listing.
//
// A page that is made in turns of the loop shows each name once at most, and of what changes meanwhile this or that:
// every row is whole, and true of the moment it was made.
//
// Thread:    the host's thread only. GetDirListing and the calls for one kind of rows hold it through two passes over
//            the folder (see kMaxListingBytes); ListInTurns for some 50 us at a time.
// Ownership: keeps references to the world and the open folder, and shares the names. A task of its own is destroyed
//            before it.
// Errors:    none but those of memory running out; a folder that cannot be read has no rows, an entry that vanishes is
//            left out. The page has no error text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "files/CFileInfo.h"
#include "files/NameSet.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class FolderRecord;
class Turns;
class World;
struct DirectoryEntry;

// What is left out of a listing besides hidden files.
struct ListingRules {
  // Files of exactly this name.
  // kept: the same name in another case is listed.
  std::string authFileName;

  // This file, whatever its name.
  std::optional<FileIdentity> neverListed;

  // Links for which this says false are not listed: given the link's name in the folder and its target, it says whether
  // a request for the link would be served. Without it no link is listed, since the target may lie anywhere. For a
  // listing that is made in the call it must not have to wait.
  std::function<Task<bool>(std::string name, FileIdentity target)> linkIsServed;
};

//   cls_DirListing listing(world, found.file, {"htaccess.txt", {}, {}});
//   std::string page = listing.GetDirListing(localDir, urlPath, "My server");
class cls_DirListing {
 public:
  // The longest page. The first row that would make it longer ends the rows; the page is closed as usual. So a folder
  // of any size costs bounded memory.
  static constexpr std::size_t kMaxListingBytes = 64 * 1024 * 1024;

  // How many entries of one kind, listed or not, and how many links of both kinds are looked at; what comes after is
  // not listed. A link costs several times what another entry costs.
  static constexpr std::int32_t kMaxEntries = 500'000;
  static constexpr std::int32_t kMaxLinks = 10'000;

  // `directory` is the folder as it was opened: nothing is looked up by path again. `names` are the names in it now,
  // where they are remembered (RootFolder::NamesIn); without them (nullptr) the folder is read.
  cls_DirListing(const World& world, const OpenFile& directory, ListingRules rules,
                 std::shared_ptr<FolderRecord> names = nullptr)
      : directory_(directory), rules_(std::move(rules)), names_(std::move(names)), fileInfo_(world) {}
  cls_DirListing(const cls_DirListing&) = delete;
  cls_DirListing& operator=(const cls_DirListing&) = delete;

  // From here on a page of ListInTurns is only made as long as `mayHold` allows: it is asked again and again, with the
  // bytes of memory that the page takes by now.
  void MayHold(std::function<bool(std::size_t bytes)> mayHold) { mayHold_ = std::move(mayHold); }

  // The whole page. `LocalDir`, the folder's full path, gets a "\" at its end unless it has one. `UrlPath`, the path of
  // the URL as the client sent it, loses one "/" at its end when it has one; the title shows it as it came.
  // `ServerName` is shown in title and heading.
  std::string GetDirListing(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName);

  // As GetDirListing, in turns of the loop; `turns` nullptr: in the call. The arguments and this outlive the task. A
  // link is followed, and a folder on a disk that may wait is read, beside the loop. Nothing where MayHold did not
  // allow it.
  Task<std::optional<std::string>> ListInTurns(std::string& LocalDir, std::string& UrlPath,
                                               const std::string& ServerName, Turns* turns);

  // The rows for sub-folders: those whose name does not begin with ".", hidden ones too, in the order of the system.
  // Their links are `UrlPath`, "/" and the encoded name. For `LocalDir` and `UrlPath` as GetDirListing leaves them,
  // which they stay; `ServerName` is not used.
  std::string ListSubDirectories(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName);

  // The rows for files, dot files too, but for hidden ones and those named by the rules. Their links are `UrlPath`,
  // "/" and the name as it is.
  std::string ListFiles(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName);

 private:
  // Where rows go to and what they are made with.
  struct Rows {
    Rows(std::string& rowsGoTo, std::string_view urlPath, std::size_t most);

    // Makes room for so many bytes, and for the rows of so many entries, as far as they may go. No more than
    // kMovedAtMost bytes of the page are ever moved for it.
    static constexpr std::size_t kMovedAtMost = 256 * 1024;
    void MakeRoom(std::size_t bytes) const {
      if (page.size() + bytes > page.capacity()) Grow(page.size() + bytes);
    }
    void Expect(std::size_t entries) const;
    void Grow(std::size_t wanted) const;

    std::string& page;
    std::string begin;         // of each row, up to the entry's own address
    std::size_t limit;         // length of `page` that no row may pass
    NameSet* shown = nullptr;  // names that have a row; null where the folder is read in the call
  };
  class RowEnd;
  class Pass;
  enum class Stretch { kMore, kLink, kMustFetch, kEnd };

  Task<bool> AppendInTurns(const Rows& rows, EntryKind kind, Turns* turns);
  Stretch AppendSome(Pass& pass);
  bool IsListed(const DirectoryEntry& entry, EntryKind kind) const;
  bool AppendRow(Pass& pass);
  bool HasRow(const Pass& pass) const;
  bool MayAskOfLink() const { return rules_.linkIsServed && links_ < kMaxLinks; }
  Task<bool> LinkIsServed(std::string name, FileIdentity target);
  bool MayGoOn(const Rows& rows) const;

  const OpenFile& directory_;
  ListingRules rules_;
  std::shared_ptr<FolderRecord> names_;
  std::function<bool(std::size_t bytes)> mayHold_;
  CFileInfo fileInfo_;      // points at each entry in turn
  std::int32_t links_ = 0;  // how many have been examined
};

}  // namespace TesselServer
