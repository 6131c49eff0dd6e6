#include "platform/sockets/SocketErrors.h"

#include <algorithm>
#include <array>

namespace TesselServer {

namespace {

struct Entry {
  std::int32_t number;
  std::string_view text;
};

constexpr std::array kTexts = {
    Entry{10004, "Interrupted system call."},
    Entry{10009, "Bad file number."},
    Entry{10013, "Permission Denied."},
    Entry{10014, "Bad Address."},
    Entry{10022, "Invalid Argument."},
    Entry{10024, "Too many open files."},
    Entry{10035, "Operation would block."},
    Entry{10036, "Operation now in progress."},
    Entry{10037, "Operation already in progress."},
    Entry{10038, "Socket operation on nonsocket."},
    Entry{10039, "Destination address required."},
    Entry{10040, "Message too long."},
    Entry{10041, "Protocol wrong type for socket."},
    Entry{10042, "Protocol not available."},
    Entry{10043, "Protocol not supported."},
    Entry{10044, "Socket type not supported."},
    Entry{10045, "Operation not supported on socket."},
    Entry{10046, "Protocol family not supported."},
    Entry{10047, "Address family not supported by protocol family."},
    Entry{10048, "Address already in use."},
    Entry{10049, "Can't assign requested address."},
    Entry{10050, "Network is down."},
    Entry{10051, "Network is unreachable."},
    Entry{10052, "Network dropped connection."},
    Entry{10053, "Software caused connection abort."},
    Entry{10054, "Connection reset by peer."},
    Entry{10055, "No buffer space available."},
    Entry{10056, "Socket is already connected."},
    Entry{10057, "Socket is not connected."},
    Entry{10058, "Can't send after socket shutdown."},
    Entry{10059, "Too many references: can't splice."},
    Entry{10060, "Connection timed out."},
    Entry{10061, "Connection refused."},
    Entry{10062, "Too many levels of symbolic links."},
    Entry{10063, "File name too long."},
    Entry{10064, "Host is down."},
    Entry{10065, "No route to host."},
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
  const auto found = std::lower_bound(kTexts.begin(), kTexts.end(), number,
                                      [](const Entry& entry, std::int32_t wanted) { return entry.number < wanted; });
  return found != kTexts.end() && found->number == number ? found->text : std::string_view();
}

}  // namespace TesselServer
