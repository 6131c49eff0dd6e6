#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "control/internal/HeaderFields.h"
#include "files/cls_Base64.h"

namespace TesselServer {
namespace {

using namespace std::string_view_literals;

RequestFields Read(std::string_view text) {
  RequestFields fields;
  ReadHeaderFields(text, fields);
  return fields;
}

TEST(HeaderFieldsTest, HeaderBlockIsEveryLineWithItsEnd) {
  struct {
    std::string_view text, block;
  } const cases[] = {
      {"GET / HTTP/1.0\r\nUser-Agent: x\r\n\r\n", "GET / HTTP/1.0\r\nUser-Agent: x\r\n"},
      {"POST / HTTP/1.0\r\nA: b\r\n\r\nbody\r\n\r\nmore", "POST / HTTP/1.0\r\nA: b\r\n"},
      {"GET / HTTP/1.0\r\n\r\n", "GET / HTTP/1.0\r\n"},
      {"GET / HTTP/1.0\r\nUser-Agent: x\r\n", ""},
      {"GET / HTTP/1.0\n\n", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(Read(c.text).RequestHeader, c.block) << c.text;
}

TEST(HeaderFieldsTest, AcceptValuesAreJoined) {
  struct {
    std::string_view text, values;
    const char* why;
  } const cases[] = {
      {"", "", "nothing"},
      {"GET / HTTP/1.0\r\nHost: a\r\n\r\n", "", "no field"},
      {"Accept: text/html\r\n\r\n", "text/html", "one"},
      {"Accept: a\r\nAccept: b\r\n\r\n", "a, b", "two, no trailing comma"},
      {"Accept: a\r\nAccept: b\r\nAccept: c\r\n\r\n", "a, b, c", "three short ones"},
      {"ACCEPT:a\r\naccept:   b   \r\n", "a, b", "any case, blanks go"},
      {"Accept: a", "a", "ended by the end of the text"},
      {"Accept:", "", "no value"},
      {"Accept: a,\r\n", "a,", "one comma goes, the value's own stays"},
      {"Accept: a\r\nAccept:\r\n", "a, ", "one comma goes, the empty value leaves its own"},
      {"Accept:\r\nAccept: b\r\n", ", b", "an empty value counts"},
      {"X-Accept: a\r\n", "a", "any name that ends in accept"},
      {"Accept-Language: de\r\nAccept-Encoding: gzip\r\n", "", "other names"},
      {"GET /accept:x HTTP/1.0\r\nAccept: a\r\n", "x HTTP/1.0, a", "the request line is text like any other"},
      {"Accept: a\nAccept: b\r\n", "a\nAccept: b", "a bare LF ends no value: the second is inside the first ..."},
      {"Accept: a\n            Accept: b\r\n", "a\n            Accept: b", "... however far it stands"},
      {"Accept: a\0b\r\n"sv, "", "a NUL drops the value"},
  };
  for (const auto& c : cases) EXPECT_EQ(AcceptValues(c.text), c.values) << c.why;
}

TEST(HeaderFieldsTest, TheNextAcceptIsSoughtByTheLengthCollected) {
  // One field is 8 bytes, its value and its line end. The step from a field is the length of all collected so far, each
  // value with its ", ", so the third field is passed over when the first two values are long beside the second.
  struct {
    std::string_view text, values;
    const char* why;
  } const cases[] = {
      {"Accept: text/plain\r\nAccept: a/b\r\nAccept: c/d\r\n", "text/plain, a/b",
       "17 from the second, the third is at 13"},
      {"Accept: 123456\r\nAccept: abc\r\nAccept: def\r\n", "123456, abc, def", "13, the third is at 13: just found"},
      {"Accept: 1234567\r\nAccept: abc\r\nAccept: def\r\n", "1234567, abc", "14, the third is at 13: just missed"},
      {"Accept: 1234567\r\nAccept: abc\r\nAccept: def\r\nAccept: ghi\r\n", "1234567, abc, ghi", "the fourth is found"},
      {"Accept: accept: x\r\n", "accept: x", "11 from the outer one, the inner is at 8"},
      {"Accept:            accept: x\r\n", "accept: x, x", "11 from the outer one, the inner is at 19"},
  };
  for (const auto& c : cases) EXPECT_EQ(AcceptValues(c.text), c.values) << c.why;
}

TEST(HeaderFieldsTest, SimpleValues) {
  struct {
    std::string_view text, referer, agent;
    const char* why;
  } const cases[] = {
      {"Referer: http://a/b\r\nUser-Agent: x y/1\r\n\r\n", "http://a/b", "x y/1", "both"},
      {"REFERER:r\r\nUser-Agent:u", "r", "u", "no blank, no end"},
      {"referer: r\r\nuser-agent: u\r\n", "r", "", "User-Agent only in that spelling"},
      {"USER-AGENT: a\r\nUser-Agent: u\r\n", "", "u", "another spelling is passed over"},
      {"X-Referer: r\r\nX-User-Agent: u\r\n", "r", "u", "found within other names"},
      {"Referer: 1\r\nReferer: 2\r\nUser-Agent: 1\r\nUser-Agent: 2\r\n", "1", "1", "the first counts"},
      {"Referer: a\nb\r\nUser-Agent: c\rd\r\n", "a\nb", "c\rd", "only CR LF ends a value"},
      {"Referer: \t a \t \r\n", "\t a \t", "", "blanks go, tabs stay"},
      {"Referer: a\0b\r\nUser-Agent: c\0\r\n"sv, "", "", "a NUL drops the value"},
      {"Referer:\r\nUser-Agent:\r\n", "", "", "empty"},
  };
  for (const auto& c : cases) {
    const auto fields = Read(c.text);
    EXPECT_EQ(fields.RequestReferer, c.referer) << c.why;
    EXPECT_EQ(fields.RequestUserAgent, c.agent) << c.why;
  }
}

TEST(HeaderFieldsTest, ContentTypeBeginsALineOfTheHeaderBlock) {
  struct {
    std::string_view text, type;
  } const cases[] = {
      {"POST / HTTP/1.0\r\nContent-Type: text/plain; a=b \r\n\r\n", "text/plain; a=b"},
      {"POST / HTTP/1.0\r\nCONTENT-type:x\r\n\r\n", "x"},
      {"POST / HTTP/1.0\r\nContent-Type: x", "x"},
      {"POST / HTTP/1.0\r\nX-Content-Type: x\r\n\r\n", ""},
      {"POST / HTTP/1.0\r\nX-Content-Type: x\r\nContent-Type: y\r\n\r\n", "y"},
      {"POST / HTTP/1.0\r\nA: b\r\n\r\nform\r\nContent-Type: x\r\n", ""},
      {"POST / HTTP/1.0\r\nContent-Type: a\0b\r\n\r\n"sv, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(Read(c.text).RequestContentType, c.type) << c.text;
}

TEST(HeaderFieldsTest, Credentials) {
  struct {
    std::string_view text, user, password;
    const char* why;
  } const cases[] = {
      {"Authorization: Basic dXNlcjpwYXNz\r\n\r\n", "user", "pass", "user:pass"},
      {"Authorization:Basic   dXNlcjpwYXNz   \r\n", "user", "pass", "blanks go"},
      {"Authorization: Basic dXNlcjpwYXNz", "user", "pass", "ended by the end of the text"},
      {"Proxy-Authorization: Basic dXNlcjpwYXNz\r\n", "user", "pass", "found within another name"},
      {"Authorization: Digest x\r\nX: Basic dXNlcjpwYXNz\r\n", "user", "pass", "the scheme is sought to the end"},
      {"authorization: Basic dXNlcjpwYXNz\r\n", "", "", "a name in lower case is ignored"},
      {"AUTHORIZATION: Basic dXNlcjpwYXNz\r\n", "", "", "and in upper case"},
      {"Authorization: basic dXNlcjpwYXNz\r\n", "", "", "and so is another spelling of the scheme"},
      {"Basic dXNlcjpwYXNz\r\nAuthorization: x\r\n", "", "", "the scheme stands behind the name"},
      {"Authorization: Basic\r\n", "", "", "no token"},
      {"Authorization: Basic bm9jb2xvbg==\r\n", "", "", "nocolon: neither"},
      {"Authorization: Basic IGEgOiBiOmMg\r\n", "a", "b:c", "' a : b:c ': the first colon, trimmed"},
      {"Authorization: Basic OnB3\r\n", "", "pw", "':pw'"},
      {"Authorization: Basic dToA\r\n", "", "", "'u:' and a NUL: none"},
      {"Authorization: Basic dXNlc\0jpwYXNz\r\n"sv, "", "", "a NUL in the token: none"},
  };
  for (const auto& c : cases) {
    const auto fields = Read(c.text);
    EXPECT_EQ(fields.AuthUser, c.user) << c.why;
    EXPECT_EQ(fields.AuthPassword, c.password) << c.why;
  }
}

TEST(HeaderFieldsTest, LongCredentialsAreNotDecoded) {
  const std::string longest = "dXNl" + std::string(kMaxCredentialBytes - 8, 'Y') + "OnB3";  // "use...:pw"
  ASSERT_EQ(longest.size(), kMaxCredentialBytes);
  EXPECT_EQ(Read("Authorization: Basic " + longest + "\r\n").AuthPassword, "pw");
  EXPECT_EQ(Read("Authorization: Basic " + longest + "A\r\n").AuthPassword, "");
}

TEST(HeaderFieldsTest, AnnouncedLength) {
  constexpr std::int64_t kNone = -1;
  struct {
    std::string_view text;
    std::int64_t length;
    const char* why;
  } const cases[] = {
      {"Content-Length: 20\r\n", 20, "plain"},
      {"CONTENT-LENGTH:20", 20, "any case, no blank, no end"},
      {"Content-Length:    20   \r\n", 20, "blanks"},
      {"Content-Length: \t20\r\n", 20, "a tab"},
      {"Content-Length: 0\r\n", 0, "zero"},
      {"Content-Length:00\r\n", 0, "zeros"},
      {"Content-Length: 12abc\r\n", 12, "digits count up to the first other character"},
      {"Content-Length: 1 2\r\n", 1, "a blank among them too"},
      {"Content-Length: 1e9\r\n", 1, "no exponents"},
      {"Content-Length: 007\r\n", 7, "leading zeros"},
      {"Content-Length: 5\r\nContent-Length: 6\r\n", 5, "the first counts"},
      {"X-Content-Length: 5\r\n", 5, "found within another name"},
      {"Content-Length: 99999999999999999999999999\r\n", std::numeric_limits<std::int64_t>::max(), "huge"},
      {"Content-Length: \r\n", kNone, "empty"},
      {"Content-Length:", kNone, "empty at the end"},
      {"Content-Length: abc\r\n", kNone, "no digit"},
      {"Content-Length: -5\r\n", kNone, "negative"},
      {"Content-Length: +5\r\n", kNone, "a sign"},
      {"Content-Length: &H10\r\n", kNone, "hexadecimal"},
      {"Content-Length:\r\n5\r\n", kNone, "the next line is not looked at"},
      {"Content-Length: 5\0\r\n"sv, kNone, "a NUL drops the value"},
      {"Content-Type: 5\r\n", kNone, "no field"},
      {"", kNone, "nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(AnnouncedLength(c.text).value_or(kNone), c.length) << c.why;
}

}  // namespace
}  // namespace TesselServer
