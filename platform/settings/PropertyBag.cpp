#include "platform/settings/PropertyBag.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <system_error>
#include <utility>

#include "platform/files/FileSystem.h"
#include "platform/files/PathWalk.h"
#include "platform/world/AsciiCase.h"
#include "platform/world/Error.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

constexpr int kMaxLinks = 40;                  // as the kernel follows them (path_resolution(7))
constexpr std::size_t kMaxQuoted = 80;         // bytes of a bad text that an error's description repeats
constexpr std::int64_t kTooLarge = 1LL << 40;  // far above any whole number of 32 bits
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// What a file cannot hold in a value, and the code that is written for it.
struct Escape {
  char byte;
  std::string_view text;
};
constexpr std::array<Escape, 4> kEscapes{{{'\n', "%0A"}, {'\r', "%0D"}, {'\0', "%00"}, {'%', "%25"}}};

std::string Escaped(std::string_view value) {
  std::string text;
  for (const char c : value) {
    const auto escape = std::find_if(kEscapes.begin(), kEscapes.end(), [c](const Escape& e) { return e.byte == c; });
    if (escape == kEscapes.end()) {
      text += c;
    } else {
      text += escape->text;
    }
  }
  return text;
}

std::string Unescaped(std::string_view text) {
  std::string value;
  while (!text.empty()) {
    const auto escape =
        std::find_if(kEscapes.begin(), kEscapes.end(), [text](const Escape& e) { return text.starts_with(e.text); });
    value += escape == kEscapes.end() ? text.front() : escape->byte;
    text.remove_prefix(escape == kEscapes.end() ? 1 : escape->text.size());
  }
  return value;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view Trimmed(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

// Takes the digits at the front of `text` away and returns them.
std::string_view TakeDigits(std::string_view& text) {
  const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
  const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(digits.size());
  return digits;
}

// Whether a number with the last whole digit `last` and the digits `fraction` after the point rounds away from zero,
// half to even.
bool RoundsUp(std::string_view fraction, bool isOdd) {
  if (fraction.empty() || fraction.front() != '5') return !fraction.empty() && fraction.front() > '5';
  return isOdd || fraction.find_first_not_of('0', 1) != std::string_view::npos;
}

// A decimal text: blanks, a sign, digits with or without a point, blanks.
struct Decimal {
  std::int64_t rounded = 0;  // half to even; kTooLarge for any larger value
  bool isZero = true;
};

std::optional<Decimal> ParseDecimal(std::string_view text) {
  text = Trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const std::string_view whole = TakeDigits(text);
  std::string_view fraction;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    fraction = TakeDigits(text);
  }
  if (!text.empty() || (whole.empty() && fraction.empty())) return std::nullopt;
  std::int64_t value = 0;
  for (const char digit : whole) value = std::min(value * 10 + (digit - '0'), kTooLarge);
  const bool isZero = value == 0 && fraction.find_first_not_of('0') == std::string_view::npos;
  if (RoundsUp(fraction, value % 2 != 0)) ++value;
  return Decimal{isNegative ? -value : value, isZero};
}

std::string Quoted(std::string_view text) {
  const std::string_view shown = text.substr(0, kMaxQuoted);
  return '"' + std::string(shown) + (shown.size() < text.size() ? "...\"" : "\"");
}

[[noreturn]] void RaiseMismatch(std::string_view name, std::string_view text, const char* wanted) {
  throw Error(ErrorNumber::kTypeMismatch,
              "Type mismatch: " + std::string(name) + " is " + Quoted(text) + ", which is not " + wanted);
}

bool BooleanOf(std::string_view name, std::string_view text) {
  if (EqualNoCase(Trimmed(text), "True")) return true;
  if (EqualNoCase(Trimmed(text), "False")) return false;
  const auto number = ParseDecimal(text);
  if (!number) RaiseMismatch(name, text, "True, False or a number");
  return !number->isZero;
}

std::string TextOf(const PropertyValue& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "True" : "False";
  if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

[[noreturn]] void RaiseFileAccess(const std::string& path, const std::string& why) {
  throw Error(ErrorNumber::kFileAccess, "Path/File access error: " + path + ": " + why);
}

std::string ReasonOf(int error) { return std::generic_category().message(error); }

using Lines = std::map<std::string, std::string, std::less<>>;

Lines ParseLines(std::string_view bytes) {
  Lines items;
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size());
    std::string_view line = bytes.substr(0, end);
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    items.insert_or_assign(std::string(line.substr(0, equals)), Unescaped(line.substr(equals + 1)));
  }
  return items;
}

// The lines of a file that hold `items`. Raises Error 75 for a name that no line can hold, and for what Load refuses.
std::string FormatLines(const Lines& items, const std::string& path) {
  std::string bytes;
  for (const auto& [name, text] : items) {
    if (name.find_first_of(std::string_view("=\r\n\0", 4)) != std::string::npos) {
      RaiseFileAccess(path, "no line can hold the name " + Quoted(name));
    }
    bytes += name;
    bytes += '=';
    bytes += Escaped(text);
    bytes += '\n';
  }
  if (static_cast<std::int64_t>(bytes.size()) > FilePropertyBag::kMaxFileBytes) {
    RaiseFileAccess(path, "the settings are too long");
  }
  return bytes;
}

// Where `path` ends after all links of its last component, also when nothing exists there yet.
std::string EndOfLinks(std::string path) {
  std::array<char, PATH_MAX> target;
  for (int i = 0; i < kMaxLinks; ++i) {
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length <= 0) return path;
    const std::string end(target.data(), static_cast<std::size_t>(length));
    path = end.starts_with('/') ? end : FolderPathOf(path) + end;
  }
  RaiseFileAccess(path, ReasonOf(ELOOP));
}

// 0, or the errno value of what failed. Closes `file` in any case, for a close may report a failed write as well.
int WriteAndClose(UniqueDescriptor file, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fchmod(file.Get(), S_IRUSR | S_IWUSR) != 0 || fsync(file.Get()) != 0) return errno;
  return close(file.Release()) == 0 ? 0 : errno;
}

// Puts a new file with `bytes` in place of `target`. 0, or the errno value of what failed; `target` is then as it was.
int Replace(const std::string& target, std::string_view bytes) {
  std::string temporary = FolderPathOf(target) + ".tessel-XXXXXX";
  UniqueDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.IsOpen()) return errno;
  int error = WriteAndClose(std::move(file), bytes);
  if (error == 0 && rename(temporary.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) unlink(temporary.c_str());
  return error;
}

}  // namespace

std::int32_t NumberFromText(std::string_view name, std::string_view text) {
  const auto number = ParseDecimal(text);
  if (!number) RaiseMismatch(name, text, "a number");
  using Limits = std::numeric_limits<std::int32_t>;
  if (number->rounded < Limits::min() || number->rounded > Limits::max()) {
    throw Error(ErrorNumber::kOverflow, "Overflow: " + std::string(name) + " is " + Quoted(text) +
                                            ", which is outside -2147483648 to 2147483647");
  }
  return static_cast<std::int32_t>(number->rounded);
}

void PropertyBag::WriteProperty(std::string_view name, const PropertyValue& value, const PropertyValue& byDefault) {
  if (value == byDefault) {
    Remove(name);
  } else {
    Set(name, TextOf(value));
  }
}

PropertyValue PropertyBag::ReadProperty(std::string_view name, const PropertyValue& byDefault) const {
  const auto text = Get(name);
  if (!text) return byDefault;
  if (std::holds_alternative<bool>(byDefault)) return BooleanOf(name, *text);
  if (std::holds_alternative<std::int32_t>(byDefault)) return NumberFromText(name, *text);
  return *text;
}

std::optional<std::string> MemoryPropertyBag::Get(std::string_view name) const {
  const auto found = items_.find(name);
  if (found == items_.end()) return std::nullopt;
  return found->second;
}

void MemoryPropertyBag::Set(std::string_view name, std::string_view text) {
  items_.insert_or_assign(std::string(name), std::string(text));
}

void MemoryPropertyBag::Remove(std::string_view name) {
  const auto found = items_.find(name);
  if (found != items_.end()) items_.erase(found);
}

FilePropertyBag::FilePropertyBag(std::string_view path) : path_(WithSlashes(path)) {}

void FilePropertyBag::Load() {
  const bool isName = path_.find('\0') == std::string::npos;
  const int opened = isName ? open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1;
  const int error = isName ? errno : ENOENT;
  if (opened < 0 && (error == ENOENT || error == ENOTDIR)) {
    throw Error(ErrorNumber::kFileNotFound, "File not found: " + path_);
  }
  if (opened < 0) RaiseFileAccess(path_, ReasonOf(error));
  const OpenFile file(opened);
  if (file.Kind() != EntryKind::kFile) RaiseFileAccess(path_, "not a regular file");
  std::string bytes;
  if (!file.ReadAll(bytes, kMaxFileBytes)) RaiseFileAccess(path_, "too long or not readable");
  items_ = ParseLines(bytes);
}

void FilePropertyBag::Save() const {
  if (path_.empty() || path_.find('\0') != std::string::npos) RaiseFileAccess(path_, ReasonOf(ENOENT));
  const std::string bytes = FormatLines(Items(), path_);
  const std::string target = EndOfLinks(path_);
  struct stat status;
  // A device or a FIFO in that place is not ours; a rename would replace it.
  if (lstat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) RaiseFileAccess(path_, "not a regular file");
  if (const int error = Replace(target, bytes); error != 0) RaiseFileAccess(path_, ReasonOf(error));
}

}  // namespace TesselServer
