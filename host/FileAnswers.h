// What the program answers itself when requests are offered to it: three names at the root of the site.
//
// Thread:    the control's thread.
// Ownership: the control and the rate outlive it.
// Errors:    as the control's TrapFileDataEX.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <TesselServer/Tessel.h>

#include "host/RequestRate.h"

namespace TesselServer {

//   path           answer
//   status.json    the statistics (see StatusJson.h)
//   requests.svg   the drawing of the last five minutes (see RateDrawing.h)
//   form.echo      the bytes of the request's body as text/plain, labelled UTF-8 as browsers send forms of pages in
//                  UTF-8; empty for a GET, and the bare header of a 400 above kMaxEchoBytes
class FileAnswers {
 public:
  // A longer body is not sent back: clients that do not read their answers would hold that much of memory each.
  static constexpr std::size_t kMaxEchoBytes = 1024 * 1024;

  FileAnswers(Tessel& tessel, const RequestRate& rate) : tessel_(tessel), rate_(rate) {}

  // Answers the FileRequest event of connection `index`; none of the three may be kept by caches. Paths are the same in
  // any case. Any other path goes back to the control, to be served as a file.
  void Answer(std::int32_t index, std::string_view path) const;

 private:
  Tessel& tessel_;
  const RequestRate& rate_;
};

}  // namespace TesselServer
