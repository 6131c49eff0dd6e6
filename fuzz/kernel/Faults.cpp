#include "fuzz/kernel/Faults.h"

#include <cerrno>
#include <vector>

namespace TesselServer::Pretended {
namespace {

struct Kind {
  Call call;
  std::vector<int> errors;
};

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {
      {Call::kAccept, {EMFILE, ECONNABORTED, EAGAIN, EINTR, ENFILE, ENOBUFS, ENOMEM, EPROTO, EPERM}},
      {Call::kBind, {EADDRINUSE, EACCES, EADDRNOTAVAIL, ENOMEM}},
      {Call::kClone, {EAGAIN, ENOMEM}},
      {Call::kDuplicate, {EMFILE}},
      {Call::kWatch, {ENOMEM, ENOSPC}},
      {Call::kSendFile, {EAGAIN, EINTR, EIO, ENOMEM, EPIPE, EINVAL}},
      {Call::kListFolder, {EIO, ENOENT, EACCES}},
      {Call::kChildHandle, {EMFILE, ENOSYS, ENFILE, ENOMEM}},
      {Call::kLookAtChild, {ECHILD}},
      {Call::kListen, {EADDRINUSE}},
      {Call::kSend, {EAGAIN, EINTR, ECONNRESET, EPIPE, ENOBUFS, ENOMEM}},
      {Call::kOpenFile, {EMFILE, EINTR, EAGAIN, ENFILE, ENOMEM, EACCES, EIO, ENOENT, EPERM, ENOSYS}},
      {Call::kPipe, {EMFILE, ENFILE}},
      {Call::kReadFile, {EIO, EINTR, ENOMEM}},
      {Call::kAskFile, {EIO, ENOMEM, EACCES, ENOENT}},
      {Call::kThread, {EAGAIN}},
      {Call::kReceive, {EAGAIN, EINTR, ECONNRESET, ETIMEDOUT, ENOMEM, EHOSTUNREACH}},
      {Call::kEvents, {EINTR}},
      {Call::kReadOutput, {EIO, EINTR, EAGAIN}},
      {Call::kSocket, {EMFILE, ENFILE, ENOBUFS, ENOMEM}},
      {Call::kReadFileAtOnce, {EAGAIN, EINTR, EOPNOTSUPP, EIO, ENOMEM}},
      {Call::kOpenNothing, {EMFILE, ENOENT}},
  };
  return kinds;
}

}  // namespace

Faults& Faults::The() {
  static Faults faults;
  return faults;
}

void Faults::Set(char call, unsigned nth, unsigned error, unsigned times) {
  for (const Kind& kind : Kinds()) {
    if (static_cast<char>(kind.call) != call) continue;
    call_ = kind.call;
    skip_ = nth;
    left_ = times;
    error_ = kind.errors[error % kind.errors.size()];
  }
}

bool Faults::Fails(Call call) {
  if (left_ == 0 || call != call_) return false;
  if (skip_ > 0) {
    --skip_;
    return false;
  }
  --left_;
  ++happened_;
  errno = error_;
  return true;
}

}  // namespace TesselServer::Pretended
