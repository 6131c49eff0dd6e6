#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <random>
#include <string>

#include "control/connection/HeaderFields.h"
#include "files/cls_Base64.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

using namespace std::string_view_literals;

RequestFields Read(std::string_view text) {
  RequestFields fields;
  ReadHeaderFields(text, text.find("\r\n\r\n"), fields);
  return fields;
}

std::string AcceptValues(std::string_view text) { return Read(text).RequestAccept; }

std::optional<std::int64_t> AnnouncedLength(std::string_view text) {
  RequestFields fields;
  return ReadHeaderFields(text, text.find("\r\n\r\n"), fields);
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

// ---- The one pass finds what a search of its own for each name finds.

// The value behind the first `name` in `text`, both searched letter by letter.
std::string_view ValueBehind(std::string_view text, std::size_t at, std::size_t nameSize) {
  if (at == std::string_view::npos) return {};
  const auto value = Trim(text.substr(at + nameSize, text.find("\r\n", at + nameSize) - (at + nameSize)));
  return value.find('\0') == std::string_view::npos ? value : std::string_view();
}

std::string_view AnyCase(std::string_view text, std::string_view name) {
  return ValueBehind(text, FindNoCase(text, name), name.size());
}

std::string_view ExactCase(std::string_view text, std::string_view name) {
  return ValueBehind(text, text.find(name), name.size());
}

std::string SoughtAccepts(std::string_view text) {
  std::string values;
  for (auto at = FindNoCase(text, "accept:"); at != std::string_view::npos;
       at = FindNoCase(text, "accept:", at + values.size())) {
    values += Trim(text.substr(at + 7, text.find("\r\n", at + 7) - (at + 7)));
    values += ", ";
  }
  if (values.find('\0') != std::string::npos) return {};
  std::string_view result = Trim(values);
  if (result.ends_with(',')) result.remove_suffix(1);
  return std::string(result);
}

void ExpectAsSought(const std::string& text) {
  const auto fields = Read(text);
  const auto block = std::string_view(text).substr(0, text.find("\r\n\r\n"));
  ASSERT_EQ(fields.RequestReferer, AnyCase(text, "referer:")) << testing::PrintToString(text);
  ASSERT_EQ(fields.RequestUserAgent, ExactCase(text, "User-Agent:")) << testing::PrintToString(text);
  ASSERT_EQ(fields.RequestContentType, AnyCase(block, "\r\nContent-Type:")) << testing::PrintToString(text);
  ASSERT_EQ(fields.RequestAccept, SoughtAccepts(text)) << testing::PrintToString(text);
  ASSERT_EQ(AnnouncedLength(text), LeadingNumber(AnyCase(text, "Content-Length:"))) << testing::PrintToString(text);
  const auto field = text.find("Authorization:");
  const auto scheme = field == std::string::npos ? field : text.find("Basic", field);
  const std::string token(ValueBehind(text, scheme, 5));
  const std::string pair = cls_Base64().DecodeStr(token);
  const bool isUsed = token.size() <= kMaxCredentialBytes && pair.find(':') != std::string::npos &&
                      pair.find('\0') == std::string::npos;
  ASSERT_EQ(fields.AuthUser, isUsed ? Trim(std::string_view(pair).substr(0, pair.find(':'))) : "")
      << testing::PrintToString(text);
}

TEST(HeaderFieldsTest, OnePassFindsWhatASearchForEachNameFinds) {
  constexpr std::string_view kParts[] = {
      "accept:",
      "Accept:",
      "ACCEPT:",
      "accept",
      "User-Agent:",
      "user-agent:",
      "User-Agent",
      "Referer:",
      "rEFERER:",
      "referer",
      ":",
      "::",
      "Content-Type:",
      "content-type:",
      "Content-Length:",
      "content-LENGTH:",
      "\r\n",
      "\r\n",
      "\r\n\r\n",
      "\r",
      "\n",
      " ",
      "  ",
      "7",
      "12abc",
      "Basic",
      "Authorization:",
      "authorization:",
      "dXNlcjpwYXNz",
      "t:",
      "r",
      "e",
      "n:",
      "x",
      "text/html",
      "h:",
      ", ",
      ",",
      "X-",
      "\0"sv,
      "\xC3\xA4",
  };
  std::minstd_rand random(20261115);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (auto left = random() % 24; left > 0; --left) text += kParts[random() % std::size(kParts)];
    ExpectAsSought(std::string(Trim(text)));
    if (HasFatalFailure()) return;
  }
}

TEST(HeaderFieldsTest, OnePassFindsTheFieldsOfRealClients) {
  const std::string browser =
      "GET /a.html HTTP/1.1\r\nHost: 127.0.0.1:8080\r\nUser-Agent: Mozilla/5.0 (X11; Linux x86_64; rv:120.0)\r\n"
      "Accept: text/html,application/xhtml+xml;q=0.9,*/*;q=0.8\r\nAccept-Language: en-US,en;q=0.5\r\n"
      "Accept-Encoding: gzip, deflate\r\nReferer: http://127.0.0.1:8080/\r\nConnection: keep-alive\r\n"
      "Authorization: Basic dXNlcjpwYXNz\r\nContent-Type: a/b\r\nContent-Length: 12\r\n\r\naccept: body";
  for (std::size_t size = 0; size <= browser.size(); ++size) ExpectAsSought(std::string(Trim(browser.substr(0, size))));
}

}  // namespace
}  // namespace TesselServer
