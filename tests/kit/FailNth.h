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
  // pread, read, recv, sendfile, sendmsg, socket. One fault at a time.
  FailNth(std::string function, int nth, int error);
  FailNth(const FailNth&) = delete;
  FailNth& operator=(const FailNth&) = delete;
  ~FailNth();

  // Whether the call came that far.
  bool Happened() const;
};

}  // namespace TesselServer::Kit
