// The page that shows a folder: a heading, a link to the parent folder, a row for each sub-folder and for each file.
//
// kept: names are shown in the page as they are on disk, neither escaped nor, in the links of files, encoded. Who may
// name a file in a served folder may put markup into its listing.
//
// Thread:    the host's thread only. Reads two passes over the folder, which hold the thread: see kMaxListingBytes.
// Ownership: keeps references to the world and the open folder, and shares the names.
// Errors:    none; a folder that cannot be read has no rows, an entry that vanishes is left out. The page has no error
//            text.
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
#include "platform/files/FileSystem.h"

namespace TesselServer {

class FolderRecord;
class World;
struct DirectoryEntry;

// What is left out of a listing besides hidden files.
struct ListingRules {
  // Files of exactly this name.
  // kept: the same name in another case is listed.
  std::string authFileName;

  // This file, whatever its name.
  std::optional<FileIdentity> neverListed;

  // Links for which this returns false are not listed: given the link's name in the folder and its target, it says
  // whether a request for the link would be served. Without it no link is listed, since the target may lie anywhere.
  std::function<bool(const std::string& name, const FileIdentity& target)> linkIsServed;
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

  // The whole page. `LocalDir`, the folder's full path, gets a "\" at its end unless it has one. `UrlPath`, the path of
  // the URL as the client sent it, loses one "/" at its end when it has one; the title shows it as it came.
  // `ServerName` is shown in title and heading.
  std::string GetDirListing(std::string& LocalDir, std::string& UrlPath, const std::string& ServerName);

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
    Rows(std::string& rowsGoTo, std::string_view folder, std::string_view urlPath, std::size_t most);

    // Makes room for the rows of so many entries, as far as they may go.
    void Expect(std::size_t entries) const;

    std::string& page;
    std::string_view localDir;
    std::string begin;  // of each row, up to the entry's own address
    std::size_t limit;  // length of `page` that no row may pass
  };

  void AppendSubDirectories(const Rows& rows);
  void AppendFiles(const Rows& rows);
  bool IsListed(const DirectoryEntry& entry);

  const OpenFile& directory_;
  ListingRules rules_;
  std::shared_ptr<FolderRecord> names_;
  CFileInfo fileInfo_;      // points at each entry in turn
  std::int32_t links_ = 0;  // how many have been examined
};

}  // namespace TesselServer
