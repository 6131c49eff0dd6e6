// Makes the n-th call of one system function fail, in a program that links FailNth.cpp. Everything else goes through.
//
//   FailNth fault("recv", 3, ECONNRESET);  // the third recv from now on fails once
//   ...
//   fault.Happened();
#pragma once

#include <string>

namespace TesselServer::Kit {

class FailNth {
 public:
  // The functions that can fail: accept4, bind, clone, epoll_ctl, epoll_wait, listen, open, pipe2, poll,
  // pread, preadv2, read, recv, sendfile, sendmsg, socket. One fault at a time.
  FailNth(std::string function, int nth, int error);
  FailNth(const FailNth&) = delete;
  FailNth& operator=(const FailNth&) = delete;
  ~FailNth();

  // Whether the call came that far.
  bool Happened() const;
};

// Holds threads up inside a call of one of these functions, until they are let go.
//
//   HeldCall start("clone");
//   ...
//   start.Holds();  // a thread has come that far, which takes a moment
class HeldCall {
 public:
  explicit HeldCall(std::string function);
  HeldCall(const HeldCall&) = delete;
  HeldCall& operator=(const HeldCall&) = delete;
  ~HeldCall();

  // Whether so many calls have come within ten seconds, those that were let pass included.
  bool Holds(int calls = 1) const;
  // Lets the call of this number pass, 1 being the first that comes, whether it has come or not.
  void LetPass(int number);
  // All pass from now on.
  void LetGo();
};

}  // namespace TesselServer::Kit
