#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/sockets/SocketErrors.h"

namespace TesselServer {
namespace {

const std::map<std::int32_t, std::string>& Texts() {
  static const std::map<std::int32_t, std::string> texts = {
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
  return texts;
}

TEST(SocketErrorsTest, EveryNumberHasItsTextAndNoOtherHasOne) {
  for (std::int32_t number = 9990; number <= 11'100; ++number) {
    const auto found = Texts().find(number);
    EXPECT_EQ(SocketErrorText(number), found == Texts().end() ? "" : found->second) << number;
  }
}

TEST(SocketErrorsTest, NumbersFarFromTheTableHaveNoText) {
  for (const std::int32_t number : {0, -1, 5, 360, 2'147'483'647, -2'147'483'647 - 1}) {
    EXPECT_EQ(SocketErrorText(number), "") << number;
  }
}

TEST(SocketErrorsTest, TheNamedNumbersAreThose) {
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kWouldBlock), "Operation would block.");
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kAddressInUse), "Address already in use.");
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kNotConnected), "Socket is not connected.");
}

}  // namespace
}  // namespace TesselServer
