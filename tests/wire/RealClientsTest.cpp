// The clients that people really use, each compared byte for byte with what lies on disk.

#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::ClientResult;
using Kit::Noise;
using Kit::ReadFile;

class RealClientsTest : public Kit::WireTest {
 protected:
  RealClientsTest() {
    index = control.Write("index.html", "<html><body>the root</body></html>");
    page = control.Write("docs/a page.htm", "<p>a page with a blank in its name</p>");
    picture = control.Write("pictures/noise.png", Noise(300'000));
    control.Write("empty.txt", "");
    control.EchoTrapped();
    control.Start();
  }

  std::string Curl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"curl", "-sS", "--max-time", "15"});
    return RunWell(std::move(arguments));
  }

  std::string index, page, picture;
};

constexpr const char* kNotFoundBegin = "<html><head>";
constexpr const char* kNotFoundText = "Sorry, the requested page does not exist on this server.";

// ---- curl

TEST_F(RealClientsTest, CurlFetchesFilesByteForByte) {
  EXPECT_EQ(Curl({control.Url("/")}), index);
  EXPECT_EQ(Curl({control.Url("/index.html")}), index);
  EXPECT_EQ(Curl({control.Url("/docs/a%20page.htm")}), page);
  EXPECT_EQ(Curl({control.Url("/DOCS/A%20Page.HTM")}), page);
  EXPECT_EQ(Curl({control.Url("/pictures/noise.png?size=big")}), picture);
  EXPECT_EQ(Curl({control.Url("/empty.txt")}), "");
}

TEST_F(RealClientsTest, CurlMaySpeakInSeveralWays) {
  const std::vector<std::vector<std::string>> ways = {
      {"--http1.0"},
      {"--http1.1"},
      {"--http2"},  // asks for an upgrade, which is not taken up
      {"--compressed"},
      {"-H", "Expect: 100-continue"},
      {"-H", "Connection: keep-alive"},
      {"-H", "Range: bytes=10-19"},
      {"-H", "Cookie: " + std::string(8000, 'c')},
      {"-A", ""},
      {"--tcp-fastopen"},
  };
  for (const auto& way : ways) {
    std::vector<std::string> arguments = way;
    arguments.push_back(control.Url("/pictures/noise.png"));
    EXPECT_EQ(Curl(arguments), picture) << way[0];
  }
}

TEST_F(RealClientsTest, CurlFetchesManyFilesWithOneCall) {
  std::vector<std::string> arguments;
  for (int i = 0; i < 20; ++i) arguments.push_back(control.Url("/index.html"));
  std::string expected;
  for (int i = 0; i < 20; ++i) expected += index;
  EXPECT_EQ(Curl(arguments), expected);
}

TEST_F(RealClientsTest, CurlSeesThePageForWhatIsNotThere) {
  const std::string shown = Curl({"-w", "%{http_code} %{content_type}", control.Url("/nothing.htm")});
  EXPECT_TRUE(shown.starts_with(kNotFoundBegin)) << shown;
  EXPECT_NE(shown.find(kNotFoundText), std::string::npos) << shown;
  EXPECT_TRUE(shown.ends_with("200 text/html")) << shown;
  ASSERT_EQ(control.log.size(), 1u);
  EXPECT_NE(control.log[0].find("\"GET /nothing.htm HTTP/1.1\" 404 "), std::string::npos) << control.log[0];
}

TEST_F(RealClientsTest, CurlSeesTheBareCodeWhenErrorsAreNotVerbose) {
  control.tessel.VerboseErrorsEnable(false);
  EXPECT_EQ(Curl({"-w", "%{http_code} %{size_download}", control.Url("/nothing.htm")}), "404 0");
  EXPECT_EQ(Kit::RunClient(loop, {"curl", "-sSf", control.Url("/nothing.htm")}).status, 22);
}

TEST_F(RealClientsTest, CurlsHeadRequestIsABadRequest) {
  control.tessel.VerboseErrorsEnable(false);
  EXPECT_TRUE(Curl({"-I", control.Url("/index.html")}).starts_with("HTTP/1.0 400 Bad Request\r\n"));
  control.tessel.VerboseErrorsEnable(true);
  EXPECT_TRUE(Curl({"-I", control.Url("/index.html")}).starts_with("HTTP/1.0 200 OK\r\n"));
  EXPECT_TRUE(control.log.empty()) << control.log[0];
}

TEST_F(RealClientsTest, CurlPostsAForm) {
  EXPECT_EQ(Curl({"-d", "name=value&x=1", control.Url("/form.trp?q=7")}), "POST /form.trp?q=7\nname=value&x=1");
  EXPECT_EQ(Curl({"-d", "", control.Url("/form.trp")}), "GET /form.trp?\n");
  EXPECT_EQ(Curl({"-d", "name=value", control.Url("/index.html")}), index);
}

TEST_F(RealClientsTest, CurlUploadsFiles) {
  const std::string bytes = Noise(1024 * 1024, 7);
  const std::string file = control.tree.Write("upload.bin", bytes);
  EXPECT_EQ(Curl({"--data-binary", "@" + file, control.Url("/up.trp")}), "POST /up.trp?\n" + bytes);
  EXPECT_EQ(Curl({"--http1.0", "--data-binary", "@" + file, control.Url("/up.trp")}), "POST /up.trp?\n" + bytes);
  EXPECT_EQ(Curl({"-T", file, control.Url("/up.trp")}), "POST /up.trp?\n" + bytes);

  const std::string answer = Curl({"-F", "note=a few words", "-F", "file=@" + file, control.Url("/up.trp")});
  EXPECT_TRUE(answer.starts_with("POST /up.trp?\n--------")) << answer.substr(0, 200);
  EXPECT_NE(answer.find("\r\n\r\na few words\r\n"), std::string::npos);
  EXPECT_NE(answer.find("\r\n\r\n" + bytes + "\r\n--------"), std::string::npos);
}

TEST_F(RealClientsTest, CurlsChunkedUploadIsABadRequest) {
  control.tessel.VerboseErrorsEnable(false);
  const std::string file = control.tree.Write("upload.bin", Noise(100'000));
  const auto args = {"-H", "Transfer-Encoding: chunked", "-w", "%{http_code}", "--data-binary"};
  std::vector<std::string> arguments(args.begin(), args.end());
  arguments.insert(arguments.end(), {"@" + file, control.Url("/up.trp")});
  EXPECT_EQ(Curl(arguments), "400");
}

// ---- wget

TEST_F(RealClientsTest, WgetFetchesFilesByteForByte) {
  EXPECT_EQ(RunWell({"wget", "-q", "-O", "-", control.Url("/pictures/noise.png")}), picture);
  EXPECT_EQ(RunWell({"wget", "-q", "-O", "-", control.Url("/docs/a%20page.htm")}), page);
  EXPECT_EQ(RunWell({"wget", "-q", "-O", "-", "--post-data=a=1", control.Url("/f.trp")}), "POST /f.trp?\na=1");
}

TEST_F(RealClientsTest, WgetTellsWhatIsNotThere) {
  control.tessel.VerboseErrorsEnable(false);
  const ClientResult result = Kit::RunClient(loop, {"wget", "-O", "-", control.Url("/nothing.htm")});
  EXPECT_EQ(result.status, 8);
  EXPECT_NE(result.errors.find("404"), std::string::npos) << result.errors;
}

TEST_F(RealClientsTest, WgetFetchesAPageWithAllItsPictures) {
  std::string html = "<html><body>";
  for (int i = 0; i < 30; ++i) {
    const std::string name = "pictures/p" + std::to_string(i) + ".png";
    control.Write(name, Noise(20'000, static_cast<std::uint32_t>(i)));
    html += "<img src=\"/" + name + "\">";
  }
  control.Write("album.html", html + "</body></html>");
  Kit::TemporaryTree copy;
  RunWell({"wget", "-q", "-p", "-nH", "-e", "robots=off", "-P", copy.Text(), control.Url("/album.html")});
  EXPECT_EQ(ReadFile(copy.Path() / "album.html"), html + "</body></html>");
  for (int i = 0; i < 30; ++i) {
    const std::string name = "pictures/p" + std::to_string(i) + ".png";
    EXPECT_EQ(ReadFile(copy.Path() / name), Noise(20'000, static_cast<std::uint32_t>(i))) << name;
  }
}

// ---- Python

constexpr const char* kHttpClient = R"(
import http.client, sys
port, path, target = int(sys.argv[1]), sys.argv[2], sys.argv[3]
for round in range(3):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
    connection.request("GET", path)
    answer = connection.getresponse()
    body = answer.read()
    assert answer.status == 200 and answer.version == 10 and answer.will_close, vars(answer)
    assert int(answer.getheader("Content-Length")) == len(body)
open(target, "wb").write(body)
print(answer.getheader("Content-Type"))
)";

constexpr const char* kUrllib = R"(
import sys, urllib.error, urllib.request
base, target = sys.argv[1], sys.argv[2]
with urllib.request.urlopen(base + "/pictures/noise.png", timeout=10) as answer:
    open(target, "wb").write(answer.read())
with urllib.request.urlopen(base + "/form.trp", data=b"a=1&b=%20", timeout=10) as answer:
    assert answer.read() == b"POST /form.trp?\na=1&b=%20"
try:
    urllib.request.urlopen(base + "/nothing.htm", timeout=10)
    print("no error")
except urllib.error.HTTPError as error:
    print(error.code)
)";

TEST_F(RealClientsTest, PythonsHttpClientFetchesFilesByteForByte) {
  const std::string target = control.tree.Text() + "/fetched";
  const std::string port = std::to_string(control.Port());
  EXPECT_EQ(RunWell({"/usr/bin/python3", "-c", kHttpClient, port, "/pictures/noise.png", target}), "image/png\n");
  EXPECT_EQ(ReadFile(target), picture);
  EXPECT_EQ(RunWell({"/usr/bin/python3", "-c", kHttpClient, port, "/", target}), "text/html\n");
  EXPECT_EQ(ReadFile(target), index);
}

TEST_F(RealClientsTest, PythonsUrllibFetchesPostsAndGetsStatusCodes) {
  control.tessel.VerboseErrorsEnable(false);
  const std::string target = control.tree.Text() + "/fetched";
  EXPECT_EQ(RunWell({"/usr/bin/python3", "-c", kUrllib, control.Url(""), target}), "404\n");
  EXPECT_EQ(ReadFile(target), picture);
}

}  // namespace
}  // namespace TesselServer
