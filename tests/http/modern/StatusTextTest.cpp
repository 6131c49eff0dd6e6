#include <gtest/gtest.h>

#include <limits>

#include "http/modern/StatusText.h"

namespace TesselServer::Modern {
namespace {

TEST(StatusTextTest, KnowsThePhrasesOfTheRfcs) {
  const struct {
    int code;
    const char* phrase;
  } cases[] = {
      // RFC 9110 section 15
      {100, "Continue"},
      {101, "Switching Protocols"},
      {200, "OK"},
      {201, "Created"},
      {202, "Accepted"},
      {203, "Non-Authoritative Information"},
      {204, "No Content"},
      {205, "Reset Content"},
      {206, "Partial Content"},
      {300, "Multiple Choices"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {303, "See Other"},
      {304, "Not Modified"},
      {305, "Use Proxy"},
      {307, "Temporary Redirect"},
      {308, "Permanent Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {402, "Payment Required"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {406, "Not Acceptable"},
      {407, "Proxy Authentication Required"},
      {408, "Request Timeout"},
      {409, "Conflict"},
      {410, "Gone"},
      {411, "Length Required"},
      {412, "Precondition Failed"},
      {413, "Content Too Large"},
      {414, "URI Too Long"},
      {415, "Unsupported Media Type"},
      {416, "Range Not Satisfiable"},
      {417, "Expectation Failed"},
      {421, "Misdirected Request"},
      {422, "Unprocessable Content"},
      {426, "Upgrade Required"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
      {505, "HTTP Version Not Supported"},
      // RFC 6585 and 7725
      {428, "Precondition Required"},
      {429, "Too Many Requests"},
      {431, "Request Header Fields Too Large"},
      {511, "Network Authentication Required"},
      {451, "Unavailable For Legal Reasons"},
      // RFC 2518, 8297, 4918, 5842, 3229, 8470, 2295: what programs answer
      {102, "Processing"},
      {103, "Early Hints"},
      {207, "Multi-Status"},
      {208, "Already Reported"},
      {226, "IM Used"},
      {423, "Locked"},
      {424, "Failed Dependency"},
      {425, "Too Early"},
      {506, "Variant Also Negotiates"},
      {507, "Insufficient Storage"},
      {508, "Loop Detected"},
  };
  for (const auto& c : cases) EXPECT_EQ(StatusText(c.code), c.phrase) << c.code;
}

TEST(StatusTextTest, OthersGoByTheirClass) {
  const struct {
    int code;
    const char* phrase;
  } cases[] = {
      {199, "Continue"},
      {299, "OK"},
      {306, "Multiple Choices"},
      {399, "Multiple Choices"},
      {418, "Bad Request"},
      {499, "Bad Request"},
      {599, "Internal Server Error"},
      {600, "Internal Server Error"},
      {999, "Internal Server Error"},
      {99, "Internal Server Error"},
      {0, "Internal Server Error"},
      {-200, "Internal Server Error"},
      {std::numeric_limits<int>::max(), "Internal Server Error"},
      {std::numeric_limits<int>::min(), "Internal Server Error"},
  };
  for (const auto& c : cases) EXPECT_EQ(StatusText(c.code), c.phrase) << c.code;
}

TEST(StatusTextTest, FewCodesNeverHaveABody) {
  for (int code = 100; code < 600; ++code) {
    EXPECT_EQ(NeverHasBody(code), code < 200 || code == 204 || code == 205 || code == 304) << code;
    EXPECT_FALSE(StatusText(code).empty()) << code;
  }
}

}  // namespace
}  // namespace TesselServer::Modern
