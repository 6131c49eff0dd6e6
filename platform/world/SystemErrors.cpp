#include "platform/world/SystemErrors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <string>

namespace TesselServer {

namespace {

constexpr int kNoError = std::numeric_limits<int>::min();  // which no call fails with

struct Entry {
  std::int32_t number;
  std::string_view text;
  int error = kNoError;  // the errno(3) values that have this number
  int otherError = kNoError;
};

constexpr std::array kErrors = {
    Entry{10004, "Interrupted system call.", EINTR},
    Entry{10009, "Bad file number.", EBADF},
    Entry{10013, "Permission Denied.", EACCES, EPERM},
    Entry{10014, "Bad Address.", EFAULT},
    Entry{10022, "Invalid Argument.", EINVAL},
    Entry{10024, "Too many open files.", EMFILE, ENFILE},
    Entry{10035, "Operation would block.", EAGAIN},
    Entry{10036, "Operation now in progress.", EINPROGRESS},
    Entry{10037, "Operation already in progress.", EALREADY},
    Entry{10038, "Socket operation on nonsocket.", ENOTSOCK},
    Entry{10039, "Destination address required.", EDESTADDRREQ},
    Entry{10040, "Message too long.", EMSGSIZE},
    Entry{10041, "Protocol wrong type for socket.", EPROTOTYPE},
    Entry{10042, "Protocol not available.", ENOPROTOOPT},
    Entry{10043, "Protocol not supported.", EPROTONOSUPPORT},
    Entry{10044, "Socket type not supported.", ESOCKTNOSUPPORT},
    Entry{10045, "Operation not supported on socket.", EOPNOTSUPP},
    Entry{10046, "Protocol family not supported.", EPFNOSUPPORT},
    Entry{10047, "Address family not supported by protocol family.", EAFNOSUPPORT},
    Entry{10048, "Address already in use.", EADDRINUSE},
    Entry{10049, "Can't assign requested address.", EADDRNOTAVAIL},
    Entry{10050, "Network is down.", ENETDOWN},
    Entry{10051, "Network is unreachable.", ENETUNREACH},
    Entry{10052, "Network dropped connection.", ENETRESET},
    Entry{10053, "Software caused connection abort.", ECONNABORTED, EPIPE},
    Entry{10054, "Connection reset by peer.", ECONNRESET},
    Entry{10055, "No buffer space available."},
    Entry{10056, "Socket is already connected.", EISCONN},
    Entry{10057, "Socket is not connected.", ENOTCONN},
    Entry{10058, "Can't send after socket shutdown.", ESHUTDOWN},
    Entry{10059, "Too many references: can't splice.", ETOOMANYREFS},
    Entry{10060, "Connection timed out.", ETIMEDOUT},
    Entry{10061, "Connection refused.", ECONNREFUSED},
    Entry{10062, "Too many levels of symbolic links.", ELOOP},
    Entry{10063, "File name too long.", ENAMETOOLONG},
    Entry{10064, "Host is down.", EHOSTDOWN},
    Entry{10065, "No route to host.", EHOSTUNREACH},
    Entry{10066, "Directory not empty."},
    Entry{10067, "Too many processes."},
    Entry{10068, "Too many users."},
    Entry{10069, "Disk quota exceeded."},
    Entry{10070, "Stale NFS file handle."},
    Entry{10071, "Too many levels of remote in path."},
    Entry{10091, "Network subsystem is unusable."},
    Entry{10092, "Winsock DLL cannot support this application."},
    Entry{10093, "Winsock not initialized."},
    Entry{10101, "Disconnect."},
    Entry{11001, "Host not found."},
    Entry{11002, "Nonauthoritative host not found."},
    Entry{11003, "Nonrecoverable error."},
    Entry{11004, "Valid name, no data record of requested type."},
};

}  // namespace

std::string_view SocketErrorText(std::int32_t number) {
  const auto found = std::ranges::find(kErrors, number, &Entry::number);
  return found != kErrors.end() ? found->text : std::string_view();
}

std::int32_t SocketErrorOf(int error) {
  const auto isIt = [error](const Entry& each) { return each.error == error || each.otherError == error; };
  const auto found = std::ranges::find_if(kErrors, isIt);
  return found != kErrors.end() ? found->number : SocketErrorNumber::kNoBufferSpace;
}

Error SystemError(int error) {
  const std::int32_t number = SocketErrorOf(error);
  return {number, std::string(SocketErrorText(number))};
}

}  // namespace TesselServer
