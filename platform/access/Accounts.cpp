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

// Calls one of the system's look-ups with as much memory as its record needs. The record it has found, or null; `error`
// is its errno(3) value.
template <typename Key, typename Entry>
const Entry* Ask(int (*lookUp)(Key, Entry*, char*, std::size_t, Entry**), Key key, Entry& entry,
                 std::vector<char>& record, int& error) {
  if (record.empty()) record.resize(kFirstRecordBytes);
  for (;;) {
    Entry* found = nullptr;
    error = lookUp(key, &entry, record.data(), record.size(), &found);
    if (error == EINTR) continue;
    if (error != ERANGE || record.size() >= Accounts::kMaxRecordBytes) return found;
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
    if (const auto* found = Ask(&getpwnam_r, name.c_str(), entry, record_, error)) id = found->pw_uid;
  } else {
    group entry;
    if (const auto* found = Ask(&getgrnam_r, name.c_str(), entry, record_, error)) id = found->gr_gid;
  }
  if (IsMissing(error)) error = id ? 0 : WantOfDescriptors();
  return static_cast<std::errc>(error);
}

const char* Accounts::Name(const Trustee& trustee) {
  int error = 0;
  if (trustee.kind == Trustee::Kind::kUser) {
    passwd entry;
    const auto* found = Ask(&getpwuid_r, trustee.id, entry, record_, error);
    return found != nullptr ? found->pw_name : nullptr;
  }
  group entry;
  const auto* found = Ask(&getgrgid_r, trustee.id, entry, record_, error);
  return found != nullptr ? found->gr_name : nullptr;
}

}  // namespace TesselServer
