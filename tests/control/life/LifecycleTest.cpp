// Start, stop and what is said on the way.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "control/life/Lifecycle.h"
#include "tests/kit/TestControl.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using Kit::TestControl;
using Kit::TestCore;
using Texts = std::vector<std::string>;

constexpr const char* kLogStamp = "[15/11/2026:18:20:05 -0000]";

// The lines of a start, with the fifteen configuration lines as the properties are.
Texts StartLog(const Texts& configuration) {
  Texts lines{std::string("#") + kLogStamp + " - Starting Server ..."};
  lines.insert(lines.end(), configuration.begin(), configuration.end());
  lines.push_back(std::string("#") + kLogStamp + " - Server Started.");
  return lines;
}

TEST(LifecycleTest, StartTellsTheWholeConfiguration) {
  TestControl control;
  EXPECT_TRUE(control.tessel.StartServer());
  const std::string root = control.tree.Text();
  EXPECT_EQ(control.log,
            StartLog({"#Connection Timeout [min]: 10", "#CGI Enabled: False", "#CGI Directory: " + root + "\\scripts",
                      "#CGI Timeout [sec]: 30", "#SSI Enabled: False", "#HTML Functions Enabled: False",
                      "#Directory Browsing: False", "#Verbose Server Errors: True", "#Use Error Files:False",
                      "#Max Connections: 2", "#Server Name: testhost", "#Server IP Address: 127.0.0.1", "#HTTP Port: 0",
                      "#HTML Home Path: " + root, "#Index Page Name: index.html"}));
  EXPECT_EQ(control.status, (Texts{"Starting Server ...", "Server Started. 127.0.0.1:0 - testhost"}));
  EXPECT_TRUE(control.errors.empty());
}

TEST(LifecycleTest, StartTellsOtherSettingsToo) {
  TestControl control;
  Tessel& tessel = control.tessel;
  tessel.ServerIP("");
  tessel.ConnectionTimeout(0);
  tessel.CGIEnable(true);
  tessel.CGIDirectory("/srv/programs");
  tessel.CGITimeout(0);
  tessel.SSIEnable(true);
  tessel.HTMLFunctionsEnable(true);
  tessel.DirectoryBrowseEnable(true);
  tessel.VerboseErrorsEnable(false);
  tessel.ErrorFilesEnable(true);
  tessel.MaxConnections(100);
  tessel.IndexPageNames("default.htm, index.html");
  EXPECT_TRUE(tessel.StartServer());
  EXPECT_EQ(
      control.log,
      StartLog({"#Connection Timeout [min]: 0", "#CGI Enabled: True", "#CGI Directory: /srv/programs",
                "#CGI Timeout [sec]: 0", "#SSI Enabled: True", "#HTML Functions Enabled: True",
                "#Directory Browsing: True", "#Verbose Server Errors: False", "#Use Error Files:True",
                "#Max Connections: 100", "#Server Name: testhost", "#Server IP Address: All Available", "#HTTP Port: 0",
                "#HTML Home Path: " + control.tree.Text(), "#Index Page Name: default.htm,index.html"}));
  EXPECT_EQ(control.status, (Texts{"Starting Server ...", "Server Started. All Available IP Addresses:0 - testhost"}));
}

TEST(LifecycleTest, StopTellsItsBeginningAndItsEnd) {
  TestControl control;
  control.Start();
  EXPECT_TRUE(control.tessel.StopServer());
  EXPECT_EQ(control.log, (Texts{std::string("#") + kLogStamp + " - Stopping Server ...",
                                std::string("#") + kLogStamp + " - Server Stopped."}));
  EXPECT_EQ(control.status, (Texts{"Stopping Server ...", "Server Stopped."}));
  EXPECT_FALSE(control.tessel.ServerRunning());
  EXPECT_FALSE(control.tessel.IsListening());
}

TEST(LifecycleTest, StopMayBeCalledInAnyStateAndTwice) {
  TestControl control;
  EXPECT_TRUE(control.tessel.StopServer()) << "before the first start";
  EXPECT_TRUE(control.tessel.StartServer());
  EXPECT_TRUE(control.tessel.StopServer());
  EXPECT_TRUE(control.tessel.StopServer());
  EXPECT_TRUE(control.errors.empty());
}

TEST(LifecycleTest, SecondStartIsFalseAndSilent) {
  TestControl control;
  control.Start();
  EXPECT_FALSE(control.tessel.StartServer());
  EXPECT_TRUE(control.log.empty());
  EXPECT_TRUE(control.status.empty());
  EXPECT_TRUE(control.errors.empty());
}

TEST(LifecycleTest, CountersGoOnAndUpTimeRestarts) {
  TestControl control;
  control.tree.Write("index.html", "page");
  control.Start();
  control.Get("/");
  control.world.Advance(65'000);
  EXPECT_EQ(control.tessel.Stats_UpTime(), "00:00:01:05");
  control.tessel.StopServer();
  control.Start();
  EXPECT_EQ(control.tessel.Stats_UpTime(), "00:00:00:00");
  EXPECT_EQ(control.tessel.Stats_Requests(), "1");
  control.Get("/");
  EXPECT_EQ(control.tessel.Stats_Requests(), "2");
  EXPECT_TRUE(control.errors.empty()) << "no element is found loaded already";
}

TEST(LifecycleTest, ServerNameAlternatesByTheNameShownBefore) {
  struct {
    std::string property;
    Texts shown;  // one start after the other
  } const cases[] = {{"", {"testhost", "", "testhost", ""}}, {" web ", {"testhost", "web", "web", "web"}}};
  for (const auto& c : cases) {
    TestControl control;
    control.tessel.ServerName(c.property);
    for (const std::string& name : c.shown) {
      control.log.clear();
      control.tessel.StartServer();
      EXPECT_EQ(control.log[11], "#Server Name: " + name);
      control.tessel.StopServer();
    }
  }
}

TEST(LifecycleTest, EmptyFoldersAreFilledAndReported) {
  TestControl control;
  control.tessel.ApplicationFolder("/opt/tool");
  control.tessel.VirtualPath("");
  Texts changed;
  control.tessel.PropertyChanged = [&](const std::string& name) { changed.push_back(name); };
  control.tessel.StartServer();
  EXPECT_EQ(control.tessel.VirtualPath(), "/opt/tool");
  EXPECT_EQ(control.tessel.CGIDirectory(), "/opt/tool\\scripts");
  EXPECT_EQ(changed, (Texts{"VirtualPath", "CGIDirectory"}));
}

TEST(LifecycleTest, WithoutAnApplicationFolderTheRootIsHtml) {
  TestControl control;
  control.tessel.ApplicationFolder("");
  control.tessel.VirtualPath("");
  Texts changed;
  control.tessel.PropertyChanged = [&](const std::string& name) { changed.push_back(name); };
  control.tessel.StartServer();
  EXPECT_EQ(control.tessel.VirtualPath(), "\\html");
  EXPECT_EQ(control.tessel.CGIDirectory(), "\\scripts");
  EXPECT_EQ(changed, (Texts{"VirtualPath", "CGIDirectory", "VirtualPath"}));
}

TEST(LifecycleTest, AddressInUseIsReportedAndRaised) {
  TestControl first;
  const std::int32_t port = first.Start();
  TestControl second;
  second.tessel.ServerPort(std::to_string(port));
  try {
    second.tessel.StartServer();
    FAIL() << "nothing was raised";
  } catch (const Error& error) {
    EXPECT_EQ(error.Number(), 10048);
    EXPECT_EQ(error.Description(), "Address in use");
    EXPECT_EQ(error.Source(), "Tessel");
    EXPECT_EQ(error.HelpContext(), 37);
  }
  EXPECT_EQ(second.errors, Texts{"Error - StartServer. [10048] Address in use"});
  EXPECT_EQ(second.tessel.Stats_Errors(), "1");
  EXPECT_EQ(second.tessel.Stats_UpTime(), "") << "the start did not come that far";
  EXPECT_TRUE(second.tessel.ServerRunning());
  EXPECT_FALSE(second.tessel.StartServer()) << "until it is stopped";
  first.tessel.StopServer();
  second.tessel.StopServer();
  EXPECT_TRUE(second.tessel.StartServer());
}

TEST(LifecycleTest, AddressThatIsNotOursIsOnlyReportedAndTriedAgain) {
  TestCore core;
  core.tree.Write("index.html", "page");
  core.core.state.settings.ServerIP = "192.0.2.1";
  EXPECT_TRUE(core.core.lifecycle.StartServer());
  EXPECT_EQ(core.errors, Texts{"Error - TCP::Listen. [10049] Can't assign requested address."});
  EXPECT_TRUE(core.core.state.running);
  EXPECT_EQ(core.State(kListener), SocketState::kClosed);
  EXPECT_EQ(core.Port(), 0);
  core.Pass(10'000);
  EXPECT_EQ(core.errors.back(), "Error - TimerCheckConnections. [10049] Can't assign requested address.");
  core.core.state.listenIP = "127.0.0.1";  // as if the machine had come by the address
  core.Pass(10'000);
  EXPECT_EQ(core.State(kListener), SocketState::kListening);
  EXPECT_TRUE(core.Get("/").ends_with("page"));
}

TEST(LifecycleTest, NewAddressWaitsForTheNextStart) {
  TestControl control;
  control.tree.Write("index.html", "page");
  const std::int32_t port = control.Start();
  control.tessel.ServerIP("192.0.2.1");
  control.tessel.ServerPort("99999");
  for (int i = 0; i < 5; ++i) {
    control.world.Advance(10'000);
    control.loop.RunOnce(0);
  }
  EXPECT_EQ(control.tessel.ListeningPort(), port) << "the listener was rebuilt where it was";
  EXPECT_EQ(Kit::BodyOf(control.Get("/")), "page");
  EXPECT_TRUE(control.errors.empty());
  control.tessel.StopServer();
  control.tessel.StartServer();
  EXPECT_FALSE(control.tessel.IsListening());
}

TEST(LifecycleTest, StatusLineTellsThePort) {
  std::int32_t port = 0;
  {
    TestControl free;
    port = free.Start();
  }
  TestControl control;
  control.tessel.ServerIP("");
  control.tessel.ServerPort(std::to_string(port));
  control.tessel.StartServer();
  EXPECT_EQ(control.status.back(),
            "Server Started. All Available IP Addresses:" + std::to_string(port) + " - testhost");
}

TEST(LifecycleTest, PortsThatDoNotExistAreOnlyReported) {
  for (const char* port : {"-1", "65536", "2147483647"}) {
    TestControl control;
    control.tessel.ServerPort(port);
    EXPECT_TRUE(control.tessel.StartServer()) << port;
    EXPECT_EQ(control.errors, Texts{"Error - TCP::Listen. [10049] Can't assign requested address."}) << port;
  }
}

TEST(LifecycleTest, ElementThatIsLoadedAlreadyIsReported) {
  TestCore core;
  core.core.state.settings.ServerPort = 0;
  core.core.state.sckWS.Load(2);
  EXPECT_TRUE(core.core.lifecycle.StartServer());
  EXPECT_EQ(core.errors, Texts{"127.0.0.1:0 - There is another web server using that port. "});
  EXPECT_TRUE(core.core.state.running);
}

TEST(LifecycleTest, TooFewDescriptorsAreReportedOnce) {
  TestControl control;
  control.world.descriptorLimit = 1024;
  control.tessel.MaxConnections(1000);
  control.tessel.StartServer();
  EXPECT_EQ(control.errors, Texts{"MaxConnections is 1000, but the process may open only 1024 descriptors: connections "
                                  "beyond that wait."});
  TestControl small;
  small.world.descriptorLimit = 1024;
  small.tessel.MaxConnections(900);
  small.tessel.StartServer();
  EXPECT_TRUE(small.errors.empty());
}

TEST(LifecycleTest, BeforeTheFirstPropertiesTheSoftwareIsProvisional) {
  Kit::FakeWorld world;
  EventLoop loop(world);
  Tessel owner(loop);
  TesselCore core(loop, owner);
  core.lifecycle.Initialize();
  EXPECT_EQ(core.state.settings.ServerSoftware, "Orvane Tessel Server/1.1");
  EXPECT_EQ(core.state.authFileName, "htaccess.txt");
  EXPECT_EQ(core.state.requestTemplate.VirtualPath(), world.applicationFolder + "\\html");
  EXPECT_EQ(owner.ServerSoftware(), "Orvane Tessel/1.1");
  core.lifecycle.Terminate();
}

TEST(LifecycleTest, AddressInUseOfARecordIsTheMachinesUnlessOneIsSet) {
  TestControl control;
  control.tessel.TrapFileEnable(true);
  Texts addresses;
  control.tessel.FileRequest = [&](std::int32_t& index, std::string&, std::string&) {
    addresses.push_back(control.tessel.CGIValue(index, "SERVER_IP"));
    control.tessel.TrapFileData(index, "", true);
  };
  control.tessel.ServerIP("");
  control.Start();
  control.Get("/");
  control.tessel.ServerIP("127.0.0.1");
  control.Get("/");
  EXPECT_EQ(addresses, (Texts{"192.0.2.1", "127.0.0.1"}));
}

TEST(LifecycleTest, TenThousandConnectionsStartAndStop) {
  TestControl control;
  control.tree.Write("index.html", "page");
  control.tessel.MaxConnections(10'000);
  for (int i = 0; i < 3; ++i) {
    control.Start();
    EXPECT_EQ(Kit::BodyOf(control.Get("/")), "page");
    EXPECT_EQ(control.tessel.Stats_FreeConnections(), "10000/10000");
    EXPECT_TRUE(control.tessel.StopServer());
  }
}

}  // namespace
}  // namespace TesselServer
