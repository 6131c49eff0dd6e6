// Numbers that the system knows by name: protocols and the ports of services.
//
// Both come from the system's own tables (protocols(5), services(5)), without any query over the network, and from a
// short table built in for machines that have none.
//
// Thread:    any.
// Ownership: returns values.
// Errors:    none; nothing is returned for a name that is not known.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace TesselServer {

inline constexpr std::size_t kMaxNetworkNameBytes = 255;  // a longer name is not looked for

// The number of the protocol `name`: 6 for "tcp". Names are compared as the system does, with regard to case.
std::optional<std::int32_t> ProtocolNumber(std::string_view name);

// The port of the service `name` over `protocol` ("tcp" or "udp"; "" for whichever is found first): 80 for "http".
std::optional<std::int32_t> ServicePort(std::string_view name, std::string_view protocol);

}  // namespace TesselServer
