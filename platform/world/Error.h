// The one exception type that leaves the library: what a host of the control expects to know about a failure.
//
// Thread:    any.
// Ownership: a value; copies are independent.
// Errors:    none of its own.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace TesselServer {

// Numbers of the run-time errors that the control raises or reports. Socket errors have the numbers 10004 to 11004.
namespace ErrorNumber {
inline constexpr std::int32_t kInvalidCall = 5;       // an argument that no call can work with
inline constexpr std::int32_t kOverflow = 6;          // a number that its type cannot hold
inline constexpr std::int32_t kOutOfMemory = 7;       // memory ran out
inline constexpr std::int32_t kSubscript = 9;         // a connection index outside 1 to MaxConnections
inline constexpr std::int32_t kTypeMismatch = 13;     // a text where a number is needed
inline constexpr std::int32_t kInternal = 51;         // an exception that carries no number of its own
inline constexpr std::int32_t kFileNotFound = 53;     // a named file that is not there
inline constexpr std::int32_t kFileAccess = 75;       // a file that cannot be read or written
inline constexpr std::int32_t kAlreadyLoaded = 360;   // a socket element that exists already
inline constexpr std::int32_t kAddressInUse = 10048;  // another program listens on that address and port
}  // namespace ErrorNumber

//   try {
//     tessel.StartServer();
//   } catch (const TesselServer::Error& error) {
//     Show(error.Number(), error.Description());  // 10048, "Address in use"
//   }
class Error : public std::runtime_error {
 public:
  Error(std::int32_t number, const std::string& description, std::string source = "Tessel",
        std::int32_t helpContext = 0)
      : std::runtime_error(description), number_(number), source_(std::move(source)), helpContext_(helpContext) {}

  // The error's number: a run-time error, a socket error, or 0x80040000 plus a class's own number.
  std::int32_t Number() const noexcept { return number_; }

  // The name of what raised it, "Tessel" or class "." operation.
  const std::string& Source() const noexcept { return source_; }

  // What happened, in one sentence.
  std::string Description() const { return what(); }

  // The topic of the help that explains it, 0 for none.
  std::int32_t HelpContext() const noexcept { return helpContext_; }

 private:
  std::int32_t number_;
  std::string source_;
  std::int32_t helpContext_;
};

// An index that names nothing.
inline Error SubscriptError() { return {ErrorNumber::kSubscript, "Subscript out of range"}; }

}  // namespace TesselServer
