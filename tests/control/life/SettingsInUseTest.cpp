// A property that is set while the server runs shows in the very next answer, whichever way it was set.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;

class SettingsInUseTest : public Kit::ControlTest {
 protected:
  SettingsInUseTest() {
    tessel.SSIEnable(true);
    control.tree.Write("echo.html",
                       "<!--#echo var=SERVER_NAME-->|<!--#echo var=SERVER_SOFTWARE-->|<!--#echo var=SERVER_PORT-->|"
                       "<!--#echo var=SERVER_IP-->|<!--#echo var=PATH_INFO-->");
    control.tree.Write("other/echo.html", "<!--#echo var=PATH_INFO-->");
    control.tree.Write("function.html", "[<%=FunctionX()%>]");
    control.tree.Write("tool.exe", "");
    control.tree.Write("a.zzz", "");
    control.tree.Write("app/html/errors/http404.html", "the site's own");
    control.Start();
    control.Get("/echo.html");  // every slot has its record
  }
  std::string Shown(const std::string& url) { return BodyOf(control.Get(url)); }
};

TEST_F(SettingsInUseTest, WhatServerVariablesShowFollowsItsProperty) {
  const std::string root = control.tree.Text();
  tessel.ServerName("name");
  tessel.ServerSoftware("software");
  tessel.ServerPort("81");
  tessel.ServerIP("192.0.2.1");
  EXPECT_EQ(Shown("/echo.html"), "name|software|81|192.0.2.1|" + root) << "though the listener has its old address";
  tessel.VirtualPath(root + "/other");
  EXPECT_EQ(Shown("/echo.html"), root + "/other");
}

TEST_F(SettingsInUseTest, EachSwitchFollowsItsProperty) {
  tessel.CallFunction = [&](std::int32_t& index, std::string&) { tessel.ReturnData(index, "host"); };
  EXPECT_EQ(Shown("/function.html"), "[<%=FunctionX()%>]");
  tessel.HTMLFunctionsEnable(true);
  EXPECT_EQ(Shown("/function.html"), "[host]");
  tessel.SSIEnable(false);
  EXPECT_NE(Shown("/echo.html").find("SERVER_NAME"), std::string::npos) << "the directive itself";
  const std::string warning = control.Get("/tool.exe");
  tessel.CGIEnable(true);
  EXPECT_NE(control.Get("/tool.exe"), warning);
}

TEST_F(SettingsInUseTest, ContentTypesFollowTheirSource) {
  const auto type = [&] { return control.Get("/a.zzz").find("Content-Type: text/x-zzz\r\n") != std::string::npos; };
  EXPECT_FALSE(type());
  tessel.ContentTypeSourceFile(control.tree.Write("types.txt", "zzz,text/x-zzz\n"));
  EXPECT_FALSE(type());
  tessel.ContentTypeSource(e_ContentTypeSource::File);
  EXPECT_TRUE(type());
}

TEST_F(SettingsInUseTest, ContentTypesFollowTheFileThatABagNames) {
  const auto hasType = [&](const std::string& type) {
    return control.Get("/a.zzz").find("Content-Type: " + type + "\r\n") != std::string::npos;
  };
  MemoryPropertyBag bag;
  bag.Put("VirtualPath", control.tree.Text());
  bag.Put("ContentTypeSource", "1");
  for (const std::string type : {"text/x-first", "text/x-second"}) {
    bag.Put("ContentTypeSourceFile", control.tree.Write(type.substr(5) + ".txt", "zzz," + type + "\n"));
    tessel.ReadProperties(bag);
    EXPECT_TRUE(hasType(type)) << type;
  }
  bag.Put("ContentTypeSourceFile", "/nonexistent");
  tessel.ReadProperties(bag);
  EXPECT_TRUE(hasType("application/octet-stream")) << "the types of another file go";
}

TEST_F(SettingsInUseTest, ErrorPagesFollowTheApplicationFolder) {
  tessel.ErrorFilesEnable(true);
  EXPECT_EQ(Shown("/missing"), "");
  tessel.ApplicationFolder(control.tree.Text() + "/app");
  EXPECT_EQ(Shown("/missing"), "the site's own");
}

TEST_F(SettingsInUseTest, ValuesReadFromABagAndDefaultsShowAtOnceToo) {
  MemoryPropertyBag bag;
  bag.Put("ServerName", "from the bag");
  bag.Put("SSIEnable", "True");
  bag.Put("VirtualPath", control.tree.Text());
  tessel.ReadProperties(bag);
  EXPECT_TRUE(Shown("/echo.html").starts_with("from the bag|Orvane Tessel/1.1|80|"));
  tessel.InitProperties();
  tessel.VirtualPath(control.tree.Text());
  EXPECT_NE(Shown("/echo.html").find("SERVER_NAME"), std::string::npos) << "directives are off again";
}

}  // namespace
}  // namespace TesselServer
