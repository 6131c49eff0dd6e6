#include "net/cls_WinSock.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <limits>
#include <optional>

#include "platform/World.h"

namespace TesselServer {
namespace {

constexpr std::string_view kDescription = "Linux sockets, IPv4";

struct ErrorText {
  std::int32_t number;
  std::string_view text;
};

// In the order of the numbers.
constexpr ErrorText kErrorTexts[] = {
    {10004, "Interrupted system call."},
    {10009, "Bad file number."},
    {10013, "Permission Denied."},
    {10014, "Bad Address."},
    {10022, "Invalid Argument."},
    {10024, "Too many open files."},
    {10035, "Operation would block."},
    {10036, "Operation now in progress."},
    {10037, "Operation already in progress."},
    {10038, "Socket operation on nonsocket."},
    {10039, "Destination address required."},
    {10040, "Message too long."},
    {10041, "Protocol wrong type for socket."},
    {10042, "Protocol not available."},
    {10043, "Protocol not supported."},
    {10044, "Socket type not supported."},
    {10045, "Operation not supported on socket."},
    {10046, "Protocol family not supported."},
    {10047, "Address family not supported by protocol family."},
    {10048, "Address already in use."},
    {10049, "Can't assign requested address."},
    {10050, "Network is down."},
    {10051, "Network is unreachable."},
    {10052, "Network dropped connection."},
    {10053, "Software caused connection abort."},
    {10054, "Connection reset by peer."},
    {10055, "No buffer space available."},
    {10056, "Socket is already connected."},
    {10057, "Socket is not connected."},
    {10058, "Can't send after socket shutdown."},
    {10059, "Too many references: can't splice."},
    {10060, "Connection timed out."},
    {10061, "Connection refused."},
    {10062, "Too many levels of symbolic links."},
    {10063, "File name too long."},
    {10064, "Host is down."},
    {10065, "No route to host."},
    {10066, "Directory not empty."},
    {10067, "Too many processes."},
    {10068, "Too many users."},
    {10069, "Disk quota exceeded."},
    {10070, "Stale NFS file handle."},
    {10071, "Too many levels of remote in path."},
    {10091, "Network subsystem is unusable."},
    {10092, "Winsock DLL cannot support this application."},
    {10093, "Winsock not initialized."},
    {10101, "Disconnect."},
    {11001, "Host not found."},
    {11002, "Nonauthoritative host not found."},
    {11003, "Nonrecoverable error."},
    {11004, "Valid name, no data record of requested type."},
};
static_assert(std::ranges::is_sorted(kErrorTexts, {}, &ErrorText::number));

constexpr bool IsNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

// Takes the number that `text` begins with, as C writes numbers. Nothing when there is none or it needs over 32 bits.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with('0')) {
    base = 8;
  }
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc{}) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// The address that a dotted text means, its first number in the highest byte.
std::optional<std::uint32_t> ParseDotted(std::string_view text) {
  constexpr unsigned kMostLeading = 3;  // numbers before the last one
  text = text.substr(0, text.find_last_not_of(" \t\n\v\f\r") + 1);
  std::uint32_t address = 0;
  for (unsigned leading = 0; leading <= kMostLeading; ++leading) {
    const std::optional<std::uint32_t> number = TakeNumber(text);
    if (!number) return std::nullopt;
    if (text.empty()) {
      const std::uint32_t most = std::numeric_limits<std::uint32_t>::max() >> (8 * leading);
      return *number <= most ? std::optional(address | *number) : std::nullopt;
    }
    if (text.front() != '.' || *number > 0xFF || leading == kMostLeading) return std::nullopt;
    text.remove_prefix(1);
    address |= *number << (24 - 8 * leading);
  }
  return std::nullopt;
}

using AddressBytes = std::array<std::uint8_t, 4>;

// An address whose first number is in the highest byte, in network byte order.
std::uint32_t NetworkOrder(std::uint32_t address) {
  return std::bit_cast<std::uint32_t>(
      AddressBytes{static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16),
                   static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)});
}

bool CanBeLookedUp(std::string_view name) {
  return !name.empty() && name.size() <= cls_WinSock::kMaxLookupBytes && std::ranges::all_of(name, IsNameByte);
}

}  // namespace

bool cls_WinSock::SocketsStartup(std::string& description) {
  if (started_) return true;
  description = kDescription;
  started_ = true;
  return true;
}

std::string cls_WinSock::HostNameFromAddress(std::string_view text) const {
  const std::int32_t address = AddressFromText(text);
  return address == kNoAddress ? std::string(kUnknown) : HostNameFromLong(address);
}

std::int32_t cls_WinSock::AddressFromText(std::string_view text) const {
  if (const auto dotted = ParseDotted(text)) return static_cast<std::int32_t>(NetworkOrder(*dotted));
  if (!CanBeLookedUp(text)) return kNoAddress;
  const auto found = world_.AddressOf(text);
  return found ? static_cast<std::int32_t>(*found) : kNoAddress;
}

std::string cls_WinSock::HostNameFromLong(std::int32_t address) const {
  const auto found = world_.HostNameOf(static_cast<std::uint32_t>(address));
  if (!found) return std::string(kUnknown);
  std::string_view name = *found;
  name = name.substr(0, std::min(name.find('\0'), kMaxHostNameBytes));
  if (name.empty() || !std::ranges::all_of(name, IsNameByte)) return std::string(kUnknown);
  return std::string(name);
}

std::string cls_WinSock::AddressText(std::int32_t address) {
  std::string text;
  for (const std::uint8_t byte : std::bit_cast<AddressBytes>(address)) {
    if (!text.empty()) text += '.';
    text += std::to_string(byte);
  }
  return text;
}

std::int32_t cls_WinSock::LongFromWords(std::uint16_t low, std::uint16_t high) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(high) << 16 | low);
}

std::string_view cls_WinSock::SocketErrorText(std::int32_t number) {
  const auto* found = std::ranges::lower_bound(kErrorTexts, number, {}, &ErrorText::number);
  return found != std::end(kErrorTexts) && found->number == number ? found->text : std::string_view();
}

}  // namespace TesselServer
