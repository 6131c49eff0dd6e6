// One file or folder: its size, attributes and time of last write, the way to change attributes and times, and sizes
// and dates as text.
//
// kept: of its many values only six are ever filled (FullPathName, FileExists, PathExists, FileSize, Attributes,
// ModifyTime); the others always read as empty or 0.
//
// In paths "\" and "/" both separate, and there are no wildcards. A name is tried in the spelling given, then as the
// first one that is equal without regard to ASCII case. Links count as what they lead to; only regular files and
// folders exist. Dates are local time in the world's time zone, as it was at that moment.
//
// Thread:    the host's thread only.
// Ownership: keeps a reference to the world; nothing is held open between calls.
// Errors:    none; failures show only in FileExists and in values that stay as they were.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/FileFacts.h"
#include "support/Dates.h"

namespace TesselServer {

class World;

//   CFileInfo info(SystemWorld());
//   info.FullPathName("docs/report.pdf");
//   if (info.FileExists()) Show(info.FormatFileSize(info.FileSize()));
class CFileInfo {
 public:
  explicit CFileInfo(const World& world) : world_(world) {}

  // Property FullPathName (read/write). Default: "". Setting it makes a full path of the text (FullPathOf: below the
  // working folder, with "/", without "." and ".."), stores that and calls Refresh. A text that has no full path
  // changes nothing: "", one with a NUL, one that is longer than the system's 4095 bytes. A path that ends in a
  // separator is stored with it, and nothing is found there.
  const std::string& FullPathName() const { return fullPathName_; }
  void FullPathName(std::string_view path);

  // Sets what is known already of the entry at `folder` followed by `name`: used in place of FullPathName where the
  // entry was read from a folder, and saves another look-up by name.
  void SetEntry(std::string_view folder, std::string_view name, const FileFacts& facts);

  // Always "".
  std::string FileName() const { return {}; }
  std::string FilePath() const { return {}; }
  std::string FileExtension() const { return {}; }
  std::string ShortPathName() const { return {}; }
  std::string ShortName() const { return {}; }
  std::string ShortPath() const { return {}; }
  std::string DisplayName() const { return {}; }
  std::string TypeName() const { return {}; }

  // Whether the last Refresh found the entry. When not, all values below are those of the previous entry.
  bool FileExists() const { return fileExists_; }

  // kept: whether any Refresh ever found an entry.
  bool PathExists() const { return pathExists_; }

  // kept: the low 32 bits of the size, signed: 2 GiB reads as -2147483648. 0 for a folder.
  std::int32_t FileSize() const { return fileSize_; }

  // Always 0.
  std::int32_t FileSizeHigh() const { return 0; }
  std::int32_t CompressedFileSize() const { return 0; }
  std::int32_t CompressedFileSizeHigh() const { return 0; }

  // Property CreationTime (read/write): always reads 0. Setting it changes nothing, for Linux has no call that does.
  Date CreationTime() const { return 0; }
  void CreationTime(Date date);

  // Property LastAccessTime (read/write): always reads 0. Setting it sets the file's time to the nearest second, and
  // Refresh follows. It is not set when the entry does not exist, cannot be opened for writing (a folder: for reading)
  // or belongs to another user. A local time that occurs twice at the end of summer time means the first one; one that
  // is skipped at its beginning is moved on by the skipped time.
  Date LastAccessTime() const { return 0; }
  void LastAccessTime(Date date);

  // Property ModifyTime (read/write): the time of last write, to the second, what is beyond it dropped. Default: 0.
  // Setting it sets the file's, as with LastAccessTime.
  Date ModifyTime() const { return modified_ ? FileTimeToDate(*modified_, true) : 0; }
  void ModifyTime(Date date);

  // Property Attributes (read/write): a sum of 1 read-only, 2 hidden, 4 system, 16 folder, 32 archive, 256 temporary.
  // Default: 0. Hidden, system and temporary lie in the extended attribute "user.DOSATTRIB"; read-only means that the
  // owner has no permission to write; every file has archive, and the bit for compressed, 2048, is never there. Setting
  // a value that differs from the stored one writes the attributes that can be written (WriteFileAttributes), and
  // Refresh follows; where that fails nothing changes.
  std::int32_t Attributes() const { return attributes_; }
  void Attributes(std::int32_t attributes);

  // Properties attrReadOnly to attrArchive (read/write): whether the bit of Attributes is set. Setting one sets
  // Attributes with that bit changed. A file keeps its archive bit and a folder gets none, whatever is set.
  bool attrReadOnly() const { return HasAttribute(FileAttribute::kReadOnly); }
  void attrReadOnly(bool set) { SetAttribute(FileAttribute::kReadOnly, set); }
  bool attrHidden() const { return HasAttribute(FileAttribute::kHidden); }
  void attrHidden(bool set) { SetAttribute(FileAttribute::kHidden, set); }
  bool attrSystem() const { return HasAttribute(FileAttribute::kSystem); }
  void attrSystem(bool set) { SetAttribute(FileAttribute::kSystem, set); }
  bool attrArchive() const { return HasAttribute(FileAttribute::kArchive); }
  void attrArchive(bool set) { SetAttribute(FileAttribute::kArchive, set); }

  // Properties attrTemporary and attrCompressed (read/write): whether the bit is set.
  // kept: setting them does nothing.
  bool attrTemporary() const { return HasAttribute(FileAttribute::kTemporary); }
  void attrTemporary(bool) {}
  bool attrCompressed() const { return HasAttribute(kCompressed); }
  void attrCompressed(bool) {}

  // Always 0: there is no icon, and none to be destroyed.
  std::int32_t hIcon() const { return 0; }

  // Looks the entry at FullPathName up again. When it is not there FileExists becomes false.
  // kept: and nothing else changes, so PathExists, FileSize, Attributes and ModifyTime are those of the previous entry.
  void Refresh();

  // kept: not the time of any folder but the date of the file time 0 (1 January 1601, UTC) in local time, as text of at
  // most 15 digits: "-109205" where local time is UTC.
  std::string DirModTime() const;

  // "Sunday, November 15, 2026 6:20:05 PM".
  std::string FormatFileDate(Date date) const;

  // `date` by the picture `format`, then "18:20:05" after a blank; the time alone; the date alone.
  std::string FormatFileDateShort(Date date, std::string_view format) const;
  std::string FormatFileTimeOnlyShort(Date date) const;
  std::string FormatFileDateOnlyShort(Date date, std::string_view format) const;

  // `size` bytes as text: "1,023 bytes", "1.00KB", "10.0KB", "100KB", "0.98MB", "0.98GB". Three digits count: the unit
  // changes at 1000 whole units of 1024 KB, not at 1024. A negative size is a number of bytes.
  std::string FormatFileSize(std::int32_t size) const;

 private:
  friend struct CFileInfoInsides;  // access for the tests

  static constexpr std::uint32_t kCompressed = 2048;

  // Which time WriteFileTime sets.
  enum class WhichTime { kCreation = 0, kLastAccess = 1, kLastWrite = 2 };

  // A file time is whole seconds since 1 January 1970 UTC. ToLocal and FromLocal say that the date is local time; else
  // it is UTC.
  Date FileTimeToDate(std::int64_t fileTime, bool ToLocal) const;
  std::int64_t DateToFileTime(Date date, bool FromLocal) const;

  bool WriteAttributes(std::int32_t attributes);
  bool WriteFileTime(Date date, WhichTime which);

  // The path of a folder in the spelling on disk, "\" between its components, "" when it is no folder there. A bare
  // drive and a path of a drive alone are upper-cased, a path of a server and its share alone stays as it is.
  static std::string GetTruePathCase(std::string_view path);

  // The text before its first NUL, the text without its outer blanks when it has none.
  static std::string_view StripAtNul(std::string_view text);

  bool HasAttribute(std::uint32_t bit) const { return (static_cast<std::uint32_t>(attributes_) & bit) != 0; }
  void SetAttribute(std::uint32_t bit, bool set);
  void Take(const FileFacts& facts);

  const World& world_;
  std::string fullPathName_;
  bool fileExists_ = false;
  bool pathExists_ = false;
  std::int32_t fileSize_ = 0;
  std::int32_t attributes_ = 0;
  std::optional<std::int64_t> modified_;  // a file time; made a date when it is asked for
};

}  // namespace TesselServer
