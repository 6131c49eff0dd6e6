#include <gtest/gtest.h>

#include <string>

#include "control/connection/RequestLine.h"

namespace TesselServer {
namespace {

using namespace std::string_view_literals;

TEST(RequestLineTest, NamesTheResource) {
  struct {
    std::string_view text, uri, path, query;
    const char* why;
  } const cases[] = {
      {"GET / HTTP/1.0\r\n", "/", "/", "", "the root stays what it is"},
      {"GET /index.html HTTP/1.0\r\n", "/index.html", "index.html", "", "the leading slash goes"},
      {"GET /docs/a%20b.htm HTTP/1.0", "/docs/a%20b.htm", "docs/a%20b.htm", "", "nothing is decoded"},
      {"GET //x HTTP/1.0", "//x", "/x", "", "one slash goes, no more"},
      {"GET // HTTP/1.0", "//", "/", "", "one slash goes"},
      {"GET page.htm HTTP/1.0", "page.htm", "page.htm", "", "a path without a slash is taken whole"},
      {"GET * HTTP/1.0", "*", "*", "", "so is a star"},
      {"GET /a?x=1&y=2 HTTP/1.0", "/a", "a", "x=1&y=2", "a query"},
      {"GET /a?x=1?y=2 HTTP/1.0", "/a", "a", "x=1?y=2", "only the first ? begins it"},
      {"GET /a?u=/b/c HTTP/1.0", "/a", "a", "u=/b/c", "a slash in the query"},
      {"GET /a? HTTP/1.0", "/a", "a", "", "an empty query"},
      {"GET /?x=1 HTTP/1.0", "/", "/", "x=1", "a query of the root"},
      {"GET ?x=1 HTTP/1.0", "/", "/", "x=1", "only a query"},
      {"GET  HTTP/1.0", "", "", "", "two blanks: no URL"},
      {"GET", "", "", "", "no blank: no URL"},
      {"GET\r\nfoo /bar", "", "", "", "the URL is in the first line or nowhere"},
      {"", "", "", "", "nothing"},
      {"get /a HTTP/1.0", "/a", "a", "", "any method"},
      {"POST /form HTTP/1.0\r\nContent-Length: 3\r\n", "/form", "form", "", "any method, any length"},
      {"PROPFIND /a/ HTTP/1.1", "/a/", "a/", "", "any method"},
      {"GET /a\r\n", "/a", "a", "", "ended by CR LF"},
      {"GET /a\nHost: b", "/a", "a", "", "ended by LF"},
      {"GET /a\rHost: b", "/a", "a", "", "ended by CR"},
      {"GET /a", "/a", "a", "", "ended by the end"},
      {"GET /a b/c HTTP/1.0", "/a", "a", "", "the URL ends at its first blank"},
      {"GET /\x01\xFF\tx HTTP/1.0", "/\x01\xFF\tx", "\x01\xFF\tx", "", "bytes are bytes"},
      {"GET /a\0b HTTP/1.0"sv, "/a\0b"sv, "a\0b"sv, "", "a NUL is no end"},
      {"GET /../../etc/passwd HTTP/1.0", "/../../etc/passwd", "../../etc/passwd", "", "dots are not looked at here"},
  };
  for (const auto& c : cases) {
    RequestFields fields;
    ReadRequestLine(c.text, fields);
    EXPECT_EQ(fields.DocumentURI, c.uri) << c.why;
    EXPECT_EQ(fields.RequestPath, c.path) << c.why;
    EXPECT_EQ(fields.RequestQuery, c.query) << c.why;
  }
}

TEST(RequestLineTest, TakesAbsoluteUrlsAsTheirPath) {
  struct {
    std::string_view url, uri, path, query;
  } const cases[] = {
      {"http://host/a/b.htm", "/a/b.htm", "a/b.htm", ""},
      {"https://host/a", "/a", "a", ""},
      {"HTTP://HOST/A", "/A", "A", ""},
      {"hTTpS://host:8080/a?x=1", "/a", "a", "x=1"},
      {"http://host", "/", "/", ""},
      {"http://host/", "/", "/", ""},
      {"http://host?x=1", "/", "/", "x=1"},
      {"http://host?x=/y", "/", "/", "x=/y"},
      {"http://", "/", "/", ""},
      {"http:///a", "/a", "a", ""},
      {"http:/a", "http:/a", "http:/a", ""},
      {"ftp://host/a", "ftp://host/a", "ftp://host/a", ""},
      {"/http://host/a", "/http://host/a", "http://host/a", ""},
  };
  for (const auto& c : cases) {
    RequestFields fields;
    ReadRequestLine("GET " + std::string(c.url) + " HTTP/1.0\r\n", fields);
    EXPECT_EQ(fields.DocumentURI, c.uri) << c.url;
    EXPECT_EQ(fields.RequestPath, c.path) << c.url;
    EXPECT_EQ(fields.RequestQuery, c.query) << c.url;
  }
}

TEST(RequestLineTest, KeepsTheLineAsReceived) {
  struct {
    std::string_view text, line;
  } const cases[] = {
      {"GET /a?b HTTP/1.0\r\nHost: c\r\n\r\n", "GET /a?b HTTP/1.0"},
      {"GET /a HTTP/1.0 \r\n", "GET /a HTTP/1.0 "},
      {"GET /a HTTP/1.0\nHost: c", "GET /a HTTP/1.0"},
      {"GET /a HTTP/1.0\rHost: c", "GET /a HTTP/1.0"},
      {"GET \"quoted\"\t\x1B HTTP/1.0", "GET \"quoted\"\t\x1B HTTP/1.0"},
      {"\r\nGET / HTTP/1.0", ""},
  };
  for (const auto& c : cases) {
    RequestFields fields;
    ReadRequestLine(c.text, fields);
    EXPECT_EQ(fields.RequestLine, c.line);
  }
}

}  // namespace
}  // namespace TesselServer
