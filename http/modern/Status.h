// The statuses that refuse a request before anything is known of what it asks for (RFC 9110 15, RFC 6585 5).
#pragma once

namespace TesselServer::Modern::Status {

inline constexpr int kBadRequest = 400;
inline constexpr int kContentTooLarge = 413;
inline constexpr int kTargetTooLong = 414;
inline constexpr int kFieldsTooLarge = 431;
inline constexpr int kNotImplemented = 501;
inline constexpr int kVersionNotSupported = 505;

}  // namespace TesselServer::Modern::Status
