// Texts that live as long as a page: small ones side by side in a few large blocks, so that a page with a million
// values goes away at once; large ones as they are.
//
// Thread:    any; a value that can be moved, not copied.
// Ownership: owns what it keeps.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

class PageTexts {
 public:
  // A longer text is not copied.
  static constexpr std::size_t kMaxSmallBytes = 4096;

  using Shared = std::shared_ptr<const std::string>;

  // The text at its place, where it stays.
  std::string_view Keep(std::string text);
  std::string_view Keep(Shared text);

 private:
  std::unique_ptr<std::pmr::monotonic_buffer_resource> small_;
  std::vector<Shared> large_;
};

}  // namespace TesselServer
