#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/settings/PropertyBag.h"
#include "platform/world/Error.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

std::string BytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The error's number, or 0 when `action` raises none.
template <typename Action>
std::int32_t NumberOf(Action action) {
  try {
    action();
    return 0;
  } catch (const Error& error) {
    return error.Number();
  }
}

std::size_t CountEntries(const fs::path& folder) {
  const fs::directory_iterator entries(folder);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(PropertyBagTest, KeepsOnlyWhatDiffersFromItsDefault) {
  MemoryPropertyBag bag;
  bag.WriteProperty("ServerPort", 80, 80);
  bag.WriteProperty("SSIEnable", true, true);
  bag.WriteProperty("ServerName", ""s, ""s);
  EXPECT_TRUE(bag.Items().empty());
  bag.WriteProperty("ServerPort", 8080, 80);
  bag.WriteProperty("SSIEnable", false, true);
  bag.WriteProperty("ServerName", "a=b"s, ""s);
  EXPECT_EQ(bag.Items().at("ServerPort"), "8080");
  EXPECT_EQ(bag.Items().at("SSIEnable"), "False");
  EXPECT_EQ(bag.Items().at("ServerName"), "a=b");
  bag.WriteProperty("ServerPort", 80, 80);
  EXPECT_EQ(bag.Items().count("ServerPort"), 0u) << "the older value goes";
}

TEST(PropertyBagTest, GivesTheDefaultForWhatIsNotKept) {
  const MemoryPropertyBag bag;
  EXPECT_EQ(bag.ReadProperty("a", 7), PropertyValue(7));
  EXPECT_EQ(bag.ReadProperty("a", true), PropertyValue(true));
  EXPECT_EQ(bag.ReadProperty("a", "x"s), PropertyValue("x"s));
}

TEST(PropertyBagTest, ReadsNumbers) {
  constexpr std::int32_t kMismatch = 13, kOverflow = 6;
  struct {
    const char* text;
    std::int32_t error;
    std::int32_t number;
  } const cases[] = {
      {"0", 0, 0},
      {"8080", 0, 8080},
      {" 8080\t", 0, 8080},
      {"+5", 0, 5},
      {"-5", 0, -5},
      {"007", 0, 7},
      {"80.5", 0, 80},
      {"81.5", 0, 82},
      {"80.50000", 0, 80},
      {"80.50001", 0, 81},
      {"80.49999", 0, 80},
      {"80.6", 0, 81},
      {"-80.5", 0, -80},
      {"-81.5", 0, -82},
      {".5", 0, 0},
      {"1.", 0, 1},
      {"2147483647", 0, 2147483647},
      {"2147483647.4", 0, 2147483647},
      {"2147483647.5", kOverflow, 0},
      {"2147483648", kOverflow, 0},
      {"-2147483648", 0, -2147483647 - 1},
      {"-2147483648.5", 0, -2147483647 - 1},
      {"-2147483649", kOverflow, 0},
      {"99999999999999999999999999999999999999", kOverflow, 0},
      {"-99999999999999999999999999999999999999.5", kOverflow, 0},
      {"", kMismatch, 0},
      {" ", kMismatch, 0},
      {"abc", kMismatch, 0},
      {"8080x", kMismatch, 0},
      {"80 80", kMismatch, 0},
      {".", kMismatch, 0},
      {"-", kMismatch, 0},
      {"+-1", kMismatch, 0},
      {"1.2.3", kMismatch, 0},
      {"1e3", kMismatch, 0},
      {"0x10", kMismatch, 0},
      {"True", kMismatch, 0},
  };
  for (const auto& c : cases) {
    MemoryPropertyBag bag;
    bag.Put("n", c.text);
    PropertyValue value = -1;
    EXPECT_EQ(NumberOf([&] { value = bag.ReadProperty("n", 99); }), c.error) << c.text;
    EXPECT_EQ(value, PropertyValue(c.error == 0 ? c.number : -1)) << c.text;
  }
}

TEST(PropertyBagTest, ReadsBooleans) {
  struct {
    const char* text;
    bool isGood, value;
  } const cases[] = {
      {"True", true, true},   {"true", true, true},  {" TRUE ", true, true},  {"False", true, false},
      {"fALSE", true, false}, {"-1", true, true},    {"1", true, true},       {"0", true, false},
      {"0.0", true, false},   {"-0", true, false},   {"0.4", true, true},     {"99999999999999999999", true, true},
      {"", false, false},     {"yes", false, false}, {"True!", false, false},
  };
  for (const auto& c : cases) {
    for (const bool byDefault : {false, true}) {
      MemoryPropertyBag bag;
      bag.Put("b", c.text);
      PropertyValue value = 0;
      EXPECT_EQ(NumberOf([&] { value = bag.ReadProperty("b", byDefault); }), c.isGood ? 0 : 13) << c.text;
      EXPECT_EQ(value, c.isGood ? PropertyValue(c.value) : PropertyValue(0)) << c.text;
    }
  }
}

TEST(PropertyBagTest, AnErrorNamesTheSettingAndItsText) {
  MemoryPropertyBag bag;
  bag.Put("ServerPort", "eighty");
  try {
    bag.ReadProperty("ServerPort", 80);
    FAIL() << "nothing was raised";
  } catch (const Error& error) {
    EXPECT_EQ(error.Description(), "Type mismatch: ServerPort is \"eighty\", which is not a number");
    EXPECT_EQ(error.Source(), "Tessel");
  }
  bag.Put("ServerPort", std::string(5000, 'x'));
  try {
    bag.ReadProperty("ServerPort", 80);
    FAIL() << "nothing was raised";
  } catch (const Error& error) {
    EXPECT_LT(error.Description().size(), 200u) << "a long text is cut";
  }
}

TEST(PropertyBagTest, EveryValueComesBackFromMemory) {
  const PropertyValue values[] = {true,   false,          0, -1, 2147483647, -2147483647 - 1, ""s, "text"s,
                                  " a "s, "\0\r\n%=\xFF"s};
  for (const PropertyValue& value : values) {
    const PropertyValue byDefault = std::holds_alternative<bool>(value) ? PropertyValue(!std::get<bool>(value))
                                    : std::holds_alternative<std::int32_t>(value) ? PropertyValue(123)
                                                                                  : PropertyValue("default"s);
    MemoryPropertyBag bag;
    bag.WriteProperty("p", value, byDefault);
    EXPECT_EQ(bag.ReadProperty("p", byDefault), value);
  }
}

TEST(FilePropertyBagTest, EveryTextComesBackFromTheFile) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Text() + "/web.conf";
  std::string everyByte;
  for (int i = 0; i < 256; ++i) everyByte += static_cast<char>(i);
  const std::string texts[] = {"",
                               " ",
                               "plain",
                               " blanks around ",
                               "a=b=c",
                               "=",
                               "100%",
                               "%0A",
                               "%250A",
                               "%",
                               "%%",
                               "two\nlines",
                               "\r",
                               "\r\n",
                               "end\r",
                               "end\n",
                               "\0"s,
                               "a\0b"s,
                               "caf\xC3\xA9",
                               "\xFF\xFE",
                               "\xEF\xBB\xBF",
                               "# no comment",
                               "\\srv\\www",
                               everyByte};
  for (const std::string& text : texts) {
    FilePropertyBag bag(path);
    bag.Put("before", "1");
    bag.Put("key", text);
    bag.Put("later", "2");
    bag.Save();
    FilePropertyBag again(path);
    again.Load();
    EXPECT_EQ(again.Items(), bag.Items()) << testing::PrintToString(text) << BytesOf(path);
  }
}

TEST(FilePropertyBagTest, WritesOneLineAProperty) {
  const Kit::TemporaryTree tree;
  FilePropertyBag bag(tree.Text() + "/web.conf");
  bag.Put("ServerPort", "8080");
  bag.Put("ServerName", "50% a\nb");
  bag.Save();
  EXPECT_EQ(BytesOf(tree.Path() / "web.conf"), "ServerName=50%25 a%0Ab\nServerPort=8080\n");
}

TEST(FilePropertyBagTest, ReadsWhatAPersonHasEdited) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("web.conf",
                                      "\xEF\xBB\xBF"
                                      "ServerPort=1\r\n"
                                      "\r\n"
                                      "no equals sign\n"
                                      "# comment\n"
                                      "ServerPort=2\n"
                                      "Lower=%0a%41\n"
                                      "Escapes=%0D%00%25%0A\n"
                                      "Last=no line end");
  FilePropertyBag bag(path);
  bag.Put("Older", "goes");
  bag.Load();
  const std::map<std::string, std::string, std::less<>> items = {
      {"ServerPort", "2"}, {"Lower", "%0a%41"}, {"Escapes", "\r\0%\n"s}, {"Last", "no line end"}};
  EXPECT_EQ(bag.Items(), items);
}

TEST(FilePropertyBagTest, LoadFailsWithoutChangingTheBag) {
  const Kit::TemporaryTree tree;
  ASSERT_EQ(mkfifo((tree.Path() / "fifo").c_str(), 0600), 0);
  tree.Write("large", "a=" + std::string(FilePropertyBag::kMaxFileBytes - 1, 'x'));
  tree.Write("file", "a=b");
  struct {
    std::string path;
    std::int32_t error;
  } const cases[] = {
      {tree.Text() + "/none", 53},
      {tree.Text() + "/file/none", 53},
      {"", 53},
      {tree.Text() + "/file\0"s, 53},
      {tree.Text(), 75},
      {tree.Text() + "/fifo", 75},
      {tree.Text() + "/large", 75},
      {"/dev/null", 75},
  };
  const std::size_t before = Kit::CountDescriptors();
  for (const auto& c : cases) {
    FilePropertyBag bag(c.path);
    bag.Put("kept", "1");
    EXPECT_EQ(NumberOf([&] { bag.Load(); }), c.error) << c.path;
    EXPECT_EQ(bag.Items().size(), 1u) << c.path;
    EXPECT_EQ(bag.Items().count("kept"), 1u) << c.path;
  }
  EXPECT_EQ(Kit::CountDescriptors(), before);
}

TEST(FilePropertyBagTest, AFileOfTheLargestSizeIsWrittenAndRead) {
  const Kit::TemporaryTree tree;
  FilePropertyBag bag(tree.Text() + "/web.conf");
  bag.Put("a", std::string(FilePropertyBag::kMaxFileBytes - 3, 'x'));
  bag.Save();
  FilePropertyBag again(tree.Text() + "/web.conf");
  again.Load();
  EXPECT_EQ(again.Items(), bag.Items());
  bag.Put("a", std::string(FilePropertyBag::kMaxFileBytes - 2, 'x'));
  EXPECT_EQ(NumberOf([&] { bag.Save(); }), 75) << "one byte more";
  again.Load();
  EXPECT_NE(again.Items(), bag.Items()) << "the file that was there stays";
}

TEST(FilePropertyBagTest, TheFileIsForItsOwnerAlone) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("web.conf", "old=1\n");
  fs::permissions(path, fs::perms(0666));
  const auto older = umask(0);
  FilePropertyBag bag(path);
  bag.Save();
  umask(older);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
  EXPECT_EQ(BytesOf(path), "");
  EXPECT_EQ(CountEntries(tree.Path()), 1u) << "no temporary file is left";
}

TEST(FilePropertyBagTest, SeparatesWithBackslashesAsWell) {
  const Kit::TemporaryTree tree;
  tree.MakeFolder("etc");
  FilePropertyBag bag(tree.Text() + "\\etc\\web.conf");
  bag.Put("a", "b");
  bag.Save();
  EXPECT_EQ(BytesOf(tree.Path() / "etc/web.conf"), "a=b\n");
}

TEST(FilePropertyBagTest, SavesToAPlainNameInTheWorkingFolder) {
  const Kit::TemporaryTree tree;
  const int status = Kit::InChild([&tree] {
    if (chdir(tree.Text().c_str()) != 0) return 1;
    FilePropertyBag bag("web.conf");
    bag.Put("a", "b");
    bag.Save();
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(BytesOf(tree.Path() / "web.conf"), "a=b\n");
}

TEST(FilePropertyBagTest, SavesThroughLinksToTheirEnd) {
  const Kit::TemporaryTree tree;
  tree.Write("real/web.conf", "old=1\n");
  fs::create_symlink("real/web.conf", tree.Path() / "one");
  fs::create_symlink(tree.Path() / "one", tree.Path() / "two");
  fs::create_symlink("real/new.conf", tree.Path() / "dangling");
  for (const auto* name : {"two", "dangling"}) {
    FilePropertyBag bag(tree.Text() + "/" + name);
    bag.Put("a", name);
    bag.Save();
    EXPECT_TRUE(fs::is_symlink(tree.Path() / name));
  }
  EXPECT_TRUE(fs::is_symlink(tree.Path() / "one"));
  EXPECT_FALSE(fs::is_symlink(tree.Path() / "real/web.conf"));
  EXPECT_EQ(BytesOf(tree.Path() / "real/web.conf"), "a=two\n");
  EXPECT_EQ(BytesOf(tree.Path() / "real/new.conf"), "a=dangling\n");
}

TEST(FilePropertyBagTest, SaveRefusesWhatItCannotReplaceOrHold) {
  const Kit::TemporaryTree tree;
  ASSERT_EQ(mkfifo((tree.Path() / "fifo").c_str(), 0600), 0);
  tree.MakeFolder("folder");
  fs::create_symlink("loop", tree.Path() / "loop");
  const std::size_t entries = CountEntries(tree.Path());
  const std::size_t descriptors = Kit::CountDescriptors();
  for (const std::string& path :
       {tree.Text() + "/fifo", tree.Text() + "/folder", tree.Text() + "/loop", tree.Text() + "/none/web.conf",
        tree.Text() + "/" + std::string(256, 'n'), tree.Text() + "/a\0b"s, ""s}) {
    EXPECT_EQ(NumberOf([&] { FilePropertyBag(path).Save(); }), 75) << path;
  }
  for (const std::string& name : {"a=b"s, "a\nb"s, "a\r"s, "a\0"s}) {
    FilePropertyBag bag(tree.Text() + "/web.conf");
    bag.Put(name, "x");
    EXPECT_EQ(NumberOf([&] { bag.Save(); }), 75) << testing::PrintToString(name);
  }
  EXPECT_EQ(CountEntries(tree.Path()), entries);
  EXPECT_EQ(Kit::CountDescriptors(), descriptors);
}

TEST(FilePropertyBagTest, AFolderThatTakesNoFileKeepsTheOldOne) {
  const Kit::TemporaryTree tree;
  const std::string path = tree.Write("etc/web.conf", "old=1\n");
  fs::permissions(tree.Path(), fs::perms(0755));
  fs::permissions(tree.Path() / "etc", fs::perms(0555));
  const int status = Kit::InUnprivilegedChild([&path] {
    FilePropertyBag bag(path);
    bag.Put("new", "1");
    return static_cast<int>(NumberOf([&] { bag.Save(); }));
  });
  fs::permissions(tree.Path() / "etc", fs::perms(0755));
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "root, and no other user to be had";
  EXPECT_EQ(status, 75);
  EXPECT_EQ(BytesOf(path), "old=1\n");
  EXPECT_EQ(CountEntries(tree.Path() / "etc"), 1u);
}

}  // namespace
}  // namespace TesselServer
