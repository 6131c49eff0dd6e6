#include "platform/world/SystemErrors.h"

#include <cerrno>
#include <string>

#include "platform/sockets/SocketErrors.h"

namespace TesselServer {

std::int32_t SocketErrorOf(int error) {
  switch (error) {
    case EINTR:
      return 10004;
    case EBADF:
      return 10009;
    case EACCES:
    case EPERM:
      return 10013;
    case EFAULT:
      return 10014;
    case EINVAL:
      return 10022;
    case EMFILE:
    case ENFILE:
      return 10024;
    case EAGAIN:
      return 10035;
    case EINPROGRESS:
      return 10036;
    case EALREADY:
      return 10037;
    case ENOTSOCK:
      return 10038;
    case EDESTADDRREQ:
      return 10039;
    case EMSGSIZE:
      return 10040;
    case EPROTOTYPE:
      return 10041;
    case ENOPROTOOPT:
      return 10042;
    case EPROTONOSUPPORT:
      return 10043;
    case ESOCKTNOSUPPORT:
      return 10044;
    case EOPNOTSUPP:
      return 10045;
    case EPFNOSUPPORT:
      return 10046;
    case EAFNOSUPPORT:
      return 10047;
    case EADDRINUSE:
      return 10048;
    case EADDRNOTAVAIL:
      return 10049;
    case ENETDOWN:
      return 10050;
    case ENETUNREACH:
      return 10051;
    case ENETRESET:
      return 10052;
    case ECONNABORTED:
    case EPIPE:
      return 10053;
    case ECONNRESET:
      return 10054;
    case EISCONN:
      return 10056;
    case ENOTCONN:
      return 10057;
    case ESHUTDOWN:
      return 10058;
    case ETOOMANYREFS:
      return 10059;
    case ETIMEDOUT:
      return 10060;
    case ECONNREFUSED:
      return 10061;
    case ELOOP:
      return 10062;
    case ENAMETOOLONG:
      return 10063;
    case EHOSTDOWN:
      return 10064;
    case EHOSTUNREACH:
      return 10065;
    default:
      return 10055;
  }
}

Error SystemError(int error) {
  const std::int32_t number = SocketErrorOf(error);
  return {number, std::string(SocketErrorText(number))};
}

}  // namespace TesselServer
