// The store used in place of a registry: values by root, key path and value name. Names are compared without regard
// to ASCII case; "\" separates the steps of a key path, and empty steps do not count. A value is raw bytes with its
// terminating zero.
//
// Thread:    any, several at once: the loops of a process share the one of the system's world.
// Ownership: keeps its own copy of every name and value.
// Errors:    none; a file or a line that cannot be used adds nothing.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
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

  static constexpr std::uint32_t kClassesRoot = 0x80000000;
  static constexpr std::int64_t kMaxFileBytes = 1024 * 1024;  // some 20,000 values; a larger file is not taken

  // The handle of the root called `name`, compared byte for byte: "HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER",
  // "HKEY_LOCAL_MACHINE", "HKEY_USERS", "HKEY_PERFOrMANCE_DATA", "HKEY_CURRENT_CONFIG" or "HKEY_DYN_DATA". Nothing for
  // every other name.
  static std::optional<std::uint32_t> RootHandle(std::string_view name);

  // Puts `bytes` (with its terminating zero, if it has one) in place of the old value.
  void PutBytes(std::uint32_t root, std::string_view key, std::string_view valueName, std::string_view bytes);

  // Puts the "Content Type" of files whose names end in `extension`, with or without its dot, as LoadFile takes it from
  // a line. False, and nothing is put, for an extension or a type that is "" or has a control character, and for an
  // extension with "\" or "=".
  bool PutContentType(std::string_view extension, std::string_view contentType);

  // Puts `text` and a terminating zero.
  void PutText(std::uint32_t root, std::string_view key, std::string_view valueName, std::string_view text);

  // Puts the values of a text file, one a line, each in place of an old value of the same name:
  //
  //   HKEY_CLASSES_ROOT\.ext\Content Type=application/x-example
  //
  // up to the first "=" the root's name, the key path and after the last "\" the value's name ("*" for the key's
  // unnamed value), then the text. Lines end in LF or CR LF. A line without "=", without a key, with an unknown root or
  // with a control character is passed over. Returns how many values were taken: 0 for a file that is not there, cannot
  // be read or is larger than kMaxFileBytes.
  std::int32_t LoadFile(std::string_view path);

  // The raw bytes of a value; nothing when the key or the value does not exist. The value name "" is the key's
  // unnamed default value.
  std::optional<std::string> Bytes(std::uint32_t root, std::string_view key, std::string_view valueName) const;

  // Changes after a value was put, before the call that put it returns: what is read after the revision was asked for
  // is at least that new.
  std::uint64_t Revision() const { return revision_.load(std::memory_order_acquire); }

 private:
  bool TakeLine(std::string_view line);

  mutable std::mutex mutex_;                                // of values_
  std::map<std::string, std::string, std::less<>> values_;  // "root\key\\value", upper-cased -> bytes
  std::atomic<std::uint64_t> revision_ = 0;
};

}  // namespace TesselServer
