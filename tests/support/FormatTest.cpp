#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/Format.h"

namespace TesselServer {
namespace {

constexpr CivilTime kEvening{2026, 11, 15, 18, 20, 5, 1};
constexpr CivilTime kMorning{2027, 3, 4, 0, 7, 9, 5};

TEST(FormatTest, NumbersFollowTheirPicture) {
  struct {
    double value;
    std::string_view picture, text;
  } const cases[] = {
      {0, "#,##0", "0"},
      {999, "#,##0", "999"},
      {1000, "#,##0", "1,000"},
      {1023, "#,##0", "1,023"},
      {123456, "#,##0", "123,456"},
      {1234567, "#,##0", "1,234,567"},
      {-1, "#,##0", "-1"},
      {-999, "#,##0", "-999"},
      {-2147483648.0, "#,##0", "-2,147,483,648"},
      {1, "0.00", "1.00"},
      {0.98, "0.00", "0.98"},
      {1024000 / 1048576.0, "0.00", "0.98"},
      {9.999, "0.00", "10.00"},
      {10, "0.0", "10.0"},
      {0, "0.0", "0.0"},
      {99.96, "0.0", "100.0"},
      {0, "0", "0"},
      {99.4, "0", "99"},
      {100, "0", "100"},
      {0, "0#", "00"},
      {7, "0#", "07"},
      {10, "0#", "10"},
      {123, "0#", "123"},
      {-1, "0#", "-01"},
      {-12, "0#", "-12"},
      {59.6, "0#", "60"},
      {59.4, "0#", "59"},
      {7, "00#", "007"},
      {1, "000", "001"},
      {1000, "00#", "1000"},
      {0, "0K", "0K"},
      {1536 / 1024.0, "0K", "2K"},
      {2560 / 1024.0, "0K", "3K"},
      {512 / 1024.0, "0K", "1K"},
      {511 / 1024.0, "0K", "0K"},
      {1e15, "0K", "1000000000000000K"},
      {5, "#", "5"},
      {0, "#", ""},
      {0.5, "#.0", ".5"},
      {1234.5, "#,##0.00", "1,234.50"},
      {12, "about 0 bytes", "about 12 bytes"},
      {-12, "<0>", "-<12>"},
      {12, "no digits", "no digits"},
      {12, "", ""},
      {1e22, "0", "10000000000000000000000"},
      {-0.0, "0.0", "0.0"},
  };
  for (const auto& c : cases) EXPECT_EQ(FormatNumber(c.value, c.picture), c.text) << c.value << " as " << c.picture;
}

TEST(FormatTest, HalfAUnitIsRoundedAwayFromZero) {
  struct {
    double value;
    std::string_view picture, text;
  } const cases[] = {
      {0.5, "0", "1"},         {1.5, "0", "2"},         {2.5, "0", "3"},           {-0.5, "0", "-1"},
      {-1.5, "0", "-2"},       {-2.5, "0", "-3"},       {0.125, "0.00", "0.13"},   {1.125, "0.00", "1.13"},
      {1.005, "0.00", "1.01"}, {0.285, "0.00", "0.29"}, {0.25, "0.0", "0.3"},      {-0.25, "0.0", "-0.3"},
      {0.049, "0.0", "0.0"},   {0.05, "0.0", "0.1"},    {999.5, "#,##0", "1,000"}, {99999.5, "0", "100000"},
  };
  for (const auto& c : cases) EXPECT_EQ(FormatNumber(c.value, c.picture), c.text) << c.value;
  EXPECT_EQ(FormatNumber(std::nextafter(0.5, 0), "0"), "0") << "the number just below";
  EXPECT_EQ(FormatNumber(std::nextafter(2.5, 0), "0"), "2");
}

TEST(FormatTest, ANegativeNumberThatShowsAsZeroHasNoSign) {
  EXPECT_EQ(FormatNumber(-0.4, "0"), "0");
  EXPECT_EQ(FormatNumber(-0.004, "0.00"), "0.00");
  EXPECT_EQ(FormatNumber(-0.006, "0.00"), "-0.01");
  EXPECT_EQ(FormatNumber(-0.4, "0#"), "00");
}

TEST(FormatTest, ExtremeNumbersAreShown) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(FormatNumber(Limits::max(), "0").size(), 309u);
  EXPECT_EQ(FormatNumber(-Limits::max(), "#,##0.0").size(), 1u + 309 + 102 + 2);
  EXPECT_EQ(FormatNumber(Limits::denorm_min(), "0.00"), "0.00");
  EXPECT_EQ(FormatNumber(std::nextafter(Limits::min(), 0), "0"), "0") << "the longest text of a number";
  EXPECT_EQ(FormatNumber(Limits::infinity(), "0"), "");
  EXPECT_EQ(FormatNumber(-Limits::infinity(), "0K"), "");
  EXPECT_EQ(FormatNumber(Limits::quiet_NaN(), "0.00"), "");
}

TEST(FormatTest, EveryIntegerIsShownExactly) {
  for (std::int32_t number = -20000; number <= 20000; ++number) {
    ASSERT_EQ(FormatNumber(number, "0"), std::to_string(number));
  }
}

TEST(FormatTest, DatesFollowTheirPicture) {
  struct {
    CivilTime date;
    std::string_view picture, text;
  } const cases[] = {
      {kEvening, "YYYY/MM/DD", "2026/11/15"},
      {kEvening, "yyyy/mm/dd", "2026/11/15"},
      {kMorning, "YYYY/MM/DD", "2027/03/04"},
      {kEvening, "dd/mm/yyyy", "15/11/2026"},
      {kMorning, "mm/dd/yyyy", "03/04/2027"},
      {kEvening, "hh:nn:ss", "18:20:05"},
      {kMorning, "hh:nn:ss", "00:07:09"},
      {kEvening, "hh:mm:ss", "18:20:05"},
      {kMorning, "HH:MM:SS", "00:07:09"},
      {kEvening, "yyyy hh:mm:ss", "2026 18:20:05"},
      {kEvening, "hh:mm:ssAMPM", "06:20:05PM"},
      {kMorning, "hh:mm:ssAMPM", "12:07:09AM"},
      {kMorning, "hh:mm:ssampm", "12:07:09AM"},
      {kEvening, "ddd, dd mmm yyyy hh:nn:ss", "Sun, 15 Nov 2026 18:20:05"},
      {kMorning, "ddd, dd mmm yyyy hh:nn:ss", "Thu, 04 Mar 2027 00:07:09"},
      {kEvening, "dddd", "Sunday"},
      {kMorning, "d.m.yy h:n:s", "4.3.27 0:7:9"},
      {kMorning, "hhmm", "0007"},
      {kMorning, "hh/mm", "00/03"},
      {kMorning, "mm hh:mm mm", "03 00:07 03"},
      {kEvening, "mmmm", "November"},
      {kEvening, "long date", "Sunday, November 15, 2026"},
      {kMorning, "Long Date", "Thursday, March 4, 2027"},
      {kEvening, "long time", "6:20:05 PM"},
      {kMorning, "LONG TIME", "12:07:09 AM"},
      {{2026, 1, 1, 12, 0, 0, 5}, "long time", "12:00:00 PM"},
      {{2026, 1, 1, 11, 59, 59, 5}, "long time", "11:59:59 AM"},
      {{2026, 1, 1, 23, 59, 59, 5}, "hhAMPM", "11PM"},
      {{2026, 1, 1, 1, 0, 0, 5}, "AMPM h", "AM 1"},
      {kEvening, "", ""},
      {kEvening, "%:\x80 [,]", "%:\x80 [,]"},
      {kEvening, "AM PM A", "A11 P11 A"},
      {kEvening, "AAMPM", "APM"},
      {{987, 1, 1, 0, 0, 0, 1}, "yyyy", "0987"},
      {{12345, 1, 1, 0, 0, 0, 1}, "yyyy", "12345"},
      {{-5, 1, 1, 0, 0, 0, 1}, "yyyy yy", "-0005 95"},
      {kEvening, "dddddd mmmmmmm yyyyyy hhhh nnnn ssss", "Sunday November 2026 18 20 05"},
  };
  for (const auto& c : cases) EXPECT_EQ(FormatDate(c.date, c.picture), c.text) << c.picture;
}

TEST(FormatTest, ADayCountIsShownAsItsCalendarTerms) {
  EXPECT_EQ(FormatDate(DateFromCivil(kEvening), "long date"), "Sunday, November 15, 2026");
  EXPECT_EQ(FormatDate(Date{0}, "yyyy/mm/dd hh:nn:ss"), "1899/12/30 00:00:00");
}

TEST(FormatTest, MonthsAndWeekdaysHaveTheirEnglishNames) {
  const std::string_view months[] = {"January", "February", "March",     "April",   "May",      "June",
                                     "July",    "August",   "September", "October", "November", "December"};
  const std::string_view days[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  CivilTime date = kEvening;
  for (date.month = 1; date.month <= 12; ++date.month) {
    const std::string_view name = months[date.month - 1];
    EXPECT_EQ(FormatDate(date, "mmmm mmm"), std::string(name) + " " + std::string(name.substr(0, 3)));
  }
  for (date.weekday = 1; date.weekday <= 7; ++date.weekday) {
    const std::string_view name = days[date.weekday - 1];
    EXPECT_EQ(FormatDate(date, "dddd ddd"), std::string(name) + " " + std::string(name.substr(0, 3)));
  }
}

TEST(FormatTest, TermsThatNoCalendarHasGiveNoName) {
  CivilTime date = kEvening;
  for (const std::int32_t number : {std::numeric_limits<std::int32_t>::min(), -1, 0, 13, 1000}) {
    date.month = number;
    date.weekday = number;
    EXPECT_EQ(FormatDate(date, "[mmm][dddd]"), "[][]") << number;
  }
}

TEST(FormatTest, EveryHourHasItsHalfDay) {
  CivilTime date = kEvening;
  for (date.hour = 0; date.hour < 24; ++date.hour) {
    const std::int32_t shown = date.hour == 0 ? 12 : date.hour > 12 ? date.hour - 12 : date.hour;
    EXPECT_EQ(FormatDate(date, "h AMPM"), std::to_string(shown) + (date.hour < 12 ? " AM" : " PM"));
  }
}

}  // namespace
}  // namespace TesselServer
