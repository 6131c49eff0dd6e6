#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "control/Tessel.h"
#include "http/ContentTypes.h"
#include "platform/loop/EventLoop.h"
#include "platform/settings/PropertyBag.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string Text(const std::string& value) { return value; }
std::string Text(bool value) { return value ? "True" : "False"; }
std::string Text(std::int32_t value) { return std::to_string(value); }
std::string Text(e_ContentTypeSource value) { return std::to_string(static_cast<std::int32_t>(value)); }
std::string Text(e_AuthSource value) { return std::to_string(static_cast<std::int32_t>(value)); }

// A property: its default, and a value to set with what is stored of it.
struct Property {
  const char* name;
  const char* byDefault;
  void (*set)(Tessel& tessel, const std::string& file);
  std::string stored;  // "FILE" stands for the file
  std::string (*get)(const Tessel& tessel);
};

#define TESSEL_PROPERTY(Name, byDefault, value, stored)                                                              \
  Property {                                                                                                         \
#Name, byDefault,                                                                                                \
        [](Tessel & t,                                                                                               \
           [[maybe_unused]] const std::string& file) { t.Name(value); }, stored,                                     \
                                                                      [](const Tessel& t) { return Text(t.Name()); } \
  }

// In the order of the interface.
const Property kProperties[] = {
    TESSEL_PROPERTY(ServerIP, "", " 127.0.0.1 ", "127.0.0.1"),
    TESSEL_PROPERTY(ServerPort, "80", "8080", "8080"),
    TESSEL_PROPERTY(ServerSoftware, "Orvane Tessel/1.1", " Software ", " Software "),
    TESSEL_PROPERTY(ServerName, "", " name ", "name"),
    TESSEL_PROPERTY(ContentTypeSource, "0", e_ContentTypeSource::Internal, "2"),
    TESSEL_PROPERTY(ContentTypeSourceFile, "", file, "FILE"),
    TESSEL_PROPERTY(AuthenticationSource, "0", e_AuthSource::DomainACL, "3"),
    TESSEL_PROPERTY(AuthenticationSourceFile, "", file, "FILE"),
    TESSEL_PROPERTY(CGIEnable, "False", true, "True"),
    TESSEL_PROPERTY(CGIDirectory, "", " /cgi/ ", " /cgi/ "),
    TESSEL_PROPERTY(CGITimeout, "30", 31, "31"),
    TESSEL_PROPERTY(SSIEnable, "False", true, "True"),
    TESSEL_PROPERTY(HTMLFunctionsEnable, "False", true, "True"),
    TESSEL_PROPERTY(DirectoryBrowseEnable, "False", true, "True"),
    TESSEL_PROPERTY(ErrorFilesEnable, "False", true, "True"),
    TESSEL_PROPERTY(VerboseErrorsEnable, "True", false, "False"),
    TESSEL_PROPERTY(MaxConnections, "2", 17, "17"),
    TESSEL_PROPERTY(ConnectionTimeout, "10", 11, "11"),
    TESSEL_PROPERTY(VirtualPath, "", " /srv/www/ ", " /srv/www/ "),
    TESSEL_PROPERTY(IndexPageNames, "index.html", " default.htm , index.html ", "default.htm,index.html"),
    TESSEL_PROPERTY(TrapFileEnable, "False", true, "True"),
    TESSEL_PROPERTY(TrapFileTypes, "", " trp , t r x ", "trp,trx"),
};

#undef TESSEL_PROPERTY

class PropertiesTest : public testing::Test {
 protected:
  PropertiesTest() {
    tessel.PropertyChanged = [this](const std::string& name) { changed.push_back(name); };
    tessel.LogEvent = [this](std::string& text) { errors.push_back(text); };
  }

  std::string Stored(const Property& property) const { return property.stored == "FILE" ? file : property.stored; }

  Kit::TemporaryTree tree;
  std::string file = tree.Write("lines.txt", "one\ntwo\n");
  Kit::FakeWorld world;
  EventLoop loop{world};
  Tessel tessel{loop};
  std::vector<std::string> changed;
  std::vector<std::string> errors;
};

TEST_F(PropertiesTest, AFreshControlHasEveryDefault) {
  EXPECT_EQ(std::size(kProperties), 22u);
  for (const Property& property : kProperties) EXPECT_EQ(property.get(tessel), property.byDefault) << property.name;
}

TEST_F(PropertiesTest, EachPropertyStoresItsValueAndNoOther) {
  for (const Property& property : kProperties) {
    Tessel fresh(loop);
    property.set(fresh, file);
    for (const Property& other : kProperties) {
      EXPECT_EQ(other.get(fresh), &other == &property ? Stored(property) : other.byDefault)
          << other.name << " after " << property.name;
    }
  }
}

TEST_F(PropertiesTest, EachPropertyIsReportedUnderItsOwnNameBeforeItIsStored) {
  for (const Property& property : kProperties) {
    std::vector<std::string> told;
    tessel.PropertyChanged = [&](const std::string& name) { told.push_back(name + " is " + property.get(tessel)); };
    property.set(tessel, file);
    const bool storedFirst = std::string(property.name) == "TrapFileEnable";
    const std::string seen = storedFirst ? property.stored : property.byDefault;
    EXPECT_THAT(told, ElementsAre(property.name + (" is " + seen)));
    EXPECT_EQ(property.get(tessel), Stored(property)) << property.name;
  }
  EXPECT_THAT(errors, IsEmpty());
}

TEST_F(PropertiesTest, SettingAnUnchangedValueIsReportedToo) {
  tessel.ServerPort("80");
  tessel.TrapFileEnable(false);
  EXPECT_THAT(changed, ElementsAre("ServerPort", "TrapFileEnable"));
}

TEST_F(PropertiesTest, AHandlerThatThrowsDoesNotKeepTheValueOut) {
  tessel.PropertyChanged = [](const std::string&) { throw Error(5, "no"); };
  for (const Property& property : kProperties) {
    property.set(tessel, file);
    EXPECT_EQ(property.get(tessel), Stored(property)) << property.name;
  }
  EXPECT_EQ(errors, std::vector<std::string>(22, "Error - Handler of PropertyChanged. [5] no"));
}

TEST_F(PropertiesTest, ServerPortIsANumberInATrimmedText) {
  struct {
    const char* given;
    const char* stored;
  } const cases[] = {
      {" 8080 ", "8080"},
      {"0", "0"},
      {"80.5", "80"},
      {"81.5", "82"},
      {"80.51", "81"},
      {"00080", "80"},
      {"-1", "-1"},
      {"65536", "65536"},
      {"+443", "443"},
      {"2147483647", "2147483647"},
      {"-2147483648", "-2147483648"},
  };
  for (const auto& c : cases) {
    tessel.ServerPort(c.given);
    EXPECT_EQ(tessel.ServerPort(), c.stored) << c.given;
  }
}

TEST_F(PropertiesTest, ATextThatIsNoPortIsRaisedAndChangesNothing) {
  struct {
    const char* given;
    std::int32_t number;
  } const cases[] = {
      {"", 13},           {"   ", 13},       {"abc", 13},        {"80a", 13},         {"8 0", 13},
      {"99999999999", 6}, {"2147483648", 6}, {"-2147483649", 6}, {"2147483647.5", 6}, {"99999999999999999999999", 6},
  };
  tessel.ServerPort("8080");
  changed.clear();
  for (const auto& c : cases) {
    try {
      tessel.ServerPort(c.given);
      ADD_FAILURE() << "no error for " << c.given;
    } catch (const Error& error) {
      EXPECT_EQ(error.Number(), c.number) << c.given;
      EXPECT_EQ(error.Source(), "Tessel");
      EXPECT_FALSE(error.Description().empty());
    }
    EXPECT_EQ(tessel.ServerPort(), "8080") << c.given;
  }
  EXPECT_THAT(changed, IsEmpty());
  EXPECT_THAT(errors, IsEmpty());
}

TEST_F(PropertiesTest, MaxConnectionsHasALowerEndAndKeepsItsValueAboveTheUpper) {
  struct {
    std::int32_t given, kept;
  } const cases[] = {
      {10000, 10000},
      {10001, 10000},
      {2, 2},
      {5, 5},
      {1, 2},
      {7, 7},
      {0, 2},
      {9, 9},
      {-5, 2},
      {40, 40},
      {100000, 40},
      {std::numeric_limits<std::int32_t>::max(), 40},
      {std::numeric_limits<std::int32_t>::min(), 2},
  };
  for (const auto& c : cases) {
    changed.clear();
    tessel.MaxConnections(c.given);
    EXPECT_EQ(tessel.MaxConnections(), c.kept) << c.given;
    EXPECT_THAT(changed, ElementsAre("MaxConnections")) << c.given;
  }
}

TEST_F(PropertiesTest, TimeOutsAreMovedIntoTheirRange) {
  constexpr std::int32_t kMax = 2'000'000'000;
  struct {
    std::int32_t given, kept;
  } const cases[] = {
      {-1, 0},
      {0, 0},
      {1, 1},
      {kMax - 1, kMax - 1},
      {kMax, kMax},
      {kMax + 1, kMax},
      {std::numeric_limits<std::int32_t>::max(), kMax},
      {std::numeric_limits<std::int32_t>::min(), 0},
  };
  for (const auto& c : cases) {
    tessel.CGITimeout(c.given);
    tessel.ConnectionTimeout(c.given);
    EXPECT_EQ(tessel.CGITimeout(), c.kept) << c.given;
    EXPECT_EQ(tessel.ConnectionTimeout(), c.kept) << c.given;
  }
}

TEST_F(PropertiesTest, SourcesTakeAnyNumber) {
  tessel.ContentTypeSource(static_cast<e_ContentTypeSource>(77));
  tessel.AuthenticationSource(static_cast<e_AuthSource>(-1));
  EXPECT_EQ(Text(tessel.ContentTypeSource()), "77");
  EXPECT_EQ(Text(tessel.AuthenticationSource()), "-1");
}

TEST_F(PropertiesTest, AFileThatCannotBeReadChangesNothingAndIsNotReported) {
  const std::string tooLong = tree.Write("long.txt", std::string(32768, '\n'));
  const std::string bad[] = {"", tree.Text() + "/missing.txt", tree.Text(), tooLong};
  tessel.ContentTypeSourceFile(file);
  tessel.AuthenticationSourceFile(file);
  changed.clear();
  for (const std::string& name : bad) {
    tessel.ContentTypeSourceFile(name);
    tessel.AuthenticationSourceFile(name);
    EXPECT_EQ(tessel.ContentTypeSourceFile(), file) << name;
    EXPECT_EQ(tessel.AuthenticationSourceFile(), file) << name;
  }
  EXPECT_THAT(changed, IsEmpty());
  EXPECT_THAT(errors, IsEmpty());
}

TEST_F(PropertiesTest, AFileOfTheMostLinesIsRead) {
  const std::string longest = tree.Write("long.txt", std::string(32767, '\n'));
  tessel.ContentTypeSourceFile(longest);
  EXPECT_EQ(tessel.ContentTypeSourceFile(), longest);
}

TEST_F(PropertiesTest, InitPropertiesSetsEveryDefaultAgain) {
  for (const Property& property : kProperties) property.set(tessel, file);
  changed.clear();
  tessel.InitProperties();
  for (const Property& property : kProperties) EXPECT_EQ(property.get(tessel), property.byDefault) << property.name;
  EXPECT_THAT(changed, ElementsAre("MaxConnections")) << "the only one that goes through its rule";
}

TEST_F(PropertiesTest, PropertiesMayBeSetInsideTheirOwnEvent) {
  tessel.PropertyChanged = [&](const std::string& name) {
    changed.push_back(name);
    if (changed.size() == 1) tessel.ServerName("inner");
  };
  tessel.ServerName("outer");
  EXPECT_EQ(tessel.ServerName(), "outer") << "stored last";
  EXPECT_THAT(changed, ElementsAre("ServerName", "ServerName"));
}

TEST_F(PropertiesTest, TheLongestBodyIsMovedIntoItsRange) {
  EXPECT_EQ(tessel.MaxBodyBytes(), 64 * 1024 * 1024);
  struct {
    std::int64_t given, kept;
  } const cases[] = {{0, 0}, {-1, 0}, {2147483647, 2147483647}, {2147483648, 2147483647}, {1000, 1000}};
  for (const auto& c : cases) {
    tessel.MaxBodyBytes(c.given);
    EXPECT_EQ(tessel.MaxBodyBytes(), c.kept) << c.given;
  }
}

TEST_F(PropertiesTest, TheMemoryOfAllConnectionsTogetherHasBounds) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(tessel.MaxBodyBytesTotal(), 256 * 1024 * 1024);
  EXPECT_EQ(tessel.MaxUnsentPageBytes(), 256 * 1024 * 1024);
  struct {
    std::int64_t given, kept;
  } const cases[] = {{0, 0}, {-1, 0}, {1000, 1000}, {kMost, kMost}};
  for (const auto& c : cases) {
    tessel.MaxBodyBytesTotal(c.given);
    tessel.MaxUnsentPageBytes(c.given);
    EXPECT_EQ(tessel.MaxBodyBytesTotal(), c.kept) << c.given;
    EXPECT_EQ(tessel.MaxUnsentPageBytes(), c.kept) << c.given;
  }
  EXPECT_THAT(changed, IsEmpty()) << "they are no properties of the interface";
}

TEST_F(PropertiesTest, ProgramsAndThreadsAreMovedIntoTheirRanges) {
  EXPECT_EQ(tessel.MaxPrograms(), 32);
  EXPECT_EQ(tessel.Workers(), 4);
  struct {
    std::int32_t given, programs, workers;
  } const cases[] = {{1, 1, 1}, {0, 1, 0}, {-1, 1, 0}, {4, 4, 4}, {1000, 1000, 4}, {1001, 1000, 4}};
  for (const auto& c : cases) {
    tessel.MaxPrograms(c.given);
    tessel.Workers(c.given);
    EXPECT_EQ(tessel.MaxPrograms(), c.programs) << c.given;
    EXPECT_EQ(tessel.Workers(), c.workers) << c.given;
  }
  EXPECT_THAT(changed, IsEmpty()) << "they are no properties of the interface";
}

TEST_F(PropertiesTest, TheApplicationFolderIsThatOfTheWorldUntilTheHostSetsIt) {
  EXPECT_EQ(tessel.ApplicationFolder(), "/nonexistent/application");
  tessel.ApplicationFolder("/opt/tool");
  EXPECT_EQ(tessel.ApplicationFolder(), "/opt/tool");
  EXPECT_THAT(changed, IsEmpty()) << "it is no property";
}

TEST_F(PropertiesTest, RegistryValuesComeFromAFile) {
  const std::string values = tree.Write("registry.txt", "HKEY_CLASSES_ROOT\\.abc\\Content Type=text/x-abc\n");
  EXPECT_EQ(tessel.LoadRegistryFile(values), 1);
  EXPECT_EQ(tessel.LoadRegistryFile(tree.Text() + "/missing"), 0);
}

TEST_F(PropertiesTest, OneContentTypeIsPutIntoTheRegistry) {
  EXPECT_TRUE(tessel.PutContentType(".abc", "text/x-abc"));
  EXPECT_TRUE(tessel.PutContentType("html", "text/x-own"));
  EXPECT_FALSE(tessel.PutContentType(".abc", ""));
  EXPECT_EQ(RegistryContentType(world.registry, "abc"), "text/x-abc");
  EXPECT_EQ(RegistryContentType(world.registry, "html"), "text/x-own");
}

TEST_F(PropertiesTest, TheAboutBoxShowsTheNameAndTheVersion) {
  tessel.ShowAboutBox();  // nobody listens: nothing happens
  std::vector<std::string> told;
  tessel.AboutBox = [&](const std::string& product, const std::string& version) { told = {product, version}; };
  tessel.ShowAboutBox();
  EXPECT_THAT(told, ElementsAre("Tessel", "1.1.000"));
}

}  // namespace
}  // namespace TesselServer
