#include <gtest/gtest.h>

#include <algorithm>

#include "http/modern/ContentTypeTable.h"
#include "http/modern/FieldValues.h"
#include "support/Text.h"

namespace TesselServer::Modern {
namespace {

std::vector<KnownContentType> WholeTable() {
  std::vector<KnownContentType> table(kContentTypesToL.begin(), kContentTypesToL.end());
  table.insert(table.end(), kContentTypesFromM.begin(), kContentTypesFromM.end());
  return table;
}

TEST(ContentTypeTableTest, KnowsWhatSitesAreMadeOf) {
  const struct {
    const char *extension, *type;
  } cases[] = {
      {"html", "text/html"},
      {"htm", "text/html"},
      {"shtml", "text/html"},
      {"xhtml", "application/xhtml+xml"},
      {"css", "text/css"},
      {"js", "text/javascript"},
      {"mjs", "text/javascript"},
      {"cjs", "text/javascript"},
      {"json", "application/json"},
      {"map", "application/json"},
      {"webmanifest", "application/manifest+json"},
      {"wasm", "application/wasm"},
      {"xml", "application/xml"},
      {"txt", "text/plain"},
      {"log", "text/plain"},
      {"md", "text/markdown"},
      {"csv", "text/csv"},
      {"ics", "text/calendar"},
      {"vcf", "text/vcard"},
      {"yaml", "application/yaml"},
      {"png", "image/png"},
      {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},
      {"gif", "image/gif"},
      {"webp", "image/webp"},
      {"avif", "image/avif"},
      {"heic", "image/heic"},
      {"jxl", "image/jxl"},
      {"apng", "image/apng"},
      {"svg", "image/svg+xml"},
      {"svgz", "image/svg+xml"},
      {"ico", "image/vnd.microsoft.icon"},
      {"bmp", "image/bmp"},
      {"tiff", "image/tiff"},
      {"woff", "font/woff"},
      {"woff2", "font/woff2"},
      {"ttf", "font/ttf"},
      {"otf", "font/otf"},
      {"mp3", "audio/mpeg"},
      {"m4a", "audio/mp4"},
      {"aac", "audio/aac"},
      {"ogg", "audio/ogg"},
      {"opus", "audio/ogg"},
      {"flac", "audio/flac"},
      {"wav", "audio/x-wav"},
      {"weba", "audio/webm"},
      {"mid", "audio/midi"},
      {"mp4", "video/mp4"},
      {"m4v", "video/mp4"},
      {"webm", "video/webm"},
      {"mkv", "video/x-matroska"},
      {"mov", "video/quicktime"},
      {"mpeg", "video/mpeg"},
      {"ogv", "video/ogg"},
      {"3gp", "video/3gpp"},
      {"ts", "video/mp2t"},
      {"m3u8", "application/vnd.apple.mpegurl"},
      {"mpd", "application/dash+xml"},
      {"m4s", "video/iso.segment"},
      {"vtt", "text/vtt"},
      {"pdf", "application/pdf"},
      {"epub", "application/epub+zip"},
      {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
      {"odt", "application/vnd.oasis.opendocument.text"},
      {"zip", "application/zip"},
      {"gz", "application/gzip"},
      {"bz2", "application/x-bzip2"},
      {"xz", "application/x-xz"},
      {"zst", "application/zstd"},
      {"7z", "application/x-7z-compressed"},
      {"tar", "application/x-tar"},
      {"deb", "application/vnd.debian.binary-package"},
      {"jar", "application/java-archive"},
      {"atom", "application/atom+xml"},
      {"rss", "application/rss+xml"},
      {"bin", "application/octet-stream"},
      {"123", "application/vnd.lotus-1-2-3"},
      {"sarif-external-properties", "application/sarif-external-properties+json"},
      {"zone", "text/dns"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(KnownTypeOf(c.extension), c.type) << c.extension;
    EXPECT_EQ(KnownTypeOf(Upper(c.extension)), c.type) << "in capitals: " << c.extension;
  }
}

TEST(ContentTypeTableTest, WhatIsNotKnownHasNoType) {
  for (const std::string_view extension :
       {std::string_view(""), std::string_view(" "), std::string_view("."), std::string_view(".html"),
        std::string_view("html "), std::string_view("htm\0", 4), std::string_view("htmlx"), std::string_view("\xFF"),
        std::string_view("zzzzzz"), std::string_view("README"), std::string_view("php"),
        std::string_view("jpg,image/jpeg")}) {
    EXPECT_EQ(KnownTypeOf(extension), "") << extension;
  }
  EXPECT_EQ(KnownTypeOf(std::string(25, 'a')), "");
  EXPECT_EQ(KnownTypeOf(std::string(26, 'a')), "") << "longer than all that are known";
  EXPECT_EQ(KnownTypeOf(std::string(1'000'000, 'z')), "");
}

TEST(ContentTypeTableTest, IsSortedAndFindsEachOfItsEntries) {
  const auto table = WholeTable();
  EXPECT_TRUE(std::is_sorted(table.begin(), table.end(), [](const auto& a, const auto& b) {
    return a.extension <= b.extension;
  })) << "sorted, and no extension twice";
  for (const KnownContentType& known : table) {
    EXPECT_EQ(KnownTypeOf(known.extension), known.type) << known.extension;
    EXPECT_EQ(Lower(known.extension), known.extension) << "lower case";
    const std::size_t slash = known.type.find('/');
    ASSERT_NE(slash, kNpos) << known.type;
    EXPECT_TRUE(IsTokenText(known.type.substr(0, slash))) << known.type;
    EXPECT_TRUE(IsTokenText(known.type.substr(slash + 1))) << known.type;
  }
}

TEST(ContentTypeTableTest, AHostsEntriesWin) {
  const std::vector<std::string> entries = {"JS,application/x-own", "odd,x/odd", "css", "png,"};
  EXPECT_EQ(TypeOf(entries, "js"), "application/x-own");
  EXPECT_EQ(TypeOf(entries, "ODD"), "x/odd");
  EXPECT_EQ(TypeOf(entries, "html"), "text/html") << "the table adds what the host does not name";
  EXPECT_EQ(TypeOf(entries, "css"), "text/css") << "an entry without a comma names none";
  EXPECT_EQ(TypeOf(entries, "png"), "image/png") << "nor does one without a type";
  EXPECT_EQ(TypeOf(entries, "zzzzzz"), "");
  EXPECT_EQ(TypeOf({}, "js"), "text/javascript");
}

TEST(ContentTypeTableTest, OnlyPackedPicturesAreUnpackedByTheClient) {
  EXPECT_EQ(ContentEncodingOf("svgz"), "gzip");
  EXPECT_EQ(ContentEncodingOf("SVGZ"), "gzip");
  for (const std::string_view extension : {"svg", "gz", "tgz", "html", "", "svgzz"}) {
    EXPECT_EQ(ContentEncodingOf(extension), "") << extension;
  }
}

}  // namespace
}  // namespace TesselServer::Modern
