// A host may stop, restart or destroy the control inside a function of a page, while the page is still being made:
// nothing more is asked or run for it, nothing crashes, and the next start serves.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "control/Tessel.h"
#include "tests/kit/Descriptors.h"
#include "tests/kit/FakeWorld.h"
#include "tests/kit/Programs.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

using Kit::RawClient;

// A control that does something with itself at the n-th function that it is asked for.
class FunctionScene {
 public:
  FunctionScene() {
    tree.Write("root/index.html", "index");
    tree.Write(
        "root/page.html",
        "<!--#include file=\"part.html\"--><%=FunctionMain(1)%><!--#exec cgi=\"mark.exe\"--><%=FunctionMain(2)%>");
    tree.Write("root/part.html", "<%=FunctionPart(1)%><%=FunctionPart(2)%>");
    tree.Write("html/errors/http404.html",
               "<!--#include file=\"part.html\"--><%=FunctionMain(1)%><%=FunctionMain(2)%>");
    tree.Write("html/errors/part.html", "<%=FunctionPart(1)%><%=FunctionPart(2)%>");
    Kit::WriteProgram(tree, "cgi/mark.exe", ": > $here/mark");
    tessel->ServerIP("127.0.0.1");
    tessel->ServerPort("0");
    tessel->VirtualPath(tree.Text() + "/root");
    tessel->ApplicationFolder(tree.Text());
    tessel->CGIDirectory(tree.Text() + "/cgi");
    tessel->MaxConnections(4);
    tessel->CGIEnable(true);
    tessel->SSIEnable(true);
    tessel->HTMLFunctionsEnable(true);
    tessel->ErrorFilesEnable(true);
    tessel->LogEvent = [this](std::string&) { ++reports; };
    tessel->HTTPLog = [this](std::string& line) { lines += line[0] != '#'; };
    tessel->FileRequest = [this](std::int32_t& index, std::string&, std::string&) {
      tessel->TrapFileData(index, "", true);
    };
    tessel->CallFunction = [this](std::int32_t& index, std::string&) {
      if (++asked == at) {
        act(*this, index);
      } else {
        tessel->ReturnData(index, "answer");
      }
    };
    tessel->StartServer();
  }

  // Asks for a page, and runs the loop until its client sees the end. What the client got.
  std::string Ask(const std::string& url) {
    RawClient client(tessel->ListeningPort());
    client.Send(loop, "GET " + url + " HTTP/1.0\r\n\r\n");
    client.ReceiveAll(loop);
    EXPECT_TRUE(client.Ended());
    return client.Received();
  }

  Kit::TemporaryTree tree;
  Kit::FakeWorld world;
  EventLoop loop{world};
  std::unique_ptr<Tessel> tessel = std::make_unique<Tessel>(loop);
  std::function<void(FunctionScene&, std::int32_t)> act;
  int at = 0;
  int asked = 0;
  int reports = 0;
  int lines = 0;
};

constexpr int kFunctions = 4;      // that the page asks for
constexpr int kBeforeProgram = 2;  // so many of them before its program is run

// Acts at each function of the page in turn. `way` makes the page be asked for.
void ActAtEachFunction(const std::function<void(FunctionScene&, std::int32_t)>& act,
                       const std::function<void(FunctionScene&)>& check) {
  for (const std::string url : {"/page.html", "/none.html"}) {
    for (const bool trapped : {false, true}) {
      for (int at = 1; at <= kFunctions; ++at) {
        SCOPED_TRACE(url + (trapped ? " trapped, " : ", ") + std::to_string(at));
        const auto before = Kit::CountDescriptors();
        {
          FunctionScene scene;
          scene.at = at;
          scene.act = act;
          scene.tessel->TrapFileEnable(trapped);
          EXPECT_EQ(scene.Ask(url), "") << "nothing of the page goes out";
          EXPECT_EQ(scene.asked, at) << "nothing is asked for any more";
          EXPECT_EQ(scene.lines, 0) << "nor logged";
          const bool runs = url == "/page.html" && at > kBeforeProgram;
          EXPECT_EQ(std::filesystem::exists(scene.tree.Path() / "mark"), runs) << "nor run";
          check(scene);
        }
        EXPECT_EQ(Kit::CountDescriptors(), before);
      }
    }
  }
}

// That the server starts if it does not stand, and serves the whole page.
void ExpectServing(FunctionScene& scene) {
  if (!scene.tessel->ServerRunning()) {
    EXPECT_TRUE(scene.tessel->StartServer());
  }
  scene.asked = 0;
  scene.at = 0;
  EXPECT_TRUE(scene.Ask("/page.html").ends_with("answeransweransweranswer"));
  EXPECT_EQ(scene.asked, kFunctions);
}

TEST(StopInsideFunctionsTest, StopServer) {
  ActAtEachFunction([](FunctionScene& scene, std::int32_t) { EXPECT_TRUE(scene.tessel->StopServer()); },
                    [](FunctionScene& scene) {
                      EXPECT_FALSE(scene.tessel->IsListening());
                      EXPECT_EQ(scene.reports, 0);
                      ExpectServing(scene);
                    });
}

TEST(StopInsideFunctionsTest, AnAnswerAfterTheStopReachesNoClient) {
  ActAtEachFunction(
      [](FunctionScene& scene, std::int32_t index) {
        scene.tessel->ReturnData(index, "before");
        scene.tessel->StopServer();
        scene.tessel->ReturnData(index, "behind");
        EXPECT_EQ(scene.tessel->QueryString(index, ""), "");
        EXPECT_EQ(scene.tessel->RequestBody(index), "");
        EXPECT_EQ(scene.tessel->CGIValue(index, "DOCUMENT_URI"), "");
      },
      [](FunctionScene& scene) {
        EXPECT_EQ(scene.reports, 0);
        ExpectServing(scene);
      });
}

TEST(StopInsideFunctionsTest, AHandlerThatThrowsAfterTheStopIsReported) {
  ActAtEachFunction(
      [](FunctionScene& scene, std::int32_t) {
        scene.tessel->StopServer();
        throw std::runtime_error("mine");
      },
      [](FunctionScene& scene) {
        EXPECT_EQ(scene.reports, 1);
        ExpectServing(scene);
      });
}

TEST(StopInsideFunctionsTest, Restart) {
  ActAtEachFunction(
      [](FunctionScene& scene, std::int32_t) {
        scene.tessel->StopServer();
        EXPECT_TRUE(scene.tessel->StartServer());
      },
      [](FunctionScene& scene) {
        EXPECT_TRUE(scene.tessel->IsListening());
        EXPECT_EQ(scene.reports, 0);
        ExpectServing(scene);
      });
}

TEST(StopInsideFunctionsTest, RestartAndServeTheSameSlotInside) {
  ActAtEachFunction(
      [](FunctionScene& scene, std::int32_t index) {
        scene.tessel->StopServer();
        EXPECT_TRUE(scene.tessel->StartServer());
        const bool trapped = scene.tessel->TrapFileEnable();
        scene.tessel->TrapFileEnable(false);
        EXPECT_TRUE(scene.Ask("/index.html").ends_with("index"));
        scene.tessel->TrapFileEnable(trapped);
        scene.lines = 0;
        scene.tessel->ReturnData(index, "for nobody");
      },
      ExpectServing);
}

TEST(StopInsideFunctionsTest, Destroy) {
  ActAtEachFunction([](FunctionScene& scene, std::int32_t) { scene.tessel.reset(); },
                    [](FunctionScene& scene) { EXPECT_FALSE(scene.loop.RunOnce(0)); });
}

TEST(StopInsideFunctionsTest, DestroyAndThrow) {
  ActAtEachFunction(
      [](FunctionScene& scene, std::int32_t) {
        scene.tessel.reset();
        throw std::runtime_error("mine");
      },
      [](FunctionScene& scene) { EXPECT_EQ(scene.reports, 0) << "nobody is there to hear"; });
}

}  // namespace
}  // namespace TesselServer
