// Where a host keeps a control's settings between two runs: named values, each with a default.
//
// Thread:    the host's thread only.
// Ownership: a bag keeps its own copy of every name and value.
// Errors:    FilePropertyBag raises Error from Load and Save; nothing else raises.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace TesselServer {

// A setting: text, a whole number of 32 bits, or a Boolean.
using PropertyValue = std::variant<bool, std::int32_t, std::string>;

// A text as a whole number of 32 bits, as a bag reads one: decimal, with or without a fraction, which is rounded half
// to even (80.5 is 80); blanks around it do not count. Raises Error 13 (type mismatch) or 6 (overflow) for any other,
// with a description that names the setting and its text.
std::int32_t NumberFromText(std::string_view name, std::string_view text);

// The texts by which values are kept: numbers in decimal, Booleans as "True" and "False".
class PropertyBag {
 public:
  virtual ~PropertyBag() = default;

  // Keeps `value` under `name`; a value equal to its default is not kept, and an older one under that name goes.
  void WriteProperty(std::string_view name, const PropertyValue& value, const PropertyValue& byDefault);

  // The value kept under `name` as the type of `byDefault`, or `byDefault` when there is none. A number is decimal,
  // with or without a fraction, which is rounded half to even (80.5 is 80); blanks around it do not count. A Boolean is
  // "True" or "False" without regard to case, or a number, 0 being False. Raises Error 13 (type mismatch) or 6
  // (overflow), with a description that names the setting and its text, for a text that the type cannot hold.
  PropertyValue ReadProperty(std::string_view name, const PropertyValue& byDefault) const;

 protected:
  virtual std::optional<std::string> Get(std::string_view name) const = 0;
  virtual void Set(std::string_view name, std::string_view text) = 0;
  virtual void Remove(std::string_view name) = 0;
};

// A bag in memory.
class MemoryPropertyBag : public PropertyBag {
 public:
  // All names with their texts, in byte order of the names.
  const std::map<std::string, std::string, std::less<>>& Items() const { return items_; }

  // Puts a text as it is, as if an earlier run had kept it.
  void Put(std::string_view name, std::string_view text) { Set(name, text); }

 protected:
  std::optional<std::string> Get(std::string_view name) const override;
  void Set(std::string_view name, std::string_view text) override;
  void Remove(std::string_view name) override;

  std::map<std::string, std::string, std::less<>> items_;
};

// A bag in a text file: one "Key=Value" a line, UTF-8. In values "%0A", "%0D", "%00" and "%25" stand for a line feed, a
// carriage return, a NUL and a percent sign; every other text means itself. Blank lines and lines without "="
// are passed over. Of a key given twice the last line counts. Blanks belong to the key or value beside them; lines may
// end in CR LF, and the file may begin with a byte order mark.
//
//   FilePropertyBag bag("/etc/tool/web.conf");
//   bag.Load();
//   tessel.ReadProperties(bag);
class FilePropertyBag : public MemoryPropertyBag {
 public:
  static constexpr std::int64_t kMaxFileBytes = 1024 * 1024;  // 22 settings never come near; a larger file is refused

  // Remembers the file's path ("\" separates as "/" does); the file need not exist.
  explicit FilePropertyBag(std::string_view path);

  // Replaces what the bag holds by the file's lines. Raises Error 53 when there is no such file, 75 when it cannot be
  // read, is no regular file or is larger than kMaxFileBytes; the bag then keeps what it had.
  void Load();

  // Writes the bag to a temporary file beside the target and renames it over the target, mode 0600, so that a reader
  // sees the old file or the new one and a failure loses nothing. Where the path is a link, the file at its end is
  // replaced and the link stays. Raises Error 75 when that cannot be done: no permission to write in the folder,
  // something other than a regular file in that place, a name with "=" or a line end, or more than kMaxFileBytes.
  void Save() const;

 private:
  std::string path_;
};

}  // namespace TesselServer
