#include <gtest/gtest.h>

#include <string>

#include "control/answer/AccessLog.h"

namespace TesselServer {
namespace {

TEST(AccessLogTest, TimestampIsLocalTimeWithWholeHourZone) {
  struct {
    std::int64_t utc;
    std::int32_t bias;
    const char* stamp;
    const char* why;
  } const cases[] = {
      {1794763205, -60, "[15/11/2026:18:20:05 +0100]", "one hour east"},
      {1794766805, 0, "[15/11/2026:18:20:05 -0000]", "UTC has a minus"},
      {1794766805, 300, "[15/11/2026:13:20:05 -0500]", "five hours west"},
      {1794766805, -330, "[15/11/2026:23:50:05 +0600]", "half an hour east: exact time, zone rounded up"},
      {1794766805, 210, "[15/11/2026:14:50:05 -0300]", "half an hour west: exact time, zone rounded down"},
      {1794766805, -345, "[16/11/2026:00:05:05 +0600]", "a quarter of an hour, and the next day"},
      {1794766805, 720, "[15/11/2026:06:20:05 -1200]", "the far west"},
      {1794766805, -840, "[16/11/2026:08:20:05 +1400]", "the far east"},
      {1798761599, -60, "[01/01/2027:00:59:59 +0100]", "the next year"},
      {1798761600, 60, "[31/12/2026:23:00:00 -0100]", "the year before"},
      {951782399, 0, "[28/02/2000:23:59:59 -0000]", "before a leap day"},
      {951782400, 0, "[29/02/2000:00:00:00 -0000]", "a leap day"},
      {0, 0, "[01/01/1970:00:00:00 -0000]", "the first second"},
      {0, 60, "[31/12/1969:23:00:00 -0100]", "before it"},
  };
  for (const auto& c : cases) EXPECT_EQ(LogTimestamp(c.utc, c.bias), c.stamp) << c.why;
}

TEST(AccessLogTest, TimestampsJumpWithSummerTime) {
  // 29 March 2026, 01:00 UTC: 02:00 becomes 03:00. 25 October 2026, 01:00 UTC: 03:00 becomes 02:00.
  EXPECT_EQ(LogTimestamp(1774745999, -60), "[29/03/2026:01:59:59 +0100]");
  EXPECT_EQ(LogTimestamp(1774746000, -120), "[29/03/2026:03:00:00 +0200]");
  EXPECT_EQ(LogTimestamp(1792889999, -120), "[25/10/2026:02:59:59 +0200]");
  EXPECT_EQ(LogTimestamp(1792890000, -60), "[25/10/2026:02:00:00 +0100]");
}

TEST(AccessLogTest, LineHasItsFieldsInOrder) {
  EXPECT_EQ(AccessLogLine("10.0.0.7", "[15/11/2026:18:20:05 +0100]", "GET / HTTP/1.0", "200", 5120, "", "curl/7.88.1"),
            "10.0.0.7 - - [15/11/2026:18:20:05 +0100] \"GET / HTTP/1.0\" 200 5120 \"\" \"curl/7.88.1\"");
  EXPECT_EQ(AccessLogLine("127.0.0.1", "[01/01/1970:00:00:00 -0000]", "", "404", 0, "http://a/b", ""),
            "127.0.0.1 - - [01/01/1970:00:00:00 -0000] \"\" 404 0 \"http://a/b\" \"\"");
}

TEST(AccessLogTest, SizesGoBeyond32Bits) {
  EXPECT_EQ(AccessLogLine("a", "t", "r", "200", 5'000'000'000, "", ""), "a - - t \"r\" 200 5000000000 \"\" \"\"");
}

TEST(AccessLogTest, ClientsCannotForgeALine) {
  const std::string line = AccessLogLine("a", "t", "GET /\r\nx", "200", 1, std::string("r\0s", 3), "u\x1B[2J\x7F\t\n");
  EXPECT_EQ(line, R"(a - - t "GET /\x0D\x0Ax" 200 1 "r\x00s" "u\x1B[2J\x7F\x09\x0A")");
  EXPECT_EQ(AccessLogLine("a", "t", "GET \"/\"", "200", 1, "\\x0A", "\xC3\xA4"),
            "a - - t \"GET \"/\"\" 200 1 \"\\\\x0A\" \"\xC3\xA4\"")
      << "quotes and other characters stay, and what a client writes like a code is told from one";
}

TEST(AccessLogTest, LongFieldsAreCutForTheLine) {
  const std::string most(kMaxLoggedBytes, 'm');
  EXPECT_EQ(AccessLogLine("a", "t", most + "x", "200", 1, most + "y", most + "z"),
            "a - - t \"" + most + "\" 200 1 \"" + most + "\" \"" + most + "\"");
  EXPECT_EQ(AccessLogLine("a", "t", std::string(kMaxLoggedBytes + 1, '\n'), "200", 1, "", "").size(),
            std::string("a - - t \"\" 200 1 \"\" \"\"").size() + 4 * kMaxLoggedBytes);
}

}  // namespace
}  // namespace TesselServer
