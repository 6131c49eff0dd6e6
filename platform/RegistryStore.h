// The store that stands in for a registry: values by root, key path and value name. Names are compared without regard
// to ASCII case; "\" separates the steps of a key path. A value is raw bytes with its terminating zero.
//
// Thread:    the host's thread only.
// Ownership: keeps its own copy of every name and value.
// Errors:    none.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer {

class RegistryStore {
 public:
  // Holds the "Content Type" values of the usual file extensions below the root of classes (0x80000000): ".html" is
  // "text/html", ".txt" "text/plain", ".png" "image/png" and so on, so that a control with its default content-type
  // source serves a site as a browser needs it.
  RegistryStore();

  // Root handles, as CRegSettings names them.
  static constexpr std::uint32_t kClassesRoot = 0x80000000;

  // Puts `bytes` (with its terminating zero, if it has one) in place of what stood there.
  void PutBytes(std::uint32_t root, std::string_view key, std::string_view valueName, std::string_view bytes);

  // Puts `text` and a terminating zero.
  void PutText(std::uint32_t root, std::string_view key, std::string_view valueName, std::string_view text);

  // The raw bytes of a value; nothing when the key or the value does not exist. The value name "" is the key's
  // unnamed default value.
  std::optional<std::string_view> Bytes(std::uint32_t root, std::string_view key, std::string_view valueName) const;

 private:
  std::map<std::string, std::string, std::less<>> values_;  // "root\key\\value", upper-cased -> bytes
};

}  // namespace TesselServer
