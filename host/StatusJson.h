// What the control counts, as the program sends it for status.json.
//
// Thread:    the control's thread.
// Ownership: values.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

#include <TesselServer/Tessel.h>

namespace TesselServer {

// The statistics of a control, in its own texts.
struct Status {
  std::string version;          // "1.1.000"
  std::string requests;         // "12"
  std::string errors;           // "12"
  std::string bytesReceived;    // "12K"
  std::string bytesSent;        // "12K"
  std::string upTime;           // "dd:hh:mm:ss", "" before the first start
  std::string freeConnections;  // "999/1000"
};

Status StatusOf(const Tessel& tessel);

// `text` as a JSON string with its quotes. One byte is one character; all but printable ASCII is escaped.
std::string JsonString(std::string_view text);

// One JSON object (RFC 8259), a line for each member:
//
//   {
//     "version": "1.1.000",
//     "requests": 12,
//     "errors": 0,
//     "kilobytesReceived": 3,
//     "kilobytesSent": 120,
//     "upTime": "00:00:01:05",
//     "upTimeSeconds": 65,
//     "freeConnections": 998,
//     "maxConnections": 1000
//   }
//
// A text that is not of the form given above makes its numbers null.
std::string StatusJson(const Status& status);

}  // namespace TesselServer
