// Finds where the server's tags begin in a text.
//
// Thread:    any.
// Errors:    none.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace TesselServer {

// How all tags begin, byte for byte.
inline constexpr std::string_view kDirectiveStart = "<!--#";
inline constexpr std::string_view kScriptStart = "<%";

// The first position at or after `from` where `text` has `opener`, ASCII letters being equal in either case; npos when
// there is none. The same as FindNoCase, but made for HTML, where "<" is frequent and "#" and "%" are rare: it looks
// for the first of these two in the opener.
std::size_t FindOpener(std::string_view text, std::string_view opener, std::size_t from = 0);

// How many bytes a search looks at in one go where others wait for their turn: 40 us in a page of nothing but "%".
inline constexpr std::size_t kSearchWindow = 8192;

// One step of such a search: looks at the places from `from` on for about `window` bytes, which `from` then has left
// behind. npos: none of them begins `opener`; there is none at all when `from` has come to the end of `text`.
std::size_t FindOpenerInWindow(std::string_view text, std::string_view opener, std::size_t& from,
                               std::size_t window = kSearchWindow);

// The same for any text, byte for byte.
std::size_t FindInWindow(std::string_view text, std::string_view searched, std::size_t& from, std::size_t window);

// The tags that a processor looks for, by how they begin once they are normalised (see TagNormaliser.h).
enum class TagKind : unsigned {
  kEcho,
  kIncludeFile,
  kIncludeVirtual,
  kInclude,
  kExecCommand,
  kExecCGI,
  kFunction,
  kDirective,  // any "<!--#"
  kScript,     // any "<%"
};
std::string_view OpenerOf(TagKind kind);

class TagKinds {
 public:
  constexpr TagKinds() = default;
  constexpr TagKinds(std::initializer_list<TagKind> kinds) {
    for (const TagKind kind : kinds) Add(kind);
  }

  bool Has(TagKind kind) const { return HasAnyOf({kind}); }
  bool HasAnyOf(const TagKinds& others) const { return (bits_ & others.bits_) != 0; }
  bool IsEmpty() const { return bits_ == 0; }
  constexpr void Add(TagKind kind) { bits_ |= 1U << static_cast<unsigned>(kind); }

 private:
  unsigned bits_ = 0;
};

// Finds out which of them begin anywhere in a text, step by step. The text outlives it.
class TagScan {
 public:
  explicit TagScan(std::string_view text) : text_(text) {}

  // Makes a step; how many bytes it has looked at, 0 when all is done.
  std::size_t Step();
  // Those that were found so far.
  const TagKinds& Kinds() const { return kinds_; }

 private:
  void Add(std::string_view tag);

  std::string_view text_;
  std::string_view opener_ = kDirectiveStart;  // "" when all is done
  std::size_t from_ = 0;
  TagKinds kinds_;
};

// Whether a tag of the server's may begin anywhere in `text`. One that has none stays as it is.
inline bool HoldsTags(std::string_view text) {
  return FindOpener(text, kDirectiveStart) != std::string_view::npos ||
         FindOpener(text, kScriptStart) != std::string_view::npos;
}

}  // namespace TesselServer
