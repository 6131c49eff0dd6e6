// Paths as text: what separates, and what the last part is. Both "/" and "\" separate.
//
// Thread:    any.
// Ownership: a returned view looks into the view that was given.
// Errors:    none.
#pragma once

#include <string_view>

namespace TesselServer {

constexpr bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// The text after the last separator, the whole path when it has none.
constexpr std::string_view LastComponent(std::string_view path) {
  std::size_t start = path.size();
  while (start > 0 && !IsSeparator(path[start - 1])) --start;
  return path.substr(start);
}

// The text before LastComponent, its separator included.
constexpr std::string_view FolderOf(std::string_view path) {
  return path.substr(0, path.size() - LastComponent(path).size());
}

// The text after the last "." of the last component; a component without one is all extension.
constexpr std::string_view ExtensionOf(std::string_view path) {
  const std::string_view name = LastComponent(path);
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(dot + 1);
}

}  // namespace TesselServer
