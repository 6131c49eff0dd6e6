#include <gtest/gtest.h>

#include <string>

#include "http/modern/Authority.h"

namespace TesselServer::Modern {
namespace {

TEST(ModernAuthorityTest, IsAHostWithOrWithoutAPort) {
  const struct {
    std::string_view text;
    bool isValid;
    const char* why;
  } cases[] = {
      {"example.com", true, "a name"},
      {"example.com:8080", true, "with a port"},
      {"example.com:", true, "with an empty port (RFC 3986 3.2.3)"},
      {"127.0.0.1:80", true, "an address"},
      {"a_b-c~d!$&'()*+;=", true, "bytes that names may have"},
      {"caf%C3%A9.example", true, "a percent code"},
      {"a:65535", true, "the last port"},
      {"a:00080", true, "zeros before a port"},
      {"a:65536", false, "no port"},
      {"a:99999999999", false, "a number that overflows"},
      {"a:-1", false, "a sign"},
      {"a:8 0", false, "a blank"},
      {"a:b", false, "a letter"},
      {"a::80", false, "two colons"},
      {"", false, "no host"},
      {":80", false, "a port alone"},
      {":", false, "a colon alone"},
      {"a@b", false, "a user"},
      {"a,b", false, "two hosts"},
      {"a/b", false, "a path"},
      {"a%4", false, "a percent code that is none"},
      {"a%zz", false, "nor this one"},
      {"a\"b", false, "a quote"},
      {"\xC3\xA9", false, "bytes of UTF-8"},
      {std::string_view("a\0b", 3), false, "NUL"},
      {"[::1]", true, "an address of IPv6"},
      {"[::]:80", true, "all zeros, with a port"},
      {"[2001:db8::1]", true, "a gap within"},
      {"[1:2:3:4:5:6:7:8]", true, "all groups"},
      {"[1:2:3:4:5:6:7::]", true, "a gap at the end"},
      {"[::ffff:127.0.0.1]", true, "with one of IPv4"},
      {"[1:2:3:4:5:6:127.0.0.1]", true, "without a gap"},
      {"[FFFF:abcd::]", true, "letters in either case"},
      {"[1:2:3:4:5:6:7:8:9]", false, "too many groups"},
      {"[1:2:3:4:5:6:7]", false, "too few"},
      {"[1:2:3:4::5:6:7:8]", false, "a gap of nothing"},
      {"[::1::]", false, "two gaps"},
      {"[:::]", false, "a gap of three colons"},
      {"[1:]", false, "a colon at the end"},
      {"[1:2:3:4:5:6:7:8:]", false, "a colon behind all groups"},
      {"[12345::]", false, "a group that is too long"},
      {"[g::]", false, "no digit"},
      {"[::127.0.0.256]", false, "not of IPv4"},
      {"[127.0.0.1::]", false, "one of IPv4 in front"},
      {"[::1.2.3]", false, "three parts of it"},
      {"[::01.2.3.4]", false, "a zero in front, which some read as octal"},
      {"[]", false, "nothing"},
      {"[::1", false, "no bracket at the end"},
      {"::1", false, "no brackets"},
      {"[::1]x", false, "something behind"},
      {"[::1]80", false, "a port without its colon"},
      {"[fe80::1%25eth0]", false, "a zone, which means nothing to another machine"},
      {"[v1.a]", false, "an address of a version that does not exist"},
      {"a[::1]", false, "something in front"},
  };
  for (const auto& c : cases) EXPECT_EQ(IsAuthority(c.text), c.isValid) << c.text << ": " << c.why;
}

TEST(ModernAuthorityTest, TheTargetOfATunnelHasAPort) {
  const struct {
    const char* text;
    bool isValid;
    const char* why;
  } cases[] = {
      {"a:80", true, "a name"},
      {"[::1]:80", true, "an address"},
      {"a", false, "no port"},
      {"a:", false, "an empty port"},
      {"[::1]", false, "colons, no port"},
      {"[::1", false, "no bracket"},
      {":80", false, "no host"},
      {"", false, "nothing"},
      {"a:b:80", false, "two ports"},
      {"a:0:", false, "a colon more"},
      {"a:b0", false, "a letter"},
  };
  for (const auto& c : cases) EXPECT_EQ(IsAuthorityWithPort(c.text), c.isValid) << c.text << ": " << c.why;
}

}  // namespace
}  // namespace TesselServer::Modern
