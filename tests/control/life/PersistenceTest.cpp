#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "control/Tessel.h"
#include "control/life/Persistence.h"
#include "platform/loop/EventLoop.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using Items = std::map<std::string, std::string, std::less<>>;

// Every setting at a value that is not its default.
const Items kAllKeys = {
    {"HTTPMode", "1"},
    {"ClientTimeout", "31"},
    {"KeepAliveTimeout", "16"},
    {"MaxHeaderBytes", "4096"},
    {"CGIFileTypes", "py"},
    {"Charset", "latin1"},
    {"SSIEnable", "True"},
    {"CGIEnable", "True"},
    {"CGIDirectory", "/cgi"},
    {"CGITimeout", "31"},
    {"VerboseErrorsEnable", "False"},
    {"ErrorFilesEnable", "True"},
    {"ServerPort", "8080"},
    {"ServerIP", "127.0.0.1"},
    {"ServerName", "name"},
    {"ServerMaxConnections", "17"},
    {"ServerSoftware", "Software"},
    {"ContentTypeSource", "2"},
    {"ContentTypeSourceFile", "/types.txt"},
    {"AuthenticationSource", "1"},
    {"AuthenticationSourceFile", "/users.txt"},
    {"HTMLFunctionsEnable", "True"},
    {"DirectoryBrowseEnable", "True"},
    {"VirtualPath", "/srv/www"},
    {"IndexPageNames", "default.htm"},
    {"TrapFileEnable", "True"},
    {"TrapFileTypes", "trp"},
    {"ConnectionTimeout", "11"},
};

// A bag that writes down what is done with it.
class RecordingBag : public PropertyBag {
 public:
  Items items;
  mutable std::vector<std::string> asked;
  std::vector<std::string> written;

 protected:
  std::optional<std::string> Get(std::string_view name) const override {
    asked.emplace_back(name);
    const auto found = items.find(name);
    if (found == items.end()) return std::nullopt;
    return found->second;
  }
  void Set(std::string_view name, std::string_view text) override {
    written.emplace_back(name);
    items[std::string(name)] = text;
  }
  void Remove(std::string_view name) override { items.erase(std::string(name)); }
};

class PersistenceTest : public testing::Test {
 protected:
  PersistenceTest() {
    tessel.PropertyChanged = [this](const std::string& name) { changed.push_back(name); };
  }

  void Read(const Items& items) {
    bag.items = items;
    tessel.ReadProperties(bag);
  }
  Items Written() const {
    MemoryPropertyBag target;
    tessel.WriteProperties(target);
    return target.Items();
  }

  Kit::FakeWorld world;
  EventLoop loop{world};
  Tessel tessel{loop};
  RecordingBag bag;
  std::vector<std::string> changed;
};

TEST_F(PersistenceTest, AFreshControlWritesNothing) {
  EXPECT_EQ(Written(), Items());
  Read({});
  EXPECT_EQ(Written(), Items()) << "an empty bag holds the defaults";
}

TEST_F(PersistenceTest, EveryKeyIsReadAndWritten) {
  EXPECT_EQ(kAllKeys.size(), 28u);
  Read(kAllKeys);
  EXPECT_EQ(Written(), kAllKeys);
}

TEST_F(PersistenceTest, EachKeyIsReadAndWrittenAlone) {
  for (const auto& [key, text] : kAllKeys) {
    tessel.InitProperties();
    Read({{key, text}});
    EXPECT_EQ(Written(), (Items{{key, text}}));
  }
}

TEST_F(PersistenceTest, EveryPropertyComesBack) {
  Read(kAllKeys);
  EXPECT_EQ(tessel.ServerIP(), "127.0.0.1");
  EXPECT_EQ(tessel.ServerPort(), "8080");
  EXPECT_EQ(tessel.ServerSoftware(), "Software");
  EXPECT_EQ(tessel.ServerName(), "name");
  EXPECT_EQ(tessel.ContentTypeSource(), e_ContentTypeSource::Internal);
  EXPECT_EQ(tessel.ContentTypeSourceFile(), "/types.txt") << "not read in, so it need not be there";
  EXPECT_EQ(tessel.AuthenticationSource(), e_AuthSource::DirectoryFile);
  EXPECT_EQ(tessel.AuthenticationSourceFile(), "/users.txt");
  EXPECT_TRUE(tessel.CGIEnable());
  EXPECT_EQ(tessel.CGIDirectory(), "/cgi");
  EXPECT_EQ(tessel.CGITimeout(), 31);
  EXPECT_TRUE(tessel.SSIEnable());
  EXPECT_TRUE(tessel.HTMLFunctionsEnable());
  EXPECT_TRUE(tessel.DirectoryBrowseEnable());
  EXPECT_TRUE(tessel.ErrorFilesEnable());
  EXPECT_FALSE(tessel.VerboseErrorsEnable());
  EXPECT_EQ(tessel.MaxConnections(), 17);
  EXPECT_EQ(tessel.ConnectionTimeout(), 11);
  EXPECT_EQ(tessel.VirtualPath(), "/srv/www");
  EXPECT_EQ(tessel.IndexPageNames(), "default.htm");
  EXPECT_TRUE(tessel.TrapFileEnable());
  EXPECT_EQ(tessel.TrapFileTypes(), "trp");
  EXPECT_EQ(tessel.HTTPMode(), e_HTTPMode::Modern);
  EXPECT_EQ(tessel.ClientTimeout(), 31);
  EXPECT_EQ(tessel.KeepAliveTimeout(), 16);
  EXPECT_EQ(tessel.MaxHeaderBytes(), 4096);
  EXPECT_EQ(tessel.CGIFileTypes(), "py");
  EXPECT_EQ(tessel.Charset(), "latin1");
}

TEST_F(PersistenceTest, ReadsAndWritesInFixedOrders) {
  Read(kAllKeys);
  EXPECT_THAT(bag.asked, ElementsAre("SSIEnable", "CGIEnable", "CGIDirectory", "CGITimeout", "VerboseErrorsEnable",
                                     "ErrorFilesEnable", "ServerPort", "ServerIP", "ServerSoftware",
                                     "ServerMaxConnections", "ContentTypeSource", "ContentTypeSourceFile",
                                     "AuthenticationSource", "AuthenticationSourceFile", "HTMLFunctionsEnable",
                                     "DirectoryBrowseEnable", "VirtualPath", "IndexPageNames", "TrapFileEnable",
                                     "TrapFileTypes", "ConnectionTimeout", "ServerName", "HTTPMode", "ClientTimeout",
                                     "KeepAliveTimeout", "MaxHeaderBytes", "CGIFileTypes", "Charset"));
  RecordingBag target;
  tessel.WriteProperties(target);
  EXPECT_THAT(target.written,
              ElementsAre("SSIEnable", "CGIEnable", "CGIDirectory", "CGITimeout", "VerboseErrorsEnable",
                          "ErrorFilesEnable", "ServerPort", "ServerIP", "ServerName", "ServerMaxConnections",
                          "ServerSoftware", "ContentTypeSource", "ContentTypeSourceFile", "AuthenticationSource",
                          "AuthenticationSourceFile", "HTMLFunctionsEnable", "DirectoryBrowseEnable", "VirtualPath",
                          "IndexPageNames", "TrapFileEnable", "TrapFileTypes", "ConnectionTimeout", "HTTPMode",
                          "ClientTimeout", "KeepAliveTimeout", "MaxHeaderBytes", "CGIFileTypes", "Charset"));
}

TEST_F(PersistenceTest, AnOlderValueLeavesTheBagWhenTheDefaultIsWritten) {
  bag.items = {{"ServerPort", "8080"}, {"ForeignKey", "stays"}};
  tessel.WriteProperties(bag);
  EXPECT_EQ(bag.items, (Items{{"ForeignKey", "stays"}}));
}

TEST_F(PersistenceTest, WhatTheBagLacksGoesBackToItsDefault) {
  Read(kAllKeys);
  Read({});
  EXPECT_EQ(Written(), (Items{{"ServerName", "name"}})) << "an empty name leaves the present one";
}

TEST_F(PersistenceTest, MaxConnectionsGoesThroughItsRule) {
  tessel.MaxConnections(9);
  struct {
    const char* text;
    std::int32_t kept;
  } const cases[] = {{"1", 2}, {"-5", 2}, {"10000", 10000}, {"10001", 10000}, {"3000000000", 10000}, {"x", 10000}};
  for (const auto& c : cases) {
    Read({{"ServerMaxConnections", c.text}});
    EXPECT_EQ(tessel.MaxConnections(), c.kept) << c.text;
  }
  Read({{"MaxConnections", "50"}});
  EXPECT_EQ(tessel.MaxConnections(), 2) << "that is not its key";
}

TEST_F(PersistenceTest, OnlyTwoKeysGoThroughTheRulesOfTheirProperties) {
  Read(kAllKeys);
  EXPECT_THAT(changed, ElementsAre("MaxConnections", "IndexPageNames"));
}

TEST_F(PersistenceTest, TimeOutsAndTextsAreReadAsTheyStand) {
  Read({{"CGITimeout", "-7"},
        {"ConnectionTimeout", "2147483647"},
        {"ServerIP", " 127.0.0.1 "},
        {"TrapFileTypes", " a , b "},
        {"IndexPageNames", " a.htm , b.htm "}});
  EXPECT_EQ(tessel.CGITimeout(), -7);
  EXPECT_EQ(tessel.ConnectionTimeout(), 2147483647);
  EXPECT_EQ(tessel.ServerIP(), " 127.0.0.1 ");
  EXPECT_EQ(tessel.TrapFileTypes(), " a , b ");
  EXPECT_EQ(tessel.IndexPageNames(), "a.htm,b.htm");
}

TEST_F(PersistenceTest, ABadValueLeavesItsPropertyAndHarmsNoOther) {
  Items bad = kAllKeys;
  for (auto& [key, text] : bad) {
    if (text == "True" || text == "False" || text.find_first_not_of("0123456789") == std::string::npos) text = "bad!";
  }
  Read(bad);
  EXPECT_EQ(Written(), (Items{{"AuthenticationSourceFile", "/users.txt"},
                              {"CGIDirectory", "/cgi"},
                              {"CGIFileTypes", "py"},
                              {"Charset", "latin1"},
                              {"ContentTypeSourceFile", "/types.txt"},
                              {"IndexPageNames", "default.htm"},
                              {"ServerIP", "127.0.0.1"},
                              {"ServerName", "name"},
                              {"ServerSoftware", "Software"},
                              {"TrapFileTypes", "trp"},
                              {"VirtualPath", "/srv/www"}}));
}

TEST_F(PersistenceTest, SettingsSurviveAFile) {
  const Kit::TemporaryTree tree;
  FilePropertyBag file(tree.Text() + "/web.conf");
  Read(kAllKeys);
  tessel.WriteProperties(file);
  file.Save();

  FilePropertyBag again(tree.Text() + "/web.conf");
  again.Load();
  Tessel other(loop);
  other.ReadProperties(again);
  MemoryPropertyBag written;
  other.WriteProperties(written);
  EXPECT_EQ(written.Items(), kAllKeys);
}

// A host's own bag may fail in its own way.
class FailingBag : public PropertyBag {
 protected:
  std::optional<std::string> Get(std::string_view name) const override {
    if (name != "ServerPort") throw std::runtime_error("no storage");
    return "8080";
  }
  void Set(std::string_view, std::string_view) override { throw std::runtime_error("no storage"); }
  void Remove(std::string_view name) override {
    if (name != "SSIEnable") throw Error(75, "no storage");
  }
};

TEST_F(PersistenceTest, ABagThatFailsNeverReachesTheHost) {
  FailingBag failing;
  EXPECT_NO_THROW(tessel.ReadProperties(failing));
  EXPECT_EQ(tessel.ServerPort(), "8080") << "what can be read is read";
  EXPECT_NO_THROW(tessel.WriteProperties(failing));
}

TEST_F(PersistenceTest, TheRulesAreHandedTheirValuesEvenWhenTheBagIsEmpty) {
  Settings settings;
  std::int32_t connections = 0;
  std::string pages;
  ReadSettings(bag, settings,
               {[&](std::int32_t value) { connections = value; }, [&](const std::string& value) { pages = value; }});
  EXPECT_EQ(connections, 2);
  EXPECT_EQ(pages, "index.html");
}

}  // namespace
}  // namespace TesselServer
