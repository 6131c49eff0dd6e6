// Entity tags (RFC 9110 section 8.8.3): the tag of a file, and the lists of tags by which clients ask.
//
// Thread:    any; pure.
// Ownership: returned views look into the views that were given.
// Errors:    none; what is no tag is equal to none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace TesselServer::Modern {

// What makes a file the one that it is, as the system reports it.
struct FileVersion {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;      // bytes
  std::int64_t modified = 0;  // nanoseconds since 1 January 1970 UTC
};

// The strong tag of a file: 64 bits in hexadecimal between quotes. Two versions that differ in one of the four values
// only never have the same tag; other ones once in 2^64. It does not disclose the values themselves to a casual reader.
//
//   FileTag tag({.device = 1, .inode = 2, .size = 3, .modified = 4});
//   tag.Text();  // "\"…16 digits…\""
class FileTag {
 public:
  explicit FileTag(const FileVersion& file);

  // Valid as long as this object.
  std::string_view Text() const { return {text_.data(), text_.size()}; }

 private:
  static constexpr std::size_t kDigits = 16;  // of 64 bits
  std::array<char, kDigits + 2> text_;
};

// A tag as it is sent: `opaque` with its quotes, and whether W/ is in front of it.
struct EntityTag {
  std::string_view opaque;
  bool isWeak = false;
};

// The tag that `text` begins with, which is removed from `text`; nothing, and `text` as it was, when none is there.
// Between the quotes may be any byte but controls, blanks and quotes; a "\" is a byte like others, and so is a comma.
std::optional<EntityTag> TakeEntityTag(std::string_view& text);

// Section 8.8.3.2: strong tags are equal when neither is weak; the weak comparison does not look at that.
enum class TagComparison { kStrong, kWeak };

// Whether `a` and `b` are one tag each, and equal.
bool IsSameEntityTag(std::string_view a, std::string_view b, TagComparison comparison);

// Whether `list`, the value of If-Match or If-None-Match, names what has the tag `tag`: by this tag, or by "*", which
// names whatever there is. A `tag` of "" is that of a thing without one. A list counts up to where it is broken.
bool ListsEntityTag(std::string_view list, std::string_view tag, TagComparison comparison);

}  // namespace TesselServer::Modern
