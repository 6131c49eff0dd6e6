// Which system calls fail, come short, or find the end of a file, as a script says.
//
// Thread:    one.
// Errors:    none; a name of a call that is unknown is ignored.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TesselServer::Pretended {

// Each is known by a letter in scripts.
enum class Call : char {
  kAccept = 'a',
  kBind = 'b',
  kClone = 'c',
  kDuplicate = 'd',
  kWatch = 'e',  // epoll_ctl, to add a descriptor
  kSendFile = 'f',
  kListFolder = 'g',
  kChildHandle = 'h',
  kLookAtChild = 'i',
  kListen = 'l',
  kSend = 'm',
  kOpenFile = 'o',
  kPipe = 'p',
  kReadFile = 'r',
  kAskFile = 's',  // fstat and its like
  kThread = 't',   // a piece of work finds no thread
  kReceive = 'v',
  kEvents = 'w',  // epoll_wait
  kReadOutput = 'y',
  kSocket = 'S',
  kReadFileAtOnce = 'R',
  kOpenNothing = 'O',  // /dev/null, for a program
};

class Faults {
 public:
  static Faults& The();

  // From the nth next `call` (0 is the first) on, `times` of them fail with one of the errors that it may have.
  void Set(char call, unsigned nth, unsigned error, unsigned times);
  void Clear() { left_ = 0; }

  // Whether this call fails; errno is set then.
  bool Fails(Call call);

  // How many have failed since the last Forget.
  unsigned Happened() const { return happened_; }
  void Forget() { *this = Faults(); }

  // The most bytes that one read of a file gives, 0 for no limit.
  std::size_t filePiece = 0;

 private:
  Call call_ = Call::kAccept;
  unsigned skip_ = 0;
  unsigned left_ = 0;
  int error_ = 0;
  unsigned happened_ = 0;
};

}  // namespace TesselServer::Pretended
