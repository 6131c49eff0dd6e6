// Names and addresses of hosts, as the server looks them up.
//
// An address is an IPv4 address in network byte order, held in 32 bits: its first byte in memory is the first number of
// its dotted text.
//
// Thread:    the host's thread only. A look-up in the name service may keep it waiting for about a second.
// Ownership: the World given outlives the object.
// Errors:    none; what is not available has the fallback documented at each member.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

class World;

//   HostLookUp(world).HostNameFromAddress("192.0.2.7");  // "printer.example.org"
class HostLookUp {
 public:
  static constexpr std::int32_t kNoAddress = -1;           // also the number of the address 255.255.255.255
  static constexpr std::string_view kUnknown = "Unknown";  // the name of a host that has none
  static constexpr std::size_t kMaxHostNameBytes = 256;    // longer names of the name service are cut here
  static constexpr std::size_t kMaxLookupBytes = 255;      // no host name is longer, so nothing longer is asked for

  explicit HostLookUp(const World& world) : world_(world) {}

  // The name of the host that `text`, a dotted address or a host name, belongs to. "Unknown" when `text` has no address
  // or the address no name.
  std::string HostNameFromAddress(std::string_view text) const;

  // The address that `text` names: one to four numbers with "." between them, each decimal, octal (leading "0") or
  // hexadecimal (leading "0x"), the last one filling all bytes that are left ("127.1" is 127.0.0.1), as inet_addr(3)
  // reads them; white space may follow. Anything else is looked up as a host name. kNoAddress when it is not found,
  // and for "255.255.255.255", whose number says the same.
  std::int32_t AddressFromText(std::string_view text) const;

  // The name that the name service has for `address`, at most kMaxHostNameBytes and up to its first NUL. "Unknown" when
  // there is none, or when it has another byte than letters, digits, "." "_" and "-": the owner of an address decides
  // on its name, and the name goes into pages.
  std::string HostNameFromLong(std::int32_t address) const;

  // The address of a dotted text, in the forms that AddressFromText reads and without a query. kNoAddress for
  // any other text.
  static std::int32_t AddressFromDottedText(std::string_view text);

  // An address whose first number is in the highest byte, in network byte order.
  static std::uint32_t NetworkOrder(std::uint32_t address);

 protected:
  const World& world_;
};

}  // namespace TesselServer
