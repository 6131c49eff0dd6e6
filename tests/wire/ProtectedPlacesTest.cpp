// Files and folders that ask for a password, with the clients that people use and with what none of them would send.

#include <gmock/gmock.h>

#include <filesystem>

#include "files/cls_Base64.h"
#include "tests/kit/Memory.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using Kit::ClientResult;
using Kit::Noise;
using Kit::StatusLineOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view kRefused = "HTTP/1.0 401 Unauthorized";
constexpr std::string_view kServed = "HTTP/1.0 200 OK";

TEST(PasswordFileTest, AHostSeesThatItsFileCannotBeRead) {
  EventLoop loop;
  Tessel tessel(loop);
  Kit::TemporaryTree tree;
  tree.Write("users", "ann:secret\n");
  const auto CannotRead = [](const std::string& file) { return "cannot read " + file; };
  const auto use = [&](const std::string& passwords) {
    tessel.AuthenticationSourceFile(passwords);
    if (tessel.AuthenticationSourceFile() != passwords) return CannotRead(passwords);
    return std::string();
  };
  EXPECT_EQ(use(tree.Text() + "/none"), "cannot read " + tree.Text() + "/none");
  EXPECT_EQ(use(tree.Text() + "/users"), "");
}

class ProtectedPlacesTest : public Kit::WireTest {
 protected:
  ProtectedPlacesTest() {
    file = control.Write("members/noise.bin", Noise(100'000));
    control.Write("members/htaccess.txt", "realm: \"Members only\"\r\nann:secret\r\n");
    control.Write("members/papers/statutes.bin", Noise(1000, 2));
    control.Write("members/papers/htaccess.txt", "realm: Papers\nann:secret\n");
    open = control.Write("open.txt", "for everybody");
    control.tessel.DirectoryBrowseEnable(true);
    control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
    control.Start(4);
  }

  std::string Curl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"curl", "-sS", "--max-time", "15"});
    return RunWell(std::move(arguments));
  }

  // The answer to a request for the protected file with this behind the name of the scheme.
  std::string AskWithToken(const std::string& token) {
    return control.Ask("GET /members/noise.bin HTTP/1.0\r\nAuthorization: Basic " + token + "\r\n\r\n");
  }
  // The same with a name, ":" and a password.
  std::string AskAs(const std::string& credentials) { return AskWithToken(TokenOf(credentials)); }

  static std::string TokenOf(const std::string& credentials) {
    std::string token = cls_Base64().EncodeStr(credentials);
    std::erase_if(token, [](char c) { return c == '\r' || c == '\n'; });
    return token;
  }

  // The status codes of the log, in order.
  std::vector<std::string> LoggedCodes() const {
    std::vector<std::string> codes;
    for (const std::string& line : control.log) codes.push_back(line.substr(line.find("HTTP/1.") + 10, 3));
    return codes;
  }

  std::string file, open;
};

// ---- curl

TEST_F(ProtectedPlacesTest, CurlIsAskedAndAnswers) {
  EXPECT_EQ(Curl({"--anyauth", "-u", "ann:secret", control.Url("/members/noise.bin")}), file);
  EXPECT_THAT(LoggedCodes(), ElementsAre("401", "200"));
  EXPECT_THAT(Curl({"--anyauth", "-u", "ann:secret", control.Url("/members/papers/")}), HasSubstr(">statutes.bin</a>"));
  EXPECT_THAT(LoggedCodes(), ElementsAre("401", "200", "401", "200"));
}

TEST_F(ProtectedPlacesTest, CurlMaySendThePasswordAtOnce) {
  EXPECT_EQ(Curl({"-u", "ann:secret", control.Url("/members/noise.bin")}), file);
  EXPECT_THAT(Curl({"-u", "ann:secret", control.Url("/members/papers/")}), HasSubstr(">statutes.bin</a>"));
  EXPECT_THAT(LoggedCodes(), ElementsAre("200", "200"));
}

TEST_F(ProtectedPlacesTest, CurlIsRefusedWithAWrongPasswordAndWithoutOne) {
  for (const char* path : {"/members/noise.bin", "/members/papers/", "/members/papers/statutes.bin"}) {
    const std::string url = control.Url(path);
    const std::vector<std::string> seen = {"-w", "%{http_code} %{size_download}"};
    for (std::vector<std::string> way : {std::vector<std::string>{},
                                         {"-u", "ann:wrong"},
                                         {"-u", "ann:secret2"},
                                         {"-u", "bob:secret"},
                                         {"--anyauth", "-u", "ann:wrong"},
                                         {"-u", ":"}}) {
      way.insert(way.end(), seen.begin(), seen.end());
      way.push_back(url);
      EXPECT_EQ(Curl(way), "401 0") << path << " " << way[1];
    }
  }
  EXPECT_EQ(Curl({control.Url("/open.txt")}), open);
}

// ---- wget

TEST_F(ProtectedPlacesTest, WgetIsAskedAndAnswers) {
  const std::vector<std::string> wget = {"wget", "-q", "-O", "-", "--user=ann", "--password=secret"};
  std::vector<std::string> arguments = wget;
  arguments.push_back(control.Url("/members/noise.bin"));
  EXPECT_EQ(RunWell(arguments), file);
  arguments.back() = control.Url("/members/papers/");
  EXPECT_THAT(RunWell(arguments), HasSubstr(">statutes.bin</a>"));
  EXPECT_THAT(LoggedCodes(), ElementsAre("401", "200", "401", "200"));
}

TEST_F(ProtectedPlacesTest, WgetIsRefusedWithAWrongPassword) {
  constexpr int kAuthenticationFailed = 6;  // of wget's exit statuses
  for (const char* path : {"/members/noise.bin", "/members/papers/"}) {
    // It takes the connection of the first answer for one that stays open, and has to try again when it does not.
    const ClientResult result = Kit::RunClient(
        loop, {"wget", "-q", "--waitretry=0", "-O", "-", "--user=ann", "--password=wrong", control.Url(path)});
    EXPECT_EQ(result.status, kAuthenticationFailed) << path;
    EXPECT_EQ(result.output, "") << path;
  }
}

TEST_F(ProtectedPlacesTest, WgetFetchesAListWithEverythingInIt) {
  Kit::TemporaryTree copy;
  RunWell({"wget", "-q", "-r", "-l", "1", "-np", "-nH", "-e", "robots=off", "-P", copy.Text(), "--user=ann",
           "--password=secret", control.Url("/members/papers/")});
  EXPECT_EQ(Kit::ReadFile(copy.Path() / "members/papers/statutes.bin"), Noise(1000, 2));
}

// ---- fetch of Node, whose parser is a strict one

constexpr const char* kFetch = R"(
const [url, credentials] = process.argv.slice(1);
const headers = credentials ? {Authorization: 'Basic ' + Buffer.from(credentials).toString('base64')} : {};
fetch(url, {headers}).then(async answer => {
  const body = Buffer.from(await answer.arrayBuffer());
  process.stdout.write(answer.status + '|' + answer.headers.get('www-authenticate') + '|' + body.toString('latin1'));
}).catch(error => { console.error(error); process.exitCode = 1; });
)";

TEST_F(ProtectedPlacesTest, NodesFetchIsAskedAndAnswers) {
  const auto fetch = [this](const char* path, const std::string& credentials) {
    return RunWell({"/usr/bin/node", "-e", kFetch, control.Url(path), credentials});
  };
  control.Write("members/text.txt", "a text for members");
  EXPECT_EQ(fetch("/members/text.txt", ""), "401|Basic realm=\"Members only\"|");
  EXPECT_EQ(fetch("/members/text.txt", "ann:wrong"), "401|Basic realm=\"Members only\"|");
  EXPECT_EQ(fetch("/members/text.txt", "ann:secret"), "200|null|a text for members");
  EXPECT_EQ(fetch("/members/papers/", ""), "401|Basic realm=Papers|");
  EXPECT_EQ(fetch("/members/papers/", "ann:wrong"), "401|Basic realm=Papers|");
  EXPECT_THAT(fetch("/members/papers/", "ann:secret"), HasSubstr(">statutes.bin</a>"));
}

// ---- Python

constexpr const char* kOpener = R"(
import sys, urllib.error, urllib.request
url, user, password = sys.argv[1:]
passwords = urllib.request.HTTPPasswordMgrWithDefaultRealm()
passwords.add_password(None, url, user, password)
opener = urllib.request.build_opener(urllib.request.HTTPBasicAuthHandler(passwords))
try:
    with opener.open(url, timeout=10) as answer:
        sys.stdout.buffer.write(answer.read())
except urllib.error.HTTPError as error:
    print(error.code, end="")
)";

TEST_F(ProtectedPlacesTest, PythonsUrllibIsAskedAndAnswers) {
  const auto ask = [this](const char* path, const char* password) {
    return RunWell({"/usr/bin/python3", "-c", kOpener, control.Url(path), "ann", password});
  };
  EXPECT_EQ(ask("/members/noise.bin", "secret"), file);
  EXPECT_EQ(ask("/members/noise.bin", "wrong"), "401");
  EXPECT_THAT(ask("/members/papers/", "secret"), HasSubstr(">statutes.bin</a>"));
  EXPECT_EQ(ask("/members/papers/", "wrong"), "401");
}

// ---- password files that nobody would write

TEST_F(ProtectedPlacesTest, APasswordFileWithoutALineEndIsRead) {
  for (const char* text : {"ann:secret", "realm: ann:secret", "ann:secret\r"}) {
    control.Write("members/htaccess.txt", text);
    EXPECT_EQ(StatusLineOf(AskAs("ann:secret")), kServed) << text;
    EXPECT_EQ(StatusLineOf(AskAs("ann:wrong")), kRefused) << text;
  }
  control.Write("members/htaccess.txt", "");
  EXPECT_EQ(StatusLineOf(AskAs("ann:secret")), kRefused);
}

TEST_F(ProtectedPlacesTest, APasswordFileOfAHundredMegabytesRefusesEveryClientAtNoCost) {
  const std::string users = control.root + "/members/htaccess.txt";
  std::filesystem::resize_file(users, 100 << 20);
  AskAs("ann:secret");
  const std::int64_t before = Kit::ResidentBytes();
  for (int i = 0; i < 20; ++i) EXPECT_EQ(StatusLineOf(AskAs("ann:secret")), kRefused);
  EXPECT_LT(Kit::ResidentBytes() - before, 8 << 20);
  EXPECT_EQ(BodyOf(control.Get("/open.txt")), open);
  control.Write("members/htaccess.txt", "ann:secret");
  EXPECT_EQ(BodyOf(AskAs("ann:secret")), file);
}

TEST_F(ProtectedPlacesTest, ALongLineWithoutAnEndIsRead) {
  const std::string users = "realm: " + std::string(1 << 20, 'r') + "ann:secret";
  control.Write("members/htaccess.txt", users);
  EXPECT_EQ(BodyOf(AskAs("ann:secret")), file);
  EXPECT_EQ(StatusLineOf(AskAs("ann:wrong")), kRefused);
  EXPECT_EQ(BodyOf(control.Get("/open.txt")), open);
}

// ---- headers that nobody would send

TEST_F(ProtectedPlacesTest, CredentialsOf64KiBAreNone) {
  constexpr std::size_t kLong = 64 * 1024;
  for (const std::string& token : {TokenOf("ann:secret" + std::string(kLong, 'x')), std::string(kLong, '='),
                                   std::string(kLong, 'x'), std::string(kLong, ' '), std::string(kLong, '\xFF')}) {
    EXPECT_EQ(StatusLineOf(AskWithToken(token)), kRefused) << token.substr(0, 20);
    EXPECT_EQ(BodyOf(AskAs("ann:secret")), file);
  }
}

TEST_F(ProtectedPlacesTest, CredentialsMayHoldEveryByteButNul) {
  std::string users;
  const auto pair = [](int byte, char last) {
    const std::string b(1, static_cast<char>(byte));
    return "u" + b + "v:p" + b + last;
  };
  for (int byte = 0; byte < 256; ++byte) users += pair(byte, 'q') + "\n";
  control.Write("members/htaccess.txt", users);
  for (int byte = 1; byte < 256; ++byte) {
    EXPECT_EQ(StatusLineOf(AskAs(pair(byte, 'q'))), kServed) << byte;
    EXPECT_EQ(StatusLineOf(AskAs(pair(byte, 'r'))), kRefused) << byte;
  }
  EXPECT_EQ(StatusLineOf(AskAs(pair(0, 'q'))), kRefused);
}

TEST_F(ProtectedPlacesTest, NoSpellingOfTheAddressGetsAroundThePassword) {
  control.tessel.VerboseErrorsEnable(false);
  std::filesystem::create_symlink("members/noise.bin", control.root + "/link.bin");
  std::filesystem::create_directory_symlink("members", control.root + "/way in");
  for (const char* path :
       {"/MEMBERS/NOISE.BIN", "/members//noise.bin", "/members/./noise.bin", "/x/../members/noise.bin",
        "/members/papers/../noise.bin", "/%6Dembers/noise.bin", "/members%2Fnoise.bin", "/members\\noise.bin",
        "/link.bin", "/way%20in/noise.bin", "http://x.test/members/noise.bin", "/members/papers", "/members/PAPERS/",
        "/way in/papers/"}) {
    const std::string status = StatusLineOf(control.Get(path));
    EXPECT_TRUE(status == kRefused || status == "HTTP/1.0 404 Not Found") << path << ": " << status;
  }
}

}  // namespace
}  // namespace TesselServer
