#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>

#include "platform/world/SystemErrors.h"

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

TEST(SystemErrorsTest, EveryNumberHasItsTextAndNoOtherHasOne) {
  for (std::int32_t number = 9990; number <= 11'100; ++number) {
    const auto found = Texts().find(number);
    EXPECT_EQ(SocketErrorText(number), found == Texts().end() ? "" : found->second) << number;
  }
}

TEST(SystemErrorsTest, NumbersFarFromTheTableHaveNoText) {
  for (const std::int32_t number : {0, -1, 5, 360, 2'147'483'647, -2'147'483'647 - 1}) {
    EXPECT_EQ(SocketErrorText(number), "") << number;
  }
}

TEST(SystemErrorsTest, TheNamedNumbersAreThose) {
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kWouldBlock), "Operation would block.");
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kAddressInUse), "Address already in use.");
  EXPECT_EQ(SocketErrorText(SocketErrorNumber::kNoBufferSpace), "No buffer space available.");
}

TEST(SystemErrorsTest, EverySystemErrorHasASocketError) {
  struct {
    int error;
    std::int32_t number;
  } const cases[] = {
      {EINTR, 10004},
      {EBADF, 10009},
      {EACCES, 10013},
      {EPERM, 10013},
      {EFAULT, 10014},
      {EINVAL, 10022},
      {EMFILE, 10024},
      {ENFILE, 10024},
      {EAGAIN, 10035},
      {EINPROGRESS, 10036},
      {EALREADY, 10037},
      {ENOTSOCK, 10038},
      {EDESTADDRREQ, 10039},
      {EMSGSIZE, 10040},
      {EPROTOTYPE, 10041},
      {ENOPROTOOPT, 10042},
      {EPROTONOSUPPORT, 10043},
      {ESOCKTNOSUPPORT, 10044},
      {EOPNOTSUPP, 10045},
      {EPFNOSUPPORT, 10046},
      {EAFNOSUPPORT, 10047},
      {EADDRINUSE, 10048},
      {EADDRNOTAVAIL, 10049},
      {ENETDOWN, 10050},
      {ENETUNREACH, 10051},
      {ENETRESET, 10052},
      {ECONNABORTED, 10053},
      {EPIPE, 10053},
      {ECONNRESET, 10054},
      {ENOBUFS, 10055},
      {EISCONN, 10056},
      {ENOTCONN, 10057},
      {ESHUTDOWN, 10058},
      {ETOOMANYREFS, 10059},
      {ETIMEDOUT, 10060},
      {ECONNREFUSED, 10061},
      {ELOOP, 10062},
      {ENAMETOOLONG, 10063},
      {EHOSTDOWN, 10064},
      {EHOSTUNREACH, 10065},
      {ENOMEM, 10055},
      {EIO, 10055},
      {0, 10055},
      {-1, 10055},
  };
  for (const auto& c : cases) EXPECT_EQ(SocketErrorOf(c.error), c.number) << c.error;
}

TEST(SystemErrorsTest, WhateverFailsHasANumberWithAText) {
  for (int error = -2; error < 200; ++error) EXPECT_NE(SocketErrorText(SocketErrorOf(error)), "") << error;
}

TEST(SystemErrorsTest, TheExceptionSaysTheSame) {
  const Error error = SystemError(EADDRINUSE);
  EXPECT_EQ(error.Number(), ErrorNumber::kAddressInUse);
  EXPECT_EQ(error.Description(), "Address already in use.");
  EXPECT_EQ(error.Source(), "Tessel");
  EXPECT_EQ(error.HelpContext(), 0);
}

}  // namespace
}  // namespace TesselServer
