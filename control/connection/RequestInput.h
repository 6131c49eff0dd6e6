// What has come of the request of one connection, whatever the manner in which it is read.
//
// Thread:    the host's thread.
// Ownership: owned by its slot; keeps what has come.
// Errors:    those of memory running out.
#pragma once

#include <cstdint>

#include "control/connection/RequestFields.h"

namespace TesselServer {

class RequestInput {
 public:
  RequestInput() = default;
  RequestInput(const RequestInput&) = delete;
  RequestInput& operator=(const RequestInput&) = delete;
  virtual ~RequestInput() = default;

  // The request field by field; as long as it is not complete some are empty.
  virtual RequestFields& Fields() = 0;
  virtual const RequestFields& Fields() const = 0;

  // The body is of no further use.
  virtual void LetGoOfBody() = 0;

  // Forgets everything, for the next connection. Bodies of that one are at most `maxBodyBytes` long.
  virtual void Reset(std::int64_t maxBodyBytes) = 0;
};

}  // namespace TesselServer
