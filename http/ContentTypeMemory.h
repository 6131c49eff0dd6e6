// The content types that were found last, by extension, for all records of a control: a site has few kinds of files,
// and looking for a type in a long list costs more than the rest of an answer.
//
// Thread:    the host's thread only.
// Ownership: keeps at most kMaxBytes of texts, and the list of lines that its types are of.
// Errors:    none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "http/Enumerations.h"

namespace TesselServer {

class ContentTypeMemory {
 public:
  static constexpr std::size_t kMaxTypes = 16;  // more are not looked through faster than a registry
  static constexpr std::size_t kMaxExtensionBytes = 15;
  static constexpr std::size_t kMaxTypeBytes = 127;
  static constexpr std::size_t kMaxBytes = kMaxTypes * (kMaxExtensionBytes + 1 + kMaxTypeBytes + 1);

  using Lines = std::shared_ptr<const std::vector<std::string>>;

  // Says where types come from now. When that is another place than before, or the registry has changed since, all that
  // was found is forgotten.
  void ComesFrom(e_ContentTypeSource source, const Lines& lines, std::uint64_t registryRevision);

  // The type of `extension`, compared byte for byte; nothing when it is not known here. The text holds until the next
  // Keep or ComesFrom.
  std::optional<std::string_view> Find(std::string_view extension) const;

  // Remembers a type, in place of the one that was remembered first when there are kMaxTypes. Texts that are too long
  // are not remembered.
  void Keep(std::string_view extension, std::string_view type);

 private:
  struct Entry {
    std::string extension;
    std::string type;
  };

  e_ContentTypeSource source_ = e_ContentTypeSource::Registry;
  Lines lines_;
  std::uint64_t registryRevision_ = 0;
  std::array<Entry, kMaxTypes> entries_;
  std::size_t count_ = 0;  // how many of them are in use
  std::size_t next_ = 0;   // the one that the next type takes
};

}  // namespace TesselServer
