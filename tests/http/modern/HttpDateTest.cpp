#include <gtest/gtest.h>

#include <limits>

#include "http/modern/HttpDate.h"
#include "support/mTimeZone.h"

namespace TesselServer::Modern {
namespace {

constexpr std::int64_t kDateNow = 1795300128;  // Saturday, 21 November 2026, 22:28:48 UTC
constexpr std::int64_t kFamousDate = 784111777;

TEST(HttpDateTest, IsWrittenInTodaysForm) {
  const struct {
    std::int64_t seconds;
    const char *text, *why;
  } cases[] = {
      {kFamousDate, "Sun, 06 Nov 1994 08:49:37 GMT", "the example of RFC 9110"},
      {kDateNow, "Sat, 21 Nov 2026 22:28:48 GMT", "today"},
      {0, "Thu, 01 Jan 1970 00:00:00 GMT", "where seconds begin"},
      {-1, "Wed, 31 Dec 1969 23:59:59 GMT", "before it"},
      {951782400, "Tue, 29 Feb 2000 00:00:00 GMT", "a leap day of a century"},
      {4'107'542'400, "Mon, 01 Mar 2100 00:00:00 GMT", "after a day that 2100 does not have"},
      {kFirstHttpDate, "Sat, 01 Jan 0000 00:00:00 GMT", "the first of four digits"},
      {kLastHttpDate, "Fri, 31 Dec 9999 23:59:59 GMT", "the last of four digits"},
      {kLastHttpDate + 1, "Fri, 31 Dec 9999 23:59:59 GMT", "a file's time may be anything"},
      {std::numeric_limits<std::int64_t>::max(), "Fri, 31 Dec 9999 23:59:59 GMT", "the last of all"},
      {std::numeric_limits<std::int64_t>::min(), "Sat, 01 Jan 0000 00:00:00 GMT", "the first of all"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(HttpDateText(c.seconds), c.text) << c.why;
    EXPECT_EQ(HttpDateText(c.seconds).size(), kHttpDateBytes) << c.why;
  }
}

TEST(HttpDateTest, IsWrittenAsEverywhereElse) {
  for (std::int64_t seconds = -5'000'000'000; seconds < 9'000'000'000; seconds += 12'345'677) {
    ASSERT_EQ(HttpDateText(seconds), GMTDate(seconds)) << seconds;
  }
}

TEST(HttpDateTest, ReadsBackWhatItWrites) {
  for (std::int64_t seconds = kFirstHttpDate; seconds <= kLastHttpDate; seconds += 31'415'926'5) {
    ASSERT_EQ(ParseHttpDate(HttpDateText(seconds), kDateNow), seconds) << HttpDateText(seconds);
  }
  EXPECT_EQ(ParseHttpDate(HttpDateText(kLastHttpDate), kDateNow), kLastHttpDate);
}

TEST(HttpDateTest, ReadsTheThreeForms) {
  const struct {
    const char* text;
    std::int64_t seconds;
    const char* why;
  } cases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", kFamousDate, "today's form"},
      {"Sunday, 06-Nov-94 08:49:37 GMT", kFamousDate, "the form of RFC 850"},
      {"Sun Nov  6 08:49:37 1994", kFamousDate, "the form of asctime()"},
      {"Sun Nov 16 08:49:37 1994", kFamousDate + 864'000, "two digits of the day there"},
      {"Sun Nov 06 08:49:37 1994", kFamousDate, "two digits, the first being zero"},
      {"Mon, 06 Nov 1994 08:49:37 GMT", kFamousDate, "the day of the week says nothing new, and is not compared"},
      {"Wednesday, 06-Nov-94 08:49:37 GMT", kFamousDate, "likewise: the longest name of a day"},
      {"Thu, 01 Jan 1970 00:00:00 GMT", 0, "zero is a date"},
      {"Wed, 31 Dec 1969 23:59:59 GMT", -1, "and so is what was before"},
      {"Tue, 29 Feb 2000 00:00:00 GMT", 951782400, "a leap day"},
      {"Sat, 31 Dec 2016 23:59:60 GMT", 1483228800, "a leap second is the next year's first second"},
      {"Sat, 01 Jan 0000 00:00:00 GMT", kFirstHttpDate, "the first year of four digits"},
      {"Fri, 31 Dec 9999 23:59:59 GMT", kLastHttpDate, "the last one"},
  };
  for (const auto& c : cases) EXPECT_EQ(ParseHttpDate(c.text, kDateNow), c.seconds) << c.text << ": " << c.why;
}

TEST(HttpDateTest, TwoDigitsOfAYearAreNoMoreThanFiftyYearsAhead) {
  const struct {
    const char* text;
    const char* now;
    const char* read;
  } cases[] = {
      {"Sunday, 06-Nov-94 08:49:37 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Sun, 06 Nov 1994 08:49:37 GMT"},
      {"Sunday, 06-Nov-26 08:49:37 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Fri, 06 Nov 2026 08:49:37 GMT"},
      {"Sunday, 06-Nov-27 08:49:37 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Sat, 06 Nov 2027 08:49:37 GMT"},
      {"Sunday, 21-Nov-76 22:28:48 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Sat, 21 Nov 2076 22:28:48 GMT"},
      {"Sunday, 21-Nov-76 22:28:49 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Sun, 21 Nov 1976 22:28:49 GMT"},
      {"Sunday, 01-Jan-76 00:00:00 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Wed, 01 Jan 2076 00:00:00 GMT"},
      {"Sunday, 31-Dec-76 00:00:00 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Fri, 31 Dec 1976 00:00:00 GMT"},
      {"Sunday, 01-Jan-77 00:00:00 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Sat, 01 Jan 1977 00:00:00 GMT"},
      {"Sunday, 01-Jan-00 00:00:00 GMT", "Fri, 31 Dec 1999 23:59:59 GMT", "Sat, 01 Jan 2000 00:00:00 GMT"},
      {"Sunday, 31-Dec-99 00:00:00 GMT", "Mon, 01 Jan 2001 00:00:00 GMT", "Fri, 31 Dec 1999 00:00:00 GMT"},
      {"Tuesday, 29-Feb-00 00:00:00 GMT", "Sat, 21 Nov 2026 22:28:48 GMT", "Tue, 29 Feb 2000 00:00:00 GMT"},
  };
  for (const auto& c : cases) {
    const auto now = ParseHttpDate(c.now, 0);
    ASSERT_TRUE(now) << c.now;
    const auto date = ParseHttpDate(c.text, *now);
    ASSERT_TRUE(date) << c.text;
    EXPECT_EQ(HttpDateText(*date), c.read) << c.text << " at " << c.now;
  }
  EXPECT_FALSE(ParseHttpDate("Thursday, 29-Feb-00 00:00:00 GMT", 4'200'000'000)) << "2100 has no such day";
}

TEST(HttpDateTest, RefusesWhatIsNoDate) {
  const struct {
    std::string_view text;
    const char* why;
  } cases[] = {
      {"", "nothing"},
      {"S", "less than the name of a day"},
      {"Sun", "nothing but a day"},
      {"Sun,", "and no more"},
      {"0", "a number"},
      {"784111777", "seconds"},
      {"1994-11-06T08:49:37Z", "another standard's form"},
      {" Sun, 06 Nov 1994 08:49:37 GMT", "a blank in front"},
      {"Sun, 06 Nov 1994 08:49:37 GMT ", "a blank at the end"},
      {"Sun,  06 Nov 1994 08:49:37 GMT", "a blank too many"},
      {"Sun, 6 Nov 1994 08:49:37 GMT", "a digit too few"},
      {"Sun, 006 Nov 1994 08:49:37 GMT", "a digit too many"},
      {"Sun, 06 Nov 94 08:49:37 GMT", "a year of two digits in a form of four"},
      {"Sun, 06 Nov 01994 08:49:37 GMT", "a year of five"},
      {"Sun, 06 Nov 1994 8:49:37 GMT", "an hour of one digit"},
      {"Sun, 06 Nov 1994 08:49 GMT", "no seconds"},
      {"Sun, 06 Nov 1994 08:49:37", "no zone"},
      {"Sun, 06 Nov 1994 08:49:37 UTC", "another name of the zone"},
      {"Sun, 06 Nov 1994 08:49:37 +0000", "a zone of mail"},
      {"Sun, 06 Nov 1994 08:49:37 GMT; length=5", "what old clients put behind it"},
      {"Sun, 06 Nov 1994 08:49:37 GMT, Sun, 06 Nov 1994 08:49:37 GMT", "two dates"},
      {"sun, 06 nov 1994 08:49:37 gmt", "letters in another case (RFC 9110 section 5.6.7)"},
      {"Foo, 06 Nov 1994 08:49:37 GMT", "no day of the week"},
      {"Sun, 06 Foo 1994 08:49:37 GMT", "no month"},
      {"Sun, 00 Nov 1994 08:49:37 GMT", "no day"},
      {"Sun, 31 Nov 1994 08:49:37 GMT", "a day that November does not have"},
      {"Sun, 29 Feb 1900 08:49:37 GMT", "a leap day that 1900 did not have"},
      {"Sun, 29 Feb 2026 08:49:37 GMT", "a leap day in an ordinary year"},
      {"Sun, 30 Feb 2000 08:49:37 GMT", "a day that no February has"},
      {"Sun, 32 Jan 2000 08:49:37 GMT", "a day that no month has"},
      {"Sun, 06 Nov 1994 24:00:00 GMT", "hour 24"},
      {"Sun, 06 Nov 1994 08:60:37 GMT", "minute 60"},
      {"Sun, 06 Nov 1994 08:49:61 GMT", "second 61"},
      {"Sun, -6 Nov 1994 08:49:37 GMT", "a sign"},
      {"Sun, 06 Nov -994 08:49:37 GMT", "a sign of the year"},
      {"Sun, 06-Nov-94 08:49:37 GMT", "a short day in the form of RFC 850"},
      {"Sunday, 06 Nov 1994 08:49:37 GMT", "a long day in today's form"},
      {"Sunday, 06-Nov-1994 08:49:37 GMT", "four digits of the year in the form of RFC 850"},
      {"Someday, 06-Nov-94 08:49:37 GMT", "no long name of a day"},
      {"Sun Nov 6 08:49:37 1994", "asctime() pads the day"},
      {"Sun Nov   6 08:49:37 1994", "but not with two blanks"},
      {"Sun Nov  6 08:49:37 1994 GMT", "and names no zone"},
      {"Sun Nov  6 08:49:37 94", "and has four digits of the year"},
      {std::string_view("Sun, 06 Nov 1994 08:49:37 GMT\0", 30), "a NUL at the end"},
      {std::string_view("Sun, 06 Nov 1994 08:49:3\0 GMT", 29), "a NUL within"},
      {"\xFF\xFE\xFD\xFC\xFB\xFA", "no text at all"},
  };
  for (const auto& c : cases) EXPECT_FALSE(ParseHttpDate(c.text, kDateNow)) << c.text << ": " << c.why;
}

TEST(HttpDateTest, NoDateThatIsCutIsOne) {
  for (const std::string_view whole :
       {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
    ASSERT_TRUE(ParseHttpDate(whole, kDateNow));
    for (std::size_t length = 0; length < whole.size(); ++length) {
      EXPECT_FALSE(ParseHttpDate(whole.substr(0, length), kDateNow)) << whole.substr(0, length);
      EXPECT_FALSE(ParseHttpDate(whole.substr(length + 1), kDateNow)) << whole.substr(length + 1);
    }
  }
}

}  // namespace
}  // namespace TesselServer::Modern
