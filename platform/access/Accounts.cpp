#include "platform/access/Accounts.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>

#include "platform/files/OpenPaths.h"
#include "platform/world/UniqueDescriptor.h"

namespace TesselServer {
namespace {

constexpr std::size_t kFirstRecordBytes = 1024;  // enough for most; a longer one is asked for again

// Calls one of the system's look-ups, `ask(buffer, size)`, with as much memory as its record needs. Its errno(3) value.
template <typename Ask>
int AskWithRoom(std::vector<char>& record, Ask ask) {
  if (record.empty()) record.resize(kFirstRecordBytes);
  for (;;) {
    const int error = ask(record.data(), record.size());
    if (error == EINTR) continue;
    if (error != ERANGE || record.size() >= Accounts::kMaxRecordBytes) return error;
    record.resize(2 * record.size());
  }
}

// A database that does not exist has no entries.
bool IsMissing(int error) { return error == 0 || error == ENOENT || error == ESRCH; }

// 0 when no entry was found because there is none. Where a database cannot be opened for want of descriptors, the
// system returns the result of the next one, which may have no such entry.
int WantOfDescriptors() {
  const UniqueDescriptor probe(OpenAnywhere(AT_FDCWD, "/", O_PATH | O_CLOEXEC));
  return probe.IsOpen() ? 0 : -probe.Get();
}

}  // namespace

std::errc Accounts::Find(Trustee::Kind kind, const std::string& name, std::optional<std::uint32_t>& id) {
  id.reset();
  int error = 0;
  if (kind == Trustee::Kind::kUser) {
    passwd entry;
    passwd* found = nullptr;
    error = AskWithRoom(record_, [&](char* buffer, std::size_t size) {
      return getpwnam_r(name.c_str(), &entry, buffer, size, &found);
    });
    if (found != nullptr) id = found->pw_uid;
  } else {
    group entry;
    group* found = nullptr;
    error = AskWithRoom(record_, [&](char* buffer, std::size_t size) {
      return getgrnam_r(name.c_str(), &entry, buffer, size, &found);
    });
    if (found != nullptr) id = found->gr_gid;
  }
  if (IsMissing(error)) error = id ? 0 : WantOfDescriptors();
  return static_cast<std::errc>(error);
}

const char* Accounts::Name(const Trustee& trustee) {
  if (trustee.kind == Trustee::Kind::kUser) {
    passwd entry;
    passwd* found = nullptr;
    AskWithRoom(record_,
                [&](char* buffer, std::size_t size) { return getpwuid_r(trustee.id, &entry, buffer, size, &found); });
    return found != nullptr ? found->pw_name : nullptr;
  }
  group entry;
  group* found = nullptr;
  AskWithRoom(record_,
              [&](char* buffer, std::size_t size) { return getgrgid_r(trustee.id, &entry, buffer, size, &found); });
  return found != nullptr ? found->gr_name : nullptr;
}

}  // namespace TesselServer
