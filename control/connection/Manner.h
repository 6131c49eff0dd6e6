// A manner of speaking with clients: how requests are read, what they are answered, how answers are written and logged,
// and when a connection ends. One is chosen at each start (Manners); everything else works with what it was given, and
// does not know which one that is.
//
// Thread:    the host's thread.
// Ownership: lives as long as the control, since a call in progress may be of an earlier run.
// Errors:    none; trapped and reported through LogEvent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "control/connection/RequestInput.h"
#include "platform/files/FileSystem.h"

namespace TesselServer {

struct Slot;

class Manner {
 public:
  Manner() = default;
  Manner(const Manner&) = delete;
  Manner& operator=(const Manner&) = delete;
  virtual ~Manner() = default;

  // How the names of paths are compared with those on disk.
  virtual NameMatch Names() const = 0;

  // Sets the address that the listener is to listen on: `ip` as the host has set it, "" for all addresses. Raises Error
  // 10049 for one that this manner does not listen on.
  virtual void Bind(std::int32_t Index, std::int32_t port, const std::string& ip) = 0;
  // Before a start: raises the Error of a setting that this manner does not serve with.
  virtual void CheckSettings() const {}
  // The server has started: reports what the settings name and is not there.
  virtual void Started() {}

  // What reads the requests of one connection.
  virtual std::unique_ptr<RequestInput> NewInput() = 0;

  // The lines of its own that the start logs.
  virtual std::vector<std::string> StartLines() const = 0;

  // ---- What happens on a connection.

  // It was accepted, and its slot is as new.
  virtual void Accepted(std::int32_t Index) = 0;
  virtual void DataArrival(std::int32_t Index) = 0;
  // The client sends nothing more: what has come may be a request all the same.
  virtual void Close(std::int32_t Index) = 0;
  // The answer has gone.
  virtual void SendComplete(std::int32_t Index) = 0;
  // Every connection is in use, and one more client waits: closes one that can be spared. False where there is none.
  virtual bool MakeRoom() = 0;

  // ---- What the host says and asks.

  // It has answered the request of the slot, or wants it served as if it had not been asked.
  virtual void AnswerAsHostSays(std::int32_t Index) = 0;
  // A status code as it may be sent.
  virtual std::string StatusOfHost(std::string_view code) const = 0;
  // The value of a header line of the request, "" where it has none.
  virtual std::string HeaderField(const Slot& slot, std::string_view name) const = 0;
};

}  // namespace TesselServer
