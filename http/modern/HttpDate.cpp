#include "http/modern/HttpDate.h"

#include <algorithm>
#include <span>
#include <tuple>

#include "http/modern/FieldValues.h"
#include "support/Dates.h"

namespace TesselServer::Modern {
namespace {

constexpr std::string_view kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::string_view kLongDayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                              "Thursday", "Friday", "Saturday"};
constexpr std::string_view kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// What a two-digit year may at most lie in the future.
constexpr std::int64_t kYearsAhead = 50;

char* WriteText(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

char* WriteTwoDigits(char* to, std::int32_t number) {
  *to++ = static_cast<char>('0' + number / 10);
  *to++ = static_cast<char>('0' + number % 10);
  return to;
}

// Reads a date from its beginning. What is not there as expected makes it wrong, and it stays so.
class DateScanner {
 public:
  explicit DateScanner(std::string_view text) : rest_(text) {}

  void Text(std::string_view expected) {
    if (!rest_.starts_with(expected)) return Fail();
    rest_.remove_prefix(expected.size());
  }

  // A number of exactly `digits` digits.
  std::int32_t Number(std::size_t digits) {
    if (rest_.size() < digits || !std::all_of(rest_.begin(), rest_.begin() + digits, IsDecimal)) return Fail(), 0;
    std::int32_t number = 0;
    for (const char c : rest_.substr(0, digits)) number = number * 10 + (c - '0');
    rest_.remove_prefix(digits);
    return number;
  }

  // The day of asctime(), which has a blank in place of a leading zero.
  std::int32_t PaddedDay() {
    if (!rest_.starts_with(' ')) return Number(2);
    rest_.remove_prefix(1);
    return Number(1);
  }

  // The place of the name that comes next among `names`, the first being 1.
  std::int32_t NameOf(std::span<const std::string_view> names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!rest_.starts_with(names[i])) continue;
      rest_.remove_prefix(names[i].size());
      return static_cast<std::int32_t>(i + 1);
    }
    return Fail(), 0;
  }

  void TimeOfDay(CivilTime& date) {
    date.hour = Number(2);
    Text(":");
    date.minute = Number(2);
    Text(":");
    date.second = Number(2);
  }

  bool IsWhole() const { return isGood_ && rest_.empty(); }

 private:
  void Fail() { isGood_ = false; }

  std::string_view rest_;
  bool isGood_ = true;
};

std::int32_t DaysOf(const CivilTime& date) {
  constexpr std::int32_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool isLeapYear = date.year % 4 == 0 && (date.year % 100 != 0 || date.year % 400 == 0);
  return date.month == 2 && isLeapYear ? 29 : kDays[date.month - 1];
}

bool Exists(const CivilTime& date) {
  return date.month >= 1 && date.day >= 1 && date.day <= DaysOf(date) && date.hour <= 23 && date.minute <= 59 &&
         date.second <= 60;
}

// Today's form, behind the name of the day.
bool ReadFixed(DateScanner& text, CivilTime& date) {
  text.Text(", ");
  date.day = text.Number(2);
  text.Text(" ");
  date.month = text.NameOf(kMonthNames);
  text.Text(" ");
  date.year = text.Number(4);
  text.Text(" ");
  text.TimeOfDay(date);
  text.Text(" GMT");
  return text.IsWhole();
}

// The form of asctime(), behind the name of the day.
bool ReadAsctime(DateScanner& text, CivilTime& date) {
  text.Text(" ");
  date.month = text.NameOf(kMonthNames);
  text.Text(" ");
  date.day = text.PaddedDay();
  text.Text(" ");
  text.TimeOfDay(date);
  text.Text(" ");
  date.year = text.Number(4);
  return text.IsWhole();
}

auto WithinYear(const CivilTime& date) {
  return std::make_tuple(date.month, date.day, date.hour, date.minute, date.second);
}

// The year for the two digits that `date` has as its year.
std::int64_t WholeYear(const CivilTime& date, std::int64_t now) {
  const CivilTime today = CivilFromSeconds(now);
  const std::int64_t lastYear = today.year + kYearsAhead;
  const std::int64_t year = lastYear - ((lastYear - date.year) % 100 + 100) % 100;
  return year == lastYear && WithinYear(date) > WithinYear(today) ? year - 100 : year;
}

bool ReadRfc850(DateScanner text, CivilTime& date, std::int64_t now) {
  text.NameOf(kLongDayNames);
  text.Text(", ");
  date.day = text.Number(2);
  text.Text("-");
  date.month = text.NameOf(kMonthNames);
  text.Text("-");
  date.year = text.Number(2);
  text.Text(" ");
  text.TimeOfDay(date);
  text.Text(" GMT");
  if (!text.IsWhole()) return false;
  date.year = WholeYear(date, now);
  return true;
}

// The fourth byte tells the forms apart: it is the comma or the blank after a short name, or a letter of a long one.
bool ReadDate(std::string_view text, CivilTime& date, std::int64_t now) {
  constexpr std::size_t kShortName = 3;
  if (text.size() <= kShortName) return false;
  DateScanner scanner(text);
  if (text[kShortName] != ',' && text[kShortName] != ' ') return ReadRfc850(scanner, date, now);
  scanner.NameOf(kDayNames);
  return text[kShortName] == ',' ? ReadFixed(scanner, date) : ReadAsctime(scanner, date);
}

}  // namespace

void WriteHttpDate(char* to, std::int64_t utcSeconds) {
  const CivilTime date = CivilFromSeconds(std::clamp(utcSeconds, kFirstHttpDate, kLastHttpDate));
  const auto year = static_cast<std::int32_t>(date.year);
  to = WriteText(to, kDayNames[date.weekday - 1]);
  to = WriteTwoDigits(WriteText(to, ", "), date.day);
  to = WriteText(WriteText(to, " "), kMonthNames[date.month - 1]);
  to = WriteTwoDigits(WriteTwoDigits(WriteText(to, " "), year / 100), year % 100);
  to = WriteTwoDigits(WriteText(to, " "), date.hour);
  to = WriteTwoDigits(WriteText(to, ":"), date.minute);
  to = WriteTwoDigits(WriteText(to, ":"), date.second);
  WriteText(to, " GMT");
}

std::string HttpDateText(std::int64_t utcSeconds) {
  std::string text(kHttpDateBytes, ' ');
  WriteHttpDate(text.data(), utcSeconds);
  return text;
}

std::optional<std::int64_t> ParseHttpDate(std::string_view text, std::int64_t now) {
  CivilTime date;
  if (!ReadDate(text, date, now) || !Exists(date)) return std::nullopt;
  return SecondsFromCivil(date);
}

}  // namespace TesselServer::Modern
