#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>

#include "files/cls_Base64.h"
#include "platform/world/Error.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

const cls_Base64 base64;

std::string ReadBack(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

// A text of `length` bytes in which every byte value comes up.
std::string Pattern(std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(i * 7 + i / 256);
  return text;
}

void ExpectError(std::int32_t number, std::string_view description, std::string_view source,
                 const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << "no error, expected: " << description;
  } catch (const Error& error) {
    EXPECT_EQ(error.Number(), number);
    EXPECT_EQ(error.Description(), description);
    EXPECT_EQ(error.Source(), source);
  }
}

TEST(cls_Base64Test, KnownTextsGoBothWays) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"user:pass", "dXNlcjpwYXNz"},
      {"A", "QQ=="},
      {"\xFB\xEF\xBE", "++++"},
      {"\xFF\xFF\xFF", "////"},
      {std::string_view("\0\0\0", 3), "AAAA"},
      {std::string_view("\0", 1), "AA=="},
  };
  for (const auto& [plain, encoded] : cases) {
    EXPECT_EQ(base64.DecodeStr(encoded), plain);
    EXPECT_EQ(base64.DecodeArr(encoded), Bytes(plain.begin(), plain.end()));
    if (plain.empty()) continue;  // nothing to encode is an error
    EXPECT_EQ(base64.EncodeStr(plain), encoded);
    EXPECT_EQ(base64.EncodeArr(Bytes(plain.begin(), plain.end())), encoded);
  }
}

TEST(cls_Base64Test, DecodingFollowsItsRules) {
  struct {
    std::string_view text, decoded;
    const char* why;
  } const cases[] = {
      {"QQ==", "A", "padding"},
      {"QQ", "A", "none"},
      {"Q=Q", "A", "padding in the middle"},
      {"=Q=Q=", "A", "padding everywhere"},
      {"====", "", "only padding"},
      {"Q", "", "a single character gives no byte"},
      {"QUJDR", "ABC", "nor does one that is left over"},
      {"QUI", "AB", "three characters give two bytes"},
      {"QU\r\nJD", "ABC", "a line end is left out"},
      {"QUJD\r\n", "ABC", "at the end as well"},
      {"\r\n\r\nQUJD", "ABC", "and twice"},
      {"QU\nJD", "A@\t", "a lone LF counts as A"},
      {"QU\rJD", "A@\t", "so does a lone CR"},
      {"\r\r\n\nQU", std::string_view("\x00\x04\x14", 3), "a pair that comes up when a pair is left out stays"},
      {"\r=\nQQ", std::string_view("\x00\x04\x10", 3), "so does one that comes up when padding is left out"},
      {"QU JD", "A@\t", "a blank counts as A and shifts the rest"},
      {"QU\tJD", "A@\t", "so does a tab"},
      {"QU-_", std::string_view("A@\x00", 3), "another alphabet's characters count as A"},
      {"\xFF\xFF\xFF\xFF", std::string_view("\0\0\0", 3), "bytes of 0x80 and above too"},
      {std::string_view("\0\0\0\0", 4), std::string_view("\0\0\0", 3), "and NUL"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(base64.DecodeStr(c.text), c.decoded) << c.why;
  }
}

TEST(cls_Base64Test, EveryByteValueDecodesToItsPlaceInTheAlphabetOrToZero) {
  const std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (int i = 0; i < 256; ++i) {
    const char c = static_cast<char>(i);
    if (c == '=') continue;
    const std::size_t place = alphabet.find(c);
    const auto value = static_cast<std::uint8_t>(place == std::string_view::npos ? 0 : place);
    EXPECT_EQ(base64.DecodeArr(std::string{'A', c}), Bytes{static_cast<std::uint8_t>(value >> 4)}) << i;
    EXPECT_EQ(base64.DecodeArr(std::string{c, 'A'}), Bytes{static_cast<std::uint8_t>(value << 2)}) << i;
  }
}

TEST(cls_Base64Test, EveryLengthComesBackFromLinesOf76Characters) {
  for (std::size_t length = 1; length < 400; ++length) {
    const std::string plain = Pattern(length);
    const std::string encoded = base64.EncodeStr(plain);
    ASSERT_EQ(base64.DecodeStr(encoded), plain) << length;
    std::string_view rest = encoded;
    std::size_t characters = 0;
    for (;;) {
      const std::size_t end = rest.find("\r\n");
      const std::string_view line = rest.substr(0, end);
      characters += line.size();
      if (end == std::string_view::npos) {
        ASSERT_GE(line.size(), 1u) << length << ": no line end behind the last line";
        ASSERT_LE(line.size(), 76u) << length;
        break;
      }
      ASSERT_EQ(line.size(), 76u) << length;
      rest.remove_prefix(end + 2);
    }
    ASSERT_EQ(characters, (length + 2) / 3 * 4) << length;
    ASSERT_EQ(encoded.find('\0'), std::string::npos) << length;
  }
}

TEST(cls_Base64Test, LinesOf57BytesAreFull) {
  EXPECT_EQ(base64.EncodeStr(std::string(57, '\0')), std::string(76, 'A'));
  EXPECT_EQ(base64.EncodeStr(std::string(58, '\0')), std::string(76, 'A') + "\r\nAA==");
  EXPECT_EQ(base64.EncodeStr(std::string(114, '\0')), std::string(76, 'A') + "\r\n" + std::string(76, 'A'));
}

TEST(cls_Base64Test, LinesBrokenByLfAloneDecodeToSomethingElse) {
  const std::string plain = Pattern(200);
  std::string encoded = base64.EncodeStr(plain);
  std::erase(encoded, '\r');
  EXPECT_NE(base64.DecodeStr(encoded), plain);
}

TEST(cls_Base64Test, AnyBytesDecodeToAKnownNumberOfBytes) {
  std::uint32_t state = 1;
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    std::size_t taken = 0;
    for (int i = 0; i < round % 97; ++i) {
      state = state * 1664525 + 1013904223;
      text += static_cast<char>(state >> 24);
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text.compare(i, 2, "\r\n") == 0) {
        ++i;
      } else {
        taken += text[i] != '=';
      }
    }
    ASSERT_EQ(base64.DecodeArr(text).size(), taken * 6 / 8);
  }
  EXPECT_EQ(base64.DecodeStr(std::string(1 << 20, '\xFF')).size(), (1u << 20) * 6 / 8);
}

TEST(cls_Base64Test, NothingToEncodeIsAnErrorAndNothingToDecodeIsNone) {
  ExpectError(-2147211504, "Input array is not dimensioned.", "Base64.EncodeArr", [] { base64.EncodeArr({}); });
  EXPECT_EQ(static_cast<std::uint32_t>(cls_Base64::kArrayNotDimensioned), 0x80042710u);
  ExpectError(-2147211504, "Input array is not dimensioned.", "Base64.EncodeArr", [] { base64.EncodeStr(""); });
  EXPECT_EQ(base64.DecodeStr(""), "");
  EXPECT_EQ(base64.DecodeArr(""), Bytes());
}

TEST(cls_Base64Test, AFileIsEncodedWhole) {
  const Kit::TemporaryTree tree;
  const std::string plain = Pattern(100'000);
  const std::string encoded = base64.EncodeFile(tree.Write("file.bin", plain));
  EXPECT_EQ(encoded, base64.EncodeStr(plain));
  EXPECT_EQ(base64.EncodeFile(tree.Text() + "\\FILE.BIN"), encoded);
}

TEST(cls_Base64Test, AFileThatCannotBeReadIsAnEmptyText) {
  const Kit::TemporaryTree tree;
  EXPECT_EQ(base64.EncodeFile(tree.Text() + "/none"), "");
  EXPECT_EQ(base64.EncodeFile(tree.Text()), "") << "a folder";
  EXPECT_EQ(base64.EncodeFile(""), "");
  EXPECT_EQ(base64.EncodeFile(tree.Write("empty", "")), "");
  const std::string huge = tree.Write("huge", "");
  ASSERT_EQ(truncate(huge.c_str(), cls_Base64::kMaxFileBytes + 1), 0);
  EXPECT_EQ(base64.EncodeFile(huge), "") << "longer than it may be";
}

TEST(cls_Base64Test, DecodedBytesAreWrittenToANewFile) {
  const Kit::TemporaryTree tree;
  const std::string plain = Pattern(70'000);
  const std::size_t descriptors = Kit::CountDescriptors();
  base64.DecodeToFile(base64.EncodeStr(plain), tree.Text() + "/new.bin");
  EXPECT_EQ(ReadBack(tree.Text() + "/new.bin"), plain);
  base64.DecodeToFile("QQ==", tree.Text() + "\\other.bin");
  EXPECT_EQ(ReadBack(tree.Text() + "/other.bin"), "A");
  base64.DecodeToFile("", tree.Text() + "/empty.bin");
  EXPECT_EQ(std::filesystem::file_size(tree.Path() / "empty.bin"), 0u);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

TEST(cls_Base64Test, AnExistingFileIsNeverOverwritten) {
  const Kit::TemporaryTree tree;
  tree.Write("taken", "old");
  tree.MakeFolder("folder");
  std::filesystem::create_symlink("target", tree.Path() / "link");
  ASSERT_EQ(mkfifo((tree.Text() + "/pipe").c_str(), 0600), 0);
  for (const std::string_view name : {"/taken", "/TAKEN", "\\taken", "/folder", "/link", "/pipe"}) {
    ExpectError(cls_Base64::kErrorBase + 1000, "File already exists.", "Base64.DecodeToFile",
                [&] { base64.DecodeToFile("QQ==", tree.Text() + std::string(name)); });
  }
  EXPECT_EQ(static_cast<std::uint32_t>(cls_Base64::kFileExists), 0x800403E8u);
  EXPECT_EQ(ReadBack(tree.Text() + "/taken"), "old");
  EXPECT_FALSE(std::filesystem::exists(tree.Path() / "target")) << "nothing was made through the link";
  EXPECT_FALSE(std::filesystem::exists(tree.Path() / "TAKEN"));
}

TEST(cls_Base64Test, AFileThatCannotBeMadeIsAnError) {
  const Kit::TemporaryTree tree;
  for (const std::string& path : {tree.Text() + "/none/new", std::string(), tree.Text() + "/" + std::string(300, 'x'),
                                  tree.Text() + std::string("/a\0b", 4), tree.Text() + "/new/"}) {
    ExpectError(ErrorNumber::kFileAccess, "Path/File access error.", "Base64.DecodeToFile",
                [&] { base64.DecodeToFile("QQ==", path); });
  }
  EXPECT_TRUE(std::filesystem::is_empty(tree.Path()));
}

}  // namespace
}  // namespace TesselServer
