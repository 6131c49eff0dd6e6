#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "http/CGIOutput.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;

void ExpectAllBody(const std::string& output, std::string_view why) {
  const CGIOutput parsed = ParseCGIOutput(output);
  EXPECT_FALSE(parsed.isWholeResponse) << why;
  EXPECT_EQ(parsed.wholeHead, "") << why;
  EXPECT_EQ(parsed.statusCode, "") << why;
  EXPECT_EQ(parsed.contentType, "text/html") << why;
  EXPECT_EQ(parsed.extraHeaders, "") << why;
  EXPECT_EQ(parsed.body, output) << why;
}

TEST(CGIOutputTest, AHeaderIsTakenOffTheBody) {
  const struct {
    std::string_view header;
    const char *code, *type, *extra, *why;
  } cases[] = {
      {"Content-Type: text/plain", "", "text/plain", "", "the type alone"},
      {"Status: 404 Not Found", "404", "text/html", "", "the status alone"},
      {"Location: /there", "302", "text/html", "Location: /there\n", "the location alone"},
      {"Content-Type: text/plain\nStatus: 404 Not Found", "404", "text/plain", "", "type and status"},
      {"Location: /there\nContent-Type: a/b", "302", "a/b", "Location: /there\n", "type and location"},
      {"Status: 301 Moved\nLocation: /there", "301", "text/html", "Location: /there\n", "status, then location"},
      {"Location: /there\nStatus: 301 Moved", "301", "text/html", "Location: /there\n", "location, then status"},
      {"Location: http://other:81/a?b=c", "302", "text/html", "Location: http://other:81/a?b=c\n", "whole address"},
      {"CONTENT-type: text/plain\nsTATUS: 500\nLOCATION: /x", "500", "text/plain", "LOCATION: /x\n", "any case"},
      {"Content-Type: text/html; charset=utf-8", "", "text/html; charset=utf-8", "", "type with a parameter"},
      {"Content-Type:text/plain", "", "text/plain", "", "no blank behind the colon"},
      {"Content-Type: \t text/plain \t", "", "text/plain", "", "blanks and tabs around the value"},
      {"Content-Type:", "", "text/html", "", "no type"},
      {"Content-Type:   ", "", "text/html", "", "blank type"},
      {"Content-Type: a/b\nContent-Type: c/d", "", "c/d", "", "the last type holds"},
      {"Status: 404\nStatus: 500", "500", "text/html", "", "the last status holds"},
      {"Status:500", "500", "text/html", "", "no blank, no phrase"},
      {"Status:\t503\tBusy", "503", "text/html", "", "tabs"},
      {"Status: 299", "299", "text/html", "", "a code without a phrase of its own"},
      {"X-One: 1\nContent-Type: a/b\nSet-Cookie: c=d; Path=/", "", "a/b", "X-One: 1\nSet-Cookie: c=d; Path=/\n",
       "others are passed on in order"},
      {"Content-Type: a/b\nX-Empty:\nX-Colons: a:b::c", "", "a/b", "X-Empty: \nX-Colons: a:b::c\n", "odd values"},
      {"Content-Type: a/b\nX-Bytes: \x80\xFF", "", "a/b", "X-Bytes: \x80\xFF\n", "high bytes"},
      {"Content-Type: a/b\nX-Tab: a\tb", "", "a/b", "X-Tab: a\tb\n", "a tab inside a value"},
      {"Content-Type: a/b\n!#$%&'*+-.^_`|~9: x", "", "a/b", "!#$%&'*+-.^_`|~9: x\n", "every byte that names may have"},
  };
  for (const auto& c : cases) {
    const std::string lines = std::string(c.header) + "\n\n";
    const std::string mixed = ReplaceAll(c.header, "\n", "\r\n") + "\n\r\n";
    for (const std::string& header : {lines, ReplaceAll(lines, "\n", "\r\n"), mixed}) {
      for (const auto& body : {"body"s, ""s, "\n\nContent-Type: x/y\r\n\r\n\0"s}) {
        const CGIOutput parsed = ParseCGIOutput(header + body);
        EXPECT_FALSE(parsed.isWholeResponse) << c.why;
        EXPECT_EQ(parsed.wholeHead, "") << c.why;
        EXPECT_EQ(parsed.statusCode, c.code) << c.why;
        EXPECT_EQ(parsed.contentType, c.type) << c.why;
        EXPECT_EQ(parsed.extraHeaders, ReplaceAll(c.extra, "\n", "\r\n")) << c.why;
        EXPECT_EQ(parsed.body, body) << c.why;
      }
    }
  }
}

TEST(CGIOutputTest, AStatusThatIsNoCodeSaysNothing) {
  for (const char* status : {"", "Not Found", "4", "40", "4040", "404Not", "-40", "0x1", "100 Continue", "199", "600",
                             "000", "4 4", "\"404\""}) {
    const std::string header = "Status: "s + status + "\n";
    const CGIOutput parsed = ParseCGIOutput(header + "\nbody");
    EXPECT_EQ(parsed.statusCode, "") << status;
    EXPECT_EQ(parsed.body, "body") << status << ": it is a header all the same";
    EXPECT_EQ(ParseCGIOutput(header + "Location: /x\n\n").statusCode, "302") << status;
    EXPECT_EQ(ParseCGIOutput("Location: /x\n" + header + "\n").statusCode, "302") << status;
    EXPECT_EQ(ParseCGIOutput("Status: 403\n" + header + "\n").statusCode, "403") << status;
  }
}

TEST(CGIOutputTest, ALocationThatLeadsNowhereSaysNothing) {
  for (const char* header : {"Location:\n\n", "Location:  \t\r\n\r\n"}) {
    const CGIOutput parsed = ParseCGIOutput(header + "body"s);
    EXPECT_EQ(parsed.statusCode, "") << header;
    EXPECT_EQ(parsed.extraHeaders, "") << header;
    EXPECT_EQ(parsed.body, "body") << header;
  }
}

TEST(CGIOutputTest, WhatTheServerSaysItselfIsNotPassedOn) {
  for (const char* name : {"Content-Length", "Date", "Server", "Transfer-Encoding", "Connection", "CONTENT-LENGTH",
                           "date", "server", "transfer-encoding", "cOnnection"}) {
    const CGIOutput parsed = ParseCGIOutput("Content-Type: a/b\n"s + name + ": 5\nX-Kept: 1\n\nbody");
    EXPECT_EQ(parsed.extraHeaders, "X-Kept: 1\r\n") << name;
    EXPECT_EQ(parsed.body, "body") << name;
    ExpectAllBody(name + ": 5\n\nbody"s, name);
  }
  EXPECT_EQ(ParseCGIOutput("Status: 200\nContent-Lengths: 5\n\n").extraHeaders, "Content-Lengths: 5\r\n");
}

TEST(CGIOutputTest, WhatIsNoHeaderIsBody) {
  const struct {
    std::string output;
    const char* why;
  } cases[] = {
      {"", "nothing"},
      {"text", "plain text"},
      {"<html>\n\n</html>", "a page"},
      {"\n\n", "blank lines"},
      {"\nContent-Type: a/b\n\nbody", "a blank line in front"},
      {"\r\nContent-Type: a/b\r\n\r\nbody", "the same with CR LF"},
      {"Content-Type: a/b\n", "no blank line"},
      {"Content-Type: a/b", "no line end"},
      {"Content-Type: a/b\n\r", "half a blank line"},
      {"Content-Type: a/b\rX: 1\r\rbody", "CR does not end a line"},
      {"X-Foo: 1\n\nbody", "none of the three names"},
      {"Content-Types: a/b\n\nbody", "another name"},
      {"Content-Type: a/b\nno field\n\nbody", "a line without a colon"},
      {"Content-Type: a/b\n: value\n\nbody", "a line without a name"},
      {"Content-Type: a/b\nX Y: value\n\nbody", "a blank inside a name"},
      {"Content-Type : a/b\n\nbody", "a blank behind the name"},
      {" Content-Type: a/b\n\nbody", "a blank in front of the name"},
      {"Content-Type: a/b\n folded: line\n\nbody", "a folded line"},
      {"Content-Type: a/b\n\tfolded\n\nbody", "a line folded with a tab"},
      {"Content-Type: a\rX-Injected: 1\n\nbody", "a CR inside the type"},
      {"Content-Type: a/b\nX: 1\rSet-Cookie: a=b\n\nbody", "a CR inside another value"},
      {"Location: /a\r\r\n\r\nbody", "two CR at the end of a line"},
      {"Content-Type: a/b\r\n\r\r\nbody", "a CR on the blank line"},
      {"Location: /a\rHTTP/1.0 200 OK\n\nbody", "a second answer behind a CR"},
      {"Content-Type: a/b\0c\n\nbody"s, "NUL in a value"},
      {"X: \0\nContent-Type: a/b\n\nbody"s, "NUL as a value"},
      {"Content-Type\0: a/b\n\nbody"s, "NUL in a name"},
      {"Content-Type: a\x7F\n\nbody", "DEL"},
      {"Content-Type: a\x1B[2J\n\nbody", "an escape"},
      {"Content-Type: a/b\n\x80: 1\n\nbody", "a high byte in a name"},
      {"Create::Process Failed.<BR>\r\nError Number: 2<BR>\r\nError Desc: x<BR>\r\n", "the text of a failure"},
      {"http/1.0 200 OK\r\n\r\nbody", "a response in lower case"},
      {"XHTTP/1.0 200 OK\r\n\r\nbody", "a response further on"},
      {"Content-Type: a/b\n" + std::string(1006, 'x'), "cut at 1024 bytes before its blank line"},
  };
  for (const auto& c : cases) ExpectAllBody(c.output, c.why);
}

TEST(CGIOutputTest, AWholeResponseIsLeftAsItIs) {
  const struct {
    std::string head, body;
    const char* why;
  } cases[] = {
      {"HTTP/1.0 200 OK\r\nContent-Type: a/b\r\n\r\n", "body", "with CR LF"},
      {"HTTP/1.0 200 OK\nContent-Type: a/b\n\n", "body\n\nmore", "with LF"},
      {"HTTP/1.1 200 OK\r\nX: 1\n\r\n", "", "mixed and without a body"},
      {"HTTP/1.0 200 OK\r\nno field\r\nContent-Length: 99\r\n\r\n", "\r\n\0"s, "nothing in it is looked at"},
      {"", "HTTP/1.0 200 OK\r\nContent-Type: a/b\r\n", "no blank line"},
      {"", "HTTP/", "nothing else"},
  };
  for (const auto& c : cases) {
    const CGIOutput parsed = ParseCGIOutput(c.head + c.body);
    EXPECT_TRUE(parsed.isWholeResponse) << c.why;
    EXPECT_EQ(parsed.wholeHead, c.head) << c.why;
    EXPECT_EQ(parsed.body, c.body) << c.why;
    EXPECT_EQ(parsed.statusCode + parsed.contentType + parsed.extraHeaders, "") << c.why;
  }
}

TEST(CGIOutputTest, AGoodOutputCutShortIsAllBodyUntilItsBlankLine) {
  for (const auto& lineEnd : {"\n"s, "\r\n"s}) {
    const std::string header =
        ReplaceAll("Status: 404 Gone\nLocation: /x\nX-A: 1\nContent-Type: a/b\n\n", "\n", lineEnd);
    const std::string output = header + "the body";
    for (std::size_t size = 0; size < header.size(); ++size)
      ExpectAllBody(output.substr(0, size), std::to_string(size));
    for (std::size_t size = header.size(); size <= output.size(); ++size) {
      const CGIOutput parsed = ParseCGIOutput(output.substr(0, size));
      EXPECT_EQ(parsed.statusCode, "404") << size;
      EXPECT_EQ(parsed.contentType, "a/b") << size;
      EXPECT_EQ(parsed.extraHeaders, "Location: /x\r\nX-A: 1\r\n") << size;
      EXPECT_EQ(parsed.body, output.substr(header.size(), size - header.size())) << size;
    }
  }
}

}  // namespace
}  // namespace TesselServer
