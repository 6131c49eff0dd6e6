// Texts that live as long as a page, and the values found for its tags. Small ones lie side by side in a few large
// blocks, so that a page with a million values goes away at once; large ones stay as they are.
//
// Thread:    any; a value that can be moved, not copied. What it has given stays where it is.
// Ownership: owns what it keeps.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TesselServer {

class PageTexts {
 public:
  // A longer text is not copied.
  static constexpr std::size_t kMaxSmallBytes = 4096;

  using Shared = std::shared_ptr<const std::string>;
  using Value = std::optional<std::string_view>;  // nothing: there is none
  using Values = std::pmr::map<std::string_view, Value>;

  PageTexts() = default;
  PageTexts(PageTexts&&) = default;
  PageTexts& operator=(PageTexts&&) = default;
  ~PageTexts();

  // The text at its place, where it stays.
  std::string_view Keep(std::string text);
  std::string_view Keep(Shared text);

  // The place of the value that `key` has among `values`, a new and empty set where that is null, and whether it is a
  // new one. Both stay as long as the texts do.
  std::pair<Value*, bool> Find(Values*& values, std::string_view key);

 private:
  static constexpr std::size_t kFirstBlockBytes = 320;  // for a few: many pages may wait for a program

  std::pmr::monotonic_buffer_resource& Small();
  std::string_view Copy(std::string_view text);

  std::unique_ptr<std::pmr::monotonic_buffer_resource> small_;
  std::vector<Shared> large_;
};

}  // namespace TesselServer
