// Numbers and dates as text, by a picture of what the text looks like. The one place where such text is made, so the
// separators ("," "." "/" ":"), the English names and "AM"/"PM" are the same everywhere, whatever the locale is.
//
// Thread:    any.
// Ownership: views given are read during the call.
// Errors:    none; what a picture does not know is copied into the text.
#pragma once

#include <string>
#include <string_view>

#include "support/Dates.h"

namespace TesselServer {

// `value` as `picture` shows it. In the picture
//   0  is a digit that is always there (all "#" after the first "0" count as "0"),
//   #  is a digit that is there when the number has it,
//   ,  before the point groups the digits by three,
//   .  is the point, the number of digits after it is fixed,
// and everything before the first and after the last of these is copied. More digits before the point than the picture
// has are all shown. Half a unit of the last place is rounded away from zero, on the decimal digits that the number is
// written with (1.005 has three). A negative number begins with "-" unless all that is shown is zeros. A picture
// without a digit is copied; a value that is not finite is "".
//
//   FormatNumber(1234567, "#,##0");  // "1,234,567"
//   FormatNumber(1.125, "0.00");     // "1.13"
//   FormatNumber(7, "0#");           // "07"
//   FormatNumber(1.5, "0K");         // "2K"
std::string FormatNumber(double value, std::string_view picture);

// `date` as `picture` shows it. Letters of the picture count in either case:
//   yyyy, yy               year with four digits, its last two
//   mmmm, mmm, mm, m       month: "November", "Nov", "11", without a leading zero
//   dddd, ddd, dd, d       day: "Sunday", "Sun", two digits, without a leading zero
//   hh, h                  hour 0 to 23, or 1 to 12 when AMPM is anywhere in the picture
//   nn, n                  minute
//   mm, m                  minute too, where it follows an hour or an hour and ":"
//   ss, s                  second
//   AMPM                   "AM" or "PM"
// Everything else is copied. A letter more often than listed counts as its longest form. Two pictures have a name:
// "long date" ("Sunday, November 15, 2026") and "long time" ("6:20:05 PM").
//
//   FormatDate(date, "ddd, dd mmm yyyy hh:nn:ss");  // "Sun, 15 Nov 2026 18:20:05"
//   FormatDate(date, "hh:mm:ssAMPM");               // "06:20:05PM"
std::string FormatDate(const CivilTime& date, std::string_view picture);
std::string FormatDate(Date date, std::string_view picture);

}  // namespace TesselServer
