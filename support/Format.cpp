#include "support/Format.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::array<std::string_view, 7> kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                       "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> kMonths = {"January",   "February", "March",    "April",
                                                      "May",       "June",     "July",     "August",
                                                      "September", "October",  "November", "December"};
constexpr std::size_t kShortNameLength = 3;

constexpr std::string_view kLongDateName = "long date";
constexpr std::string_view kLongDatePicture = "dddd, mmmm d, yyyy";
constexpr std::string_view kLongTimeName = "long time";
constexpr std::string_view kLongTimePicture = "h:nn:ss AMPM";
constexpr std::string_view kDateLetters = "ymdhns";
constexpr std::string_view kHalfDay = "AMPM";

// ----- numbers

// A picture of a number, taken apart.
struct NumberPicture {
  std::string_view before, after;  // copied
  std::size_t leastDigits = 0;     // before the point
  std::size_t decimals = 0;
  bool point = false;
  bool grouped = false;
};

NumberPicture ParseNumberPicture(std::string_view picture) {
  NumberPicture parsed;
  const std::size_t begin = std::min(picture.find_first_of("0#"), picture.size());
  const std::size_t end = std::min(picture.find_first_not_of("0#,.", begin), picture.size());
  parsed.before = picture.substr(0, begin);
  parsed.after = picture.substr(end);
  bool zeroSeen = false;
  for (const char c : picture.substr(begin, end - begin)) {
    if (c == '.') {
      parsed.point = true;
    } else if (c == ',') {
      parsed.grouped = true;
    } else if (parsed.point) {
      ++parsed.decimals;
    } else {
      zeroSeen = zeroSeen || c == '0';
      if (zeroSeen) ++parsed.leastDigits;
    }
  }
  return parsed;
}

// A number as decimal digits, without its sign.
struct Digits {
  std::string whole;     // no leading zeros, "" for 0
  std::string fraction;  // as many as were asked for
};

// Adds one unit of the last place.
void Increment(Digits& digits) {
  for (std::string* part : {&digits.fraction, &digits.whole}) {
    for (auto digit = part->rbegin(); digit != part->rend(); ++digit) {
      if (*digit != '9') {
        ++*digit;
        return;
      }
      *digit = '0';
    }
  }
  digits.whole.insert(0, 1, '1');
}

Digits RoundedDigits(double magnitude, std::size_t decimals) {
  // The longest text there is: the smallest positive number, written without an exponent.
  std::array<char, 2 - std::numeric_limits<double>::min_exponent10 + 2 * std::numeric_limits<double>::max_digits10>
      text;
  const auto written = std::to_chars(text.data(), text.data() + text.size(), magnitude, std::chars_format::fixed);
  const std::string_view all(text.data(), static_cast<std::size_t>(written.ptr - text.data()));
  const std::size_t point = std::min(all.find('.'), all.size());
  const std::string_view fraction = all.substr(std::min(point + 1, all.size()));
  Digits digits{std::string(all.substr(0, point)), std::string(fraction.substr(0, decimals))};
  if (digits.whole == "0") digits.whole.clear();
  digits.fraction.resize(decimals, '0');
  if (fraction.size() > decimals && fraction[decimals] >= '5') Increment(digits);
  return digits;
}

bool AllZeros(std::string_view digits) { return digits.find_first_not_of('0') == std::string_view::npos; }

// Puts a "," before every third digit from the right, but not before the first.
void GroupByThree(std::string& whole) {
  for (std::size_t at = whole.size(); at > 3;) {
    at -= 3;
    whole.insert(at, 1, ',');
  }
}

// ----- dates

// `number` with at least `digits` digits.
std::string Padded(std::int64_t number, std::size_t digits) {
  std::string text = std::to_string(number < 0 ? -number : number);
  if (text.size() < digits) text.insert(0, digits - text.size(), '0');
  if (number < 0) text.insert(0, 1, '-');
  return text;
}

template <std::size_t kCount>
std::string NameOf(const std::array<std::string_view, kCount>& names, std::int32_t number, std::size_t letters) {
  if (number < 1 || number > static_cast<std::int32_t>(kCount)) return {};
  const std::string_view name = names[static_cast<std::size_t>(number) - 1];
  return std::string(letters > 3 ? name : name.substr(0, kShortNameLength));
}

std::int32_t HourOfHalfDay(std::int32_t hour) { return hour % 12 == 0 ? 12 : hour % 12; }

// Writes one date: walks over the picture and remembers what a later letter depends on.
class DateWriter {
 public:
  DateWriter(const CivilTime& date, std::string_view picture)
      : date_(date), picture_(picture), halfDays_(FindNoCase(picture, kHalfDay) != std::string_view::npos) {}

  std::string Write() {
    for (std::size_t at = 0; at < picture_.size();) {
      if (EqualNoCase(picture_.substr(at, kHalfDay.size()), kHalfDay)) {
        text_ += date_.hour < 12 ? "AM" : "PM";
        at += kHalfDay.size();
        continue;
      }
      const char letter = LowerAscii(picture_[at]);
      const std::size_t count = RunLength(letter, at);
      WriteRun(letter, count, picture_.substr(at, count));
      at += count;
    }
    return std::move(text_);
  }

 private:
  // How often `letter` is repeated from `at` on; 1 for what is only copied.
  std::size_t RunLength(char letter, std::size_t at) const {
    std::size_t end = at + 1;
    if (kDateLetters.find(letter) == std::string_view::npos) return 1;
    while (end < picture_.size() && LowerAscii(picture_[end]) == letter) ++end;
    return end - at;
  }

  void WriteRun(char letter, std::size_t count, std::string_view asGiven) {
    const bool afterHour = afterHour_;
    afterHour_ = letter == 'h' || (afterHour && asGiven == ":");
    const std::size_t digits = std::min<std::size_t>(count, 2);
    switch (letter) {
      case 'y':
        text_ += count > 2 ? Padded(date_.year, 4) : Padded((date_.year % 100 + 100) % 100, 2);
        return;
      case 'm':
        if (afterHour) {
          text_ += Padded(date_.minute, digits);
        } else {
          text_ += count > 2 ? NameOf(kMonths, date_.month, count) : Padded(date_.month, digits);
        }
        return;
      case 'd':
        text_ += count > 2 ? NameOf(kWeekdays, date_.weekday, count) : Padded(date_.day, digits);
        return;
      case 'h':
        text_ += Padded(halfDays_ ? HourOfHalfDay(date_.hour) : date_.hour, digits);
        return;
      case 'n':
        text_ += Padded(date_.minute, digits);
        return;
      case 's':
        text_ += Padded(date_.second, digits);
        return;
      default:
        text_ += asGiven;
    }
  }

  const CivilTime& date_;
  const std::string_view picture_;
  const bool halfDays_;     // hours are 1 to 12
  bool afterHour_ = false;  // the last thing written was an hour, or an hour and ":"
  std::string text_;
};

}  // namespace

std::string FormatNumber(double value, std::string_view picture) {
  if (!std::isfinite(value)) return {};
  if (picture.find_first_of("0#") == std::string_view::npos) return std::string(picture);
  const NumberPicture parsed = ParseNumberPicture(picture);
  Digits digits = RoundedDigits(std::fabs(value), parsed.decimals);
  const bool negative = value < 0 && !(AllZeros(digits.whole) && AllZeros(digits.fraction));
  if (digits.whole.size() < parsed.leastDigits) digits.whole.insert(0, parsed.leastDigits - digits.whole.size(), '0');
  if (parsed.grouped) GroupByThree(digits.whole);
  std::string text = negative ? "-" : "";
  text.append(parsed.before).append(digits.whole);
  if (parsed.point) text.append(1, '.').append(digits.fraction);
  return text.append(parsed.after);
}

std::string FormatDate(const CivilTime& date, std::string_view picture) {
  if (EqualNoCase(picture, kLongDateName)) return DateWriter(date, kLongDatePicture).Write();
  if (EqualNoCase(picture, kLongTimeName)) return DateWriter(date, kLongTimePicture).Write();
  return DateWriter(date, picture).Write();
}

std::string FormatDate(Date date, std::string_view picture) { return FormatDate(CivilFromDate(date), picture); }

}  // namespace TesselServer
