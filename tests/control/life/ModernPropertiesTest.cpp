// The properties of the second manner: kept in every mode, and refused outside their ranges.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;

class ModernPropertiesTest : public Kit::ControlTest {
 protected:
  ModernPropertiesTest() {
    tessel.PropertyChanged = [this](const std::string& name) { changed.push_back(name); };
  }

  std::vector<std::string> changed;
};

TEST_F(ModernPropertiesTest, HaveTheirDefaults) {
  EXPECT_EQ(tessel.HTTPMode(), e_HTTPMode::Classic);
  EXPECT_EQ(tessel.ClientTimeout(), 30);
  EXPECT_EQ(tessel.KeepAliveTimeout(), 15);
  EXPECT_EQ(tessel.MaxHeaderBytes(), 65536);
  EXPECT_EQ(tessel.CGIFileTypes(), "exe,cgi");
  EXPECT_EQ(tessel.Charset(), "utf-8");
}

TEST_F(ModernPropertiesTest, EachRaisesPropertyChanged) {
  tessel.HTTPMode(e_HTTPMode::Modern);
  tessel.ClientTimeout(1);
  tessel.KeepAliveTimeout(2);
  tessel.MaxHeaderBytes(2000);
  tessel.CGIFileTypes(" py , sh ");
  tessel.Charset(" latin1 ");
  EXPECT_THAT(changed, ElementsAre("HTTPMode", "ClientTimeout", "KeepAliveTimeout", "MaxHeaderBytes", "CGIFileTypes",
                                   "Charset"));
  EXPECT_EQ(tessel.CGIFileTypes(), "py,sh");
  EXPECT_EQ(tessel.Charset(), "latin1");
}

TEST_F(ModernPropertiesTest, WhatIsOutOfRangeLeavesThemAsTheyWere) {
  const struct {
    std::int32_t given, seconds, bytes;
  } cases[] = {{-1, 30, 65536},     {0, 0, 65536},      {86'400, 86'400, 86'400},   {86'401, 30, 86'401},
               {1023, 1023, 65536}, {1024, 1024, 1024}, {1'048'576, 30, 1'048'576}, {1'048'577, 30, 65536}};
  for (const auto& c : cases) {
    tessel.ClientTimeout(30);
    tessel.KeepAliveTimeout(30);
    tessel.MaxHeaderBytes(65536);
    tessel.ClientTimeout(c.given);
    tessel.KeepAliveTimeout(c.given);
    tessel.MaxHeaderBytes(c.given);
    EXPECT_EQ(tessel.ClientTimeout(), c.seconds) << c.given;
    EXPECT_EQ(tessel.KeepAliveTimeout(), c.seconds) << c.given;
    EXPECT_EQ(tessel.MaxHeaderBytes(), c.bytes) << c.given;
  }
  tessel.HTTPMode(static_cast<e_HTTPMode>(2));
  EXPECT_EQ(tessel.HTTPMode(), e_HTTPMode::Classic);
}

TEST_F(ModernPropertiesTest, AreLoggedAtAStartInTheirModeAlone) {
  const auto told = [this] {
    return std::count_if(control.log.begin(), control.log.end(),
                         [](const std::string& line) { return line == "#HTTP Mode: Modern"; });
  };
  tessel.StartServer();
  EXPECT_EQ(told(), 0);
  tessel.StopServer();
  tessel.HTTPMode(e_HTTPMode::Modern);
  tessel.StartServer();
  EXPECT_EQ(told(), 1);
}

}  // namespace
}  // namespace TesselServer
