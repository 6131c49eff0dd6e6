// The drawing of the requests of the last five minutes, as the program sends it for requests.svg.
//
// Thread:    any.
// Ownership: values.
// Errors:    none.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

namespace TesselServer {

// The end of an axis that has room for `highest`: the smallest of 1, 2, 5, 10, 20, 50 and so on that is not below it.
// 1 for 0 and less; never more than 10^15.
std::int64_t AxisEnd(std::int64_t highest);

// An SVG picture of 640 x 240 pixels, made of shapes and ASCII text only: time along the lower edge, from five minutes
// ago to now, and requests per second upwards. `perSecond` is oldest first, its last value is the second that ended
// just now; of more than 300 values the last 300 are drawn. Time before the first value stays empty.
std::string RateDrawing(const std::deque<std::int64_t>& perSecond);

}  // namespace TesselServer
