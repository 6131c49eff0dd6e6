#include <gtest/gtest.h>

#include <string>

#include "host/StatusJson.h"

namespace TesselServer {
namespace {

constexpr const char* kNulls = R"({
  "version": "",
  "requests": null,
  "errors": null,
  "kilobytesReceived": null,
  "kilobytesSent": null,
  "upTime": "",
  "upTimeSeconds": null,
  "freeConnections": null,
  "maxConnections": null
}
)";

TEST(StatusJsonTest, TellsEachStatisticByNameAndAsNumberWhereItIsOne) {
  const Status status{"1.1.000", "12", "3", "4K", "1234K", "01:02:03:04", "998/1000"};
  EXPECT_EQ(StatusJson(status), R"({
  "version": "1.1.000",
  "requests": 12,
  "errors": 3,
  "kilobytesReceived": 4,
  "kilobytesSent": 1234,
  "upTime": "01:02:03:04",
  "upTimeSeconds": 93784,
  "freeConnections": 998,
  "maxConnections": 1000
}
)");
}

TEST(StatusJsonTest, ATextOfAnotherFormIsNull) {
  EXPECT_EQ(StatusJson({}), kNulls);
  EXPECT_EQ(StatusJson({"", "many", "1,2", "4", "K", "", "9/"}), kNulls);
  EXPECT_EQ(StatusJson({"", "1 ", "\"", "4K ", "4M", "", "1/2/3"}), kNulls);
  EXPECT_EQ(StatusJson({"", "99999999999999999999", "0x1", "1,2K", "1.5K", "", "/9"}), kNulls);
}

TEST(StatusJsonTest, AControlThatNeverRanHasStatisticsToo) {
  EventLoop loop;
  const Tessel tessel(loop);
  const auto status = StatusOf(tessel);
  EXPECT_EQ(status.version, "1.1.000");
  EXPECT_EQ(status.requests, "0");
  EXPECT_EQ(status.errors, "0");
  EXPECT_EQ(status.bytesReceived, "0K");
  EXPECT_EQ(status.bytesSent, "0K");
  EXPECT_EQ(status.upTime, "");
  EXPECT_EQ(status.freeConnections, tessel.Stats_FreeConnections());
}

TEST(JsonStringTest, EscapesWhatJsonDoesNotAllow) {
  struct {
    std::string given, json;
  } const cases[] = {
      {"", R"("")"},
      {"plain /text", R"("plain /text")"},
      {R"(a"b\c)", R"("a\"b\\c")"},
      {"\n\t\x1f\x7f", R"("\u000a\u0009\u001f\u007f")"},
      {std::string("\0", 1), R"("\u0000")"},
      {"\xFC\x80", R"("\u00fc\u0080")"},
  };
  for (const auto& c : cases) EXPECT_EQ(JsonString(c.given), c.json);
}

}  // namespace
}  // namespace TesselServer
