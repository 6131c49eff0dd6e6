// Makes the n-th request for memory by `new` fail, in a program that links FailNthMemory.cpp. Everything else goes
// through.
//
//   FailNthMemory fault(3);  // the third one of this thread from now on fails once, with std::bad_alloc
//   ...
//   fault.Happened();
#pragma once

namespace TesselServer::Kit {

class FailNthMemory {
 public:
  explicit FailNthMemory(int nth);
  FailNthMemory(const FailNthMemory&) = delete;
  FailNthMemory& operator=(const FailNthMemory&) = delete;
  ~FailNthMemory();

  // Whether the request came that far.
  bool Happened() const;
};

}  // namespace TesselServer::Kit
