#include <gtest/gtest.h>

#include <cerrno>

#include "platform/sockets/SocketErrors.h"
#include "platform/world/SystemErrors.h"

namespace TesselServer {
namespace {

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
