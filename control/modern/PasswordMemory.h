// Which clients have shown a right password of a file lately, so that a hash is not computed for each picture of a
// page.
//
// What is kept of a name and its password is a digest with a key of this object alone: neither can be read out of it.
//
// Thread:    the host's thread.
// Ownership: a value; the world outlives it.
// Errors:    the constructor raises std::runtime_error where the system has no random numbers.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/files/SeenFile.h"
#include "support/KeyedDigest.h"

namespace TesselServer {

class PasswordMemory {
 public:
  // The clients of some minutes; one that is forgotten is checked again.
  static constexpr std::size_t kMaxEntries = 256;

  explicit PasswordMemory(const World& world) : world_(world), digest_(KeyedDigest::RandomKey()) {}

  // A client and the password file that it is held against, as it is now, before it is read.
  struct Look {
    KeyedDigest::Value client;
    SeenFile file;
    bool isKnown;  // it has shown this right password within a minute, and the file is unchanged since
  };
  Look LookUp(const OpenFile& file, std::string_view user, std::string_view password) const;

  // The password was right. Known from now on, until a minute after the look or until the file changes. Nothing happens
  // where a change of the file might not show.
  void Learn(const Look& look);

 private:
  struct Entry {
    KeyedDigest::Value client;
    SeenFile file;
  };

  const World& world_;
  KeyedDigest digest_;
  std::vector<Entry> entries_;  // at most kMaxEntries
  std::size_t next_ = 0;        // whose place the next one takes, once all are taken
};

}  // namespace TesselServer
