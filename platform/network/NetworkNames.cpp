#include "platform/network/NetworkNames.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <string>

namespace TesselServer {

namespace {

struct KnownName {
  std::string_view name;
  std::int32_t number;
};

constexpr std::array kProtocols = {KnownName{"ip", 0}, KnownName{"icmp", 1}, KnownName{"tcp", 6}, KnownName{"udp", 17}};

// These have the same port over TCP and UDP wherever they have one.
constexpr std::array kServices = {KnownName{"echo", 7},    KnownName{"ftp", 21},   KnownName{"ssh", 22},
                                  KnownName{"telnet", 23}, KnownName{"smtp", 25},  KnownName{"domain", 53},
                                  KnownName{"http", 80},   KnownName{"pop3", 110}, KnownName{"imap2", 143},
                                  KnownName{"snmp", 161},  KnownName{"https", 443}};

// One entry of the system's tables with all its texts: far more than any line of them takes, so that an answer for
// which it is too small counts as none.
using EntryBuffer = std::array<char, 8192>;

template <std::size_t size>
std::optional<std::int32_t> Find(const std::array<KnownName, size>& table, std::string_view name) {
  const auto found = std::ranges::find(table, name, &KnownName::name);
  return found != table.end() ? std::optional(found->number) : std::nullopt;
}

bool CanBeANetworkName(std::string_view name) {
  return !name.empty() && name.size() <= kMaxNetworkNameBytes && name.find('\0') == std::string_view::npos;
}

}  // namespace

std::optional<std::int32_t> ProtocolNumber(std::string_view name) {
  if (!CanBeANetworkName(name)) return std::nullopt;
  protoent entry{};
  protoent* found = nullptr;
  EntryBuffer texts;
  if (getprotobyname_r(std::string(name).c_str(), &entry, texts.data(), texts.size(), &found) == 0 &&
      found != nullptr) {
    return found->p_proto;
  }
  return Find(kProtocols, name);
}

std::optional<std::int32_t> ServicePort(std::string_view name, std::string_view protocol) {
  if (!CanBeANetworkName(name) || (!protocol.empty() && protocol != "tcp" && protocol != "udp")) return std::nullopt;
  servent entry{};
  servent* found = nullptr;
  EntryBuffer texts;
  const std::string over(protocol);
  if (getservbyname_r(std::string(name).c_str(), over.empty() ? nullptr : over.c_str(), &entry, texts.data(),
                      texts.size(), &found) == 0 &&
      found != nullptr) {
    return ntohs(static_cast<std::uint16_t>(found->s_port));
  }
  return Find(kServices, name);
}

}  // namespace TesselServer
