#include <gtest/gtest.h>

#include "http/modern/LinkText.h"

namespace TesselServer::Modern {
namespace {

TEST(LinkTextTest, APathIsEncodedByteByByte) {
  const struct {
    std::string_view path, link;
    const char* why;
  } cases[] = {
      {"", "", "nothing"},
      {"/a/b.html", "/a/b.html", "nothing to do"},
      {"a b", "a%20b", "a blank"},
      {"100%", "100%25", "a percent sign"},
      {"%41", "%2541", "what looks like a code"},
      {"a+b", "a%2Bb", "a plus, which some read as a blank"},
      {"a?b#c", "a%3Fb%23c", "what would end the path"},
      {"a&b'c\"d<e>f", "a%26b%27c%22d%3Ce%3Ef", "what has a meaning in a page"},
      {"a:b", "a%3Ab", "no scheme"},
      {"a\\b", "a%5Cb", "no slash of browsers"},
      {"a;b,c=d!e$f(g)h*i@j~k_l-m", "a;b,c=d!e$f(g)h*i@j~k_l-m", "what may be in a path"},
      {"[a]{b}|c^d`e", "%5Ba%5D%7Bb%7D%7Cc%5Ed%60e", "what may not"},
      {"caf\xC3\xA9", "caf%C3%A9", "UTF-8"},
      {"caf\xE9", "caf%E9", "what is not"},
      {"a\r\nb\t\x7F", "a%0D%0Ab%09%7F", "controls, with their leading zeros"},
      {std::string_view("a\0b", 3), "a%00b", "a NUL"},
  };
  for (const auto& c : cases) EXPECT_EQ(PathText(c.path), c.link) << c.why;
  std::string page = "href=\"";
  AppendPathText(page, "a b");
  EXPECT_EQ(page, "href=\"a%20b");
}

TEST(LinkTextTest, EveryByteComesBack) {
  std::string path;
  for (int byte = 0; byte < 256; ++byte) path += static_cast<char>(byte);
  const std::string link = PathText(path);
  EXPECT_EQ(link.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/!$()*,;=@%"),
            std::string::npos);
  std::string decoded;
  for (std::size_t i = 0; i < link.size(); ++i) {
    if (link[i] != '%') {
      decoded += link[i];
    } else {
      decoded += static_cast<char>(std::stoi(link.substr(i + 1, 2), nullptr, 16));
      i += 2;
    }
  }
  EXPECT_EQ(decoded, path);
}

TEST(LinkTextTest, ALocationStaysOnTheServer) {
  const struct {
    std::string_view path, query;
    bool hasQuery;
    const char *location, *why;
  } cases[] = {
      {"/a/", "", false, "/a/", "a folder"},
      {"/a b/", "", false, "/a%20b/", "encoded"},
      {"/", "", false, "/", "the root"},
      {"", "", false, "/", "nothing is the root"},
      {"a/", "", false, "/a/", "a slash in front"},
      {"//evil.example/", "", false, "/evil.example/", "one slash only: two would be another server"},
      {"////", "", false, "/", "likewise"},
      {"/\\evil.example/", "", false, "/%5Cevil.example/", "nor what browsers take for two"},
      {"/a/", "b=c&d=%20+e", true, "/a/?b=c&d=%20+e", "the query as it was sent"},
      {"/a/", "", true, "/a/?", "an empty query is one"},
      {"/a/", "x", false, "/a/", "no query"},
      {"/a/", "b c\"<>\xC3\xA9#\\^`{|}", true, "/a/?b%20c%22%3C%3E%C3%A9%23%5C%5E%60%7B%7C%7D", "what is no link"},
      {"/a/", "b\r\nX-Injected: 1", true, "/a/?b%0D%0AX-Injected:%201", "no line of the header"},
      {"/a\r\nX-Injected: 1/", "", false, "/a%0D%0AX-Injected%3A%201/", "nor from a path"},
  };
  for (const auto& c : cases) EXPECT_EQ(LocationText(c.path, c.query, c.hasQuery), c.location) << c.why;
}

}  // namespace
}  // namespace TesselServer::Modern
