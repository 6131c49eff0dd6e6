// Files and folders that ask for a password, over HTTP/1.1: what opens them, and what does not.

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "control/modern/ModernAdmission.h"
#include "files/cls_Base64.h"
#include "platform/tasks/WorkerThreads.h"
#include "platform/world/Error.h"
#include "tests/kit/TestCore.h"

namespace TesselServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kSha256 = "$5$tessel$zrTUzFijWUM12K.ew6Qhu79Jh9Sxu039mDzRKcUWk12";  // of "secret", as the others
constexpr const char* kSha512 =
    "$6$tessel$uC6O51/NsiToWouApAm/LZja43Oxghs8sVRFaUDzZ3yJgqxpzbKyDK4oJ6iz1.xB.la4oVl.46XcxB3v.9scp0";
constexpr const char* kBcrypt = "$2y$05$abcdefghijklmnopqrstuuOQiyCxlgf/oeuTqixKmWdcYUh4Hjl0a";
constexpr const char* kYescrypt = "$y$j75$V7qMYJaNbVKOeh4PhtqPk/$aiP0zlKso6cH6kly/ZO/0yHQl1H1qu3MiYgcCY8Upk0";

// Counts the checks of hashes, and holds them where a test says so. Everything else is done at once.
class CheckThreads final : public WorkerThreads {
 public:
  bool Add(Workers::Kind kind, const void* owner, std::function<void()> work, std::int32_t most) override {
    if (kind != Workers::Kind::kPasswords) return WorkerThreads::Add(kind, owner, std::move(work), most);
    ++count;
    if (!holds) return WorkerThreads::Add(kind, owner, std::move(work), most);
    held.emplace_back(owner, std::move(work));
    return true;
  }
  void Withdraw(const void* owner) noexcept override {
    std::erase_if(held, [owner](const auto& piece) { return piece.first == owner; });
    WorkerThreads::Withdraw(owner);
  }
  void LetGo() {
    for (auto& piece : std::exchange(held, {})) piece.second();
  }

  int count = 0;
  bool holds = false;
  std::vector<std::pair<const void*, std::function<void()>>> held;
};

struct ModernPasswordsTest : testing::Test {
  ModernPasswordsTest() {
    WorkerThreads::Share(threads);
    Settings& settings = control.core.state.settings;
    settings.HTTPMode = e_HTTPMode::Modern;
    settings.AuthenticationSource = e_AuthSource::DirectoryFile;
    settings.MaxConnections = 60;
    control.tree.Write("open/file.txt", "for everybody");
    control.tree.Write("members/file.txt", "for members");
  }

  void Protect(const std::string& passwords, const std::string& folder = "members") {
    control.tree.Write(folder + "/htaccess.txt", passwords);
  }

  std::string Ask(const std::string& request) { return Kit::Exchange(control.loop, control.Port(), request); }
  static std::string Token(const std::string& credentials) {
    if (credentials.empty()) return {};
    std::string token = cls_Base64().EncodeStr(credentials);
    std::erase_if(token, [](char c) { return c == '\r' || c == '\n'; });
    return token;
  }
  static std::string Basic(const std::string& credentials) {
    return "Authorization: Basic " + Token(credentials) + "\r\n";
  }
  static std::string Request(const std::string& method, const std::string& path, const std::string& fields) {
    return method + " " + path + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + fields + "\r\n";
  }
  std::string Get(const std::string& path, const std::string& fields = "") { return Ask(Request("GET", path, fields)); }
  static std::string StatusOf(const std::string& answer) {
    return answer.substr(std::min<std::size_t>(9, answer.size()), 3);
  }
  std::string Status(const std::string& path, const std::string& fields = "") { return StatusOf(Get(path, fields)); }
  // The status for a file of the members, for a client that shows these.
  std::string StatusFor(const std::string& credentials) { return Status("/members/file.txt", Basic(credentials)); }

  std::shared_ptr<CheckThreads> threads = std::make_shared<CheckThreads>();
  Kit::TestCore control;
};

// ---- What opens a place.

const std::string kUsers =
    std::string("realm: Members only\r\nann:secret\r\nbob:pass:word\nzo\xC3\xAB:p\xC3\xA4ss\neve:\n") +
    " dan: blank \n\r\nhash:" + kSha256 + "\nlong:" + std::string(3000, 'l') + "\nlast:one";

struct Attempt {
  std::string credentials;
  bool isRight;
  const char* why;
};
const std::vector<Attempt> kAttempts = {
    {"ann:secret", true, "a line that ends CR LF"},
    {"bob:pass:word", true, "a colon in the password"},
    {"zo\xC3\xAB:p\xC3\xA4ss", true, "UTF-8"},
    {" dan: blank ", true, "blanks belong to name and password"},
    {"hash:secret", true, "a hash"},
    {"long:" + std::string(3000, 'l'), true, "a long password"},
    {"last:one", true, "a line without an end"},
    {"ann:secre", false, "the beginning of a password"},
    {"ann:s", false, "its first byte"},
    {"ann:", false, "an empty one"},
    {"eve:", false, "an empty one that is in the file"},
    {"ann:secret ", false, "a trailing blank"},
    {"ann:secret2", false, "something behind it"},
    {"ann:Secret", false, "another case"},
    {"ANN:secret", false, "another case of the name"},
    {"nn:secret", false, "the end of a name"},
    {"n:secret", false, "its last letter"},
    {"ann:secret\r\nbob:pass:word", false, "a pair across lines"},
    {"ann:secret\n", false, "a line's end"},
    {"ann:secret\r", false, "a return"},
    {std::string("ann:secret\0", 11), false, "NUL"},
    {std::string("ann:secret\0x", 12), false, "NUL and more"},
    {"realm: Members only", false, "the line of the realm"},
    {"realm:Members only", false, "the realm itself"},
    {" realm: Members only", false, "with a blank"},
    {":secret", false, "no name"},
    {":", false, "neither"},
    {"", false, "nothing"},
    {"ann", false, "no colon"},
    {"annsecret", false, "no colon, but both"},
    {"bob:pass", false, "the beginning of a password with a colon"},
    {"bob:word", false, "its end"},
    {"ann:pass:word", false, "another user's"},
    {"zo\xC3\xAB:p\xE4ss", false, "Latin-1"},
    {"zo\xEB:p\xE4ss", false, "Latin-1 in both"},
    {"zoe\xCC\x88:p\xC3\xA4ss", false, "the same letters in other bytes"},
    {"dan:blank", false, "without the blanks"},
    {std::string("hash:") + kSha256, false, "a hash as the password"},
    {"hash:secre", false, "the beginning of a hashed password"},
    {"hash:secret ", false, "a hashed one with a blank"},
    {"long:" + std::string(2999, 'l'), false, "one byte short"},
    {"long:" + std::string(3001, 'l'), false, "one byte more"},
    {"ann:" + std::string(5000, 'x'), false, "very long"},
    {"last:on", false, "the beginning of the last line"},
    {"nobody:secret", false, "a user who is not there"},
};

TEST_F(ModernPasswordsTest, OnlyARightPairOpensAFolder) {
  Protect(kUsers);
  control.Start();
  for (const Attempt& attempt : kAttempts) {
    EXPECT_EQ(StatusFor(attempt.credentials), attempt.isRight ? "200" : "401") << attempt.why;
  }
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ModernPasswordsTest, OnlyARightPairOpensASite) {
  Kit::TemporaryTree beside;
  control.core.state.settings.AuthenticationSource = e_AuthSource::GolbalFile;
  control.core.state.settings.AuthenticationSourceFile = beside.Write("users", kUsers);
  control.Start();
  for (const Attempt& attempt : kAttempts) {
    EXPECT_EQ(StatusFor(attempt.credentials), attempt.isRight ? "200" : "401") << attempt.why;
  }
  for (const char* path : {"/", "/open/file.txt", "/none", "/open"}) EXPECT_EQ(Status(path), "401") << path;
  EXPECT_EQ(Status("/none", Basic("ann:secret")), "404");
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ModernPasswordsTest, OnlyBasicIsUnderstood) {
  Protect("ann:secret\n");
  control.Start();
  const std::string token = Token("ann:secret");
  const struct {
    std::string fields;
    const char *status, *why;
  } cases[] = {
      {"Authorization: Basic " + token + "\r\n", "200", "as it is"},
      {"authorization: bAsIc " + token + "\r\n", "200", "in any case"},
      {"Authorization:   Basic " + token + "  \r\n", "200", "with blanks around"},
      {"", "401", "none"},
      {"Authorization: \r\n", "401", "empty"},
      {"Authorization: Basic\r\n", "401", "nothing behind the scheme"},
      {"Authorization: Digest " + token + "\r\n", "401", "another scheme"},
      {"Authorization: Bearer " + token + "\r\n", "401", "another one"},
      {"Authorization: Basic" + token + "\r\n", "401", "no blank"},
      {"Authorization: Basic Basic " + token + "\r\n", "401", "the scheme twice"},
      {"Authorization: Basic " + token + ", Basic " + token + "\r\n", "401", "two in one field"},
      {"Authorization: Basic " + token + " x\r\n", "401", "more behind it"},
      {"Authorization: Basic " + token + "!\r\n", "401", "no Base64"},
      {"Authorization: Basic ann:secret\r\n", "401", "not encoded"},
      {"Proxy-Authorization: Basic " + token + "\r\n", "401", "for a proxy"},
      {"X-Authorization: Basic " + token + "\r\n", "401", "another field"},
      {"Authorization: Basic " + token + "\r\nAuthorization: Basic " + token + "\r\n", "400", "two fields"},
      {"Authorization: Basic " + std::string(20'000, 'A') + "\r\n", "401", "very long"},
  };
  for (const auto& c : cases) EXPECT_EQ(Status("/members/file.txt", c.fields), c.status) << c.why;
}

TEST_F(ModernPasswordsTest, HashesOfEachKindOpen) {
  for (const char* hash : {kSha256, kSha512, kBcrypt, kYescrypt}) {
    Protect(std::string("ann:") + hash + "\n");
    if (!control.core.state.running) control.Start();
    EXPECT_EQ(StatusFor("ann:secret"), "200") << hash;
    EXPECT_EQ(StatusFor("ann:secreT"), "401") << hash;
    EXPECT_EQ(StatusFor("bob:secret"), "401") << hash;
    EXPECT_EQ(StatusFor(std::string("ann:") + hash), "401") << hash;
  }
  EXPECT_THAT(control.errors, IsEmpty());
}

TEST_F(ModernPasswordsTest, WithoutThreadsAHashIsCheckedInTheCall) {
  control.core.state.workers.Count(0);
  Protect(std::string("ann:") + kSha256 + "\n");
  control.Start();
  EXPECT_EQ(StatusFor("ann:secret"), "200");
  EXPECT_EQ(StatusFor("ann:wrong"), "401");
  EXPECT_EQ(threads->count, 0);
}

TEST_F(ModernPasswordsTest, AHashThatTheSystemDoesNotKnowOpensNothingAndIsReportedOnce) {
  Protect("ann:$apr1$salt$x\n");
  control.Start();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusFor("ann:secret"), "401");
  EXPECT_EQ(StatusFor("ann:$apr1$salt$x"), "401");
  EXPECT_THAT(control.errors, ElementsAre(HasSubstr("hash")));
}

// ---- Where.

TEST_F(ModernPasswordsTest, TheNearestFileGuardsAFolderAndAllBelowIt) {
  Protect("realm: Members\nann:secret\n");
  Protect("realm: Board\nbob:other\n", "members/board");
  control.tree.Write("members/papers/old/file.txt", "old");
  control.tree.Write("members/board/minutes/file.txt", "minutes");
  control.Start();
  const struct {
    const char *path, *credentials, *status, *realm;
  } cases[] = {
      {"/open/file.txt", "", "200", ""},
      {"/members/file.txt", "", "401", "Members"},
      {"/members/papers/old/file.txt", "", "401", "Members"},
      {"/members/papers/old/file.txt", "ann:secret", "200", ""},
      {"/members/board/minutes/file.txt", "", "401", "Board"},
      {"/members/board/minutes/file.txt", "ann:secret", "401", "Board"},
      {"/members/board/minutes/file.txt", "bob:other", "200", ""},
      {"/members/file.txt", "bob:other", "401", "Members"},
      {"/members/papers/none/none.txt", "", "401", "Members"},
      {"/members/none/../file.txt", "", "401", "Members"},
      {"/members/%66ile.txt", "", "401", "Members"},
      {"/./members//file.txt", "", "401", "Members"},
      {"/open/../members/file.txt", "", "401", "Members"},
  };
  for (const auto& c : cases) {
    const std::string answer = Get(c.path, *c.credentials == '\0' ? "" : Basic(c.credentials));
    EXPECT_EQ(StatusOf(answer), c.status) << c.path << " " << c.credentials;
    const std::string challenge =
        *c.realm == '\0' ? "" : std::string("WWW-Authenticate: Basic realm=\"") + c.realm + "\", charset=\"UTF-8\"\r\n";
    EXPECT_THAT(answer, HasSubstr(challenge)) << c.path;
    EXPECT_EQ(answer.find("WWW-Authenticate") == std::string::npos, challenge.empty()) << c.path;
  }
}

TEST_F(ModernPasswordsTest, NoLinkLeadsAroundAPassword) {
  Protect("ann:secret\n");
  Protect("ann:secret\n", "outer");
  const auto root = control.tree.Path();
  control.tree.Write("outer/inner/file.txt", "inner");
  std::filesystem::create_symlink("../members/file.txt", root / "open/link.txt");
  std::filesystem::create_directory_symlink("../members", root / "open/way");
  std::filesystem::create_directory_symlink("../outer/inner", root / "open/inner");
  std::filesystem::create_symlink("../open/file.txt", root / "members/out.txt");
  control.Start();
  for (const char* path : {"/open/link.txt", "/open/way/file.txt", "/open/way/", "/open/way", "/open/way/none",
                           "/open/inner/file.txt", "/open/inner/none"}) {
    EXPECT_EQ(Status(path), "401") << path;
  }
  EXPECT_EQ(Status("/open/link.txt", Basic("ann:secret")), "200");
  EXPECT_EQ(Status("/members/out.txt"), "200") << "it lies in the open folder";
}

TEST_F(ModernPasswordsTest, AFileInTheRootGuardsEverything) {
  control.tree.Write("htaccess.txt", "ann:secret\n");
  control.Start();
  for (const char* path : {"/", "/open/file.txt", "/none/none", "/members/"}) EXPECT_EQ(Status(path), "401") << path;
  EXPECT_EQ(Status("/open/file.txt", Basic("ann:secret")), "200");
}

TEST_F(ModernPasswordsTest, AnotherSpellingOfTheFilesNameGuardsToo) {
  control.tree.Write("members/HTAccess.TXT", "ann:secret\n");
  control.Start();
  EXPECT_EQ(Status("/members/file.txt"), "401");
  EXPECT_EQ(StatusFor("ann:secret"), "200");
}

TEST_F(ModernPasswordsTest, AFileThatIsNewGuardsTheVeryNextRequest) {
  control.tree.Write("open/deep/file.txt", "deep");
  control.world.LetFilesSettle();
  control.Start();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Status("/open/deep/file.txt"), "200");
  Protect("ann:secret\n", "open");
  EXPECT_EQ(Status("/open/deep/file.txt"), "401");
  std::filesystem::remove(control.tree.Path() / "open/htaccess.txt");
  EXPECT_EQ(Status("/open/deep/file.txt"), "200");
  control.world.LetFilesSettle();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Status("/open/deep/file.txt"), "200");
  control.tree.Write("open/deep/HTACCESS.txt", "ann:secret\n");
  EXPECT_EQ(Status("/open/deep/file.txt"), "401");
}

TEST_F(ModernPasswordsTest, APasswordFileItselfIsNeverServed) {
  Protect("ann:secret\n");
  Protect("ann:secret\n", "members/papers");
  control.Start();
  for (const char* path : {"/members/htaccess.txt", "/members/papers/htaccess.txt", "/members/papers/HTACCESS.TXT"}) {
    EXPECT_EQ(Status(path), "401") << path;
    EXPECT_EQ(Status(path, Basic("ann:secret")), "404") << path;
  }
}

// ---- Before everything else that may be said.

TEST_F(ModernPasswordsTest, APasswordComesBeforeWhatIsThere) {
  Protect("realm: a \"b\" \\c\nann:secret\n");
  control.tree.MakeFolder("members/folder");
  control.Start();
  const struct {
    const char *method, *path, *without, *with;
  } cases[] = {
      {"GET", "/members/none", "401", "404"},        {"HEAD", "/members/file.txt", "401", "200"},
      {"POST", "/members/file.txt", "401", "405"},   {"DELETE", "/members/file.txt", "401", "405"},
      {"PUT", "/members/none", "401", "404"},        {"OPTIONS", "/members/file.txt", "401", "204"},
      {"GET", "/members/folder", "401", "301"},      {"GET", "/members/.hidden", "401", "404"},
      {"GET", "/members/.git/config", "401", "404"}, {"GET", "/members/file.txt/", "401", "404"},
      {"TRACE", "/members/file.txt", "405", "405"},  {"CONNECT", "x:80", "405", "405"},
      {"BREW", "/members/file.txt", "501", "501"},   {"GET", "/members/%00", "400", "400"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(StatusOf(Ask(Request(c.method, c.path, ""))), c.without) << c.method << " " << c.path;
    EXPECT_EQ(StatusOf(Ask(Request(c.method, c.path, Basic("ann:secret")))), c.with) << c.method << " " << c.path;
  }
  const std::string answer = Get("/members/file.txt");
  EXPECT_THAT(answer, HasSubstr("WWW-Authenticate: Basic realm=\"a \\\"b\\\" \\\\c\", charset=\"UTF-8\"\r\n"));
  EXPECT_THAT(answer, HasSubstr("401"));
  EXPECT_THAT(answer.substr(answer.find("\r\n\r\n") + 4), HasSubstr("<")) << "a page as with any error";
  EXPECT_THAT(answer, Not(HasSubstr("for members")));
}

TEST_F(ModernPasswordsTest, ABodyThatWillBeRefusedIsNotAskedFor) {
  Protect("realm: Members\nann:secret\n");
  control.tree.Write("members/page.html", "<html>page</html>");
  control.core.state.settings.HTMLFunctionsEnable = true;
  control.Start();
  const std::string expects = "Content-Length: 5\r\nExpect: 100-continue\r\n";
  const auto ask = [&](const std::string& fields) {
    Kit::RawClient client(control.Port());
    client.Send(control.loop, Request("POST", "/members/page.html", expects + fields));
    Kit::RunUntil(control.loop, [&] { return client.Poll() || client.Received().ends_with("\r\n\r\n"); });
    if (client.Received().starts_with("HTTP/1.1 100 ")) client.Send(control.loop, "hello");
    return client.ReceiveAll(control.loop);
  };
  const std::string refused = ask("");
  EXPECT_EQ(StatusOf(refused), "401");
  EXPECT_THAT(refused, HasSubstr("realm=\"Members\""));
  EXPECT_THAT(refused, HasSubstr("Connection: close\r\n"));
  EXPECT_THAT(ask(Basic("ann:secret")), testing::StartsWith("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 "));
  EXPECT_THAT(ask(Basic("ann:wrong")), HasSubstr("HTTP/1.1 401 "));
}

TEST_F(ModernPasswordsTest, APageKnowsOnlyAUserWhoseWordWasChecked) {
  const std::string page = "<html>[<!--#echo var=\"REMOTE_USER\" -->][<!--#echo var=\"AUTH_TYPE\" -->]</html>";
  control.tree.Write("open/page.html", page);
  control.tree.Write("members/page.html", page);
  Protect(std::string("ann:secret\nhash:") + kSha256 + "\n");
  control.core.state.settings.SSIEnable = true;
  control.Start();
  EXPECT_THAT(Get("/members/page.html", Basic("ann:secret")), HasSubstr("[ann][Basic]"));
  EXPECT_THAT(Get("/members/page.html", Basic("hash:secret")), HasSubstr("[hash][Basic]"));
  EXPECT_THAT(Get("/open/page.html", Basic("ann:secret")), HasSubstr("[][]"));
  EXPECT_THAT(Get("/open/page.html"), HasSubstr("[][]"));
}

TEST_F(ModernPasswordsTest, APageIncludesOnlyWhatItsClientMayHave) {
  const std::string tags =
      "<html>[<!--#includevirtual=members/file.txt-->][<!--#includevirtual=members/part.html-->]"
      "[<!--#includevirtual=open/file.txt-->]</html>";
  control.tree.Write("page.html", tags);
  control.tree.Write("open/deep.html", "<html>{<!--#includevirtual=page.html-->}</html>");
  control.tree.Write("members/part.html", "<b>a part</b>");
  Protect("ann:secret\n");
  control.core.state.settings.SSIEnable = true;
  control.Start();
  for (const char* path : {"/page.html", "/open/deep.html"}) {
    for (const std::string& fields : {std::string(), Basic("ann:wrong"), Basic("bob:secret")}) {
      const std::string answer = Get(path, fields);
      EXPECT_EQ(StatusOf(answer), "200");
      EXPECT_THAT(answer, Not(HasSubstr("for members"))) << path << fields;
      EXPECT_THAT(answer, Not(HasSubstr("a part"))) << path << fields;
      EXPECT_THAT(answer, HasSubstr("[for everybody]")) << path << fields;
    }
    EXPECT_THAT(Get(path, Basic("ann:secret")), HasSubstr("[for members][<b>a part</b>][for everybody]")) << path;
  }
}

TEST_F(ModernPasswordsTest, TheNextRequestOfAConnectionNeedsItsOwn) {
  Protect("ann:secret\n");
  control.Start();
  const std::string first = "GET /members/file.txt HTTP/1.1\r\nHost: x\r\n" + Basic("ann:secret") + "\r\n";
  const std::string both = Ask(first + Request("GET", "/members/file.txt", ""));
  EXPECT_EQ(StatusOf(both), "200");
  EXPECT_THAT(both.substr(20), HasSubstr("HTTP/1.1 401 "));
}

// ---- Files that cannot be read.

TEST_F(ModernPasswordsTest, AFileForTheSiteThatIsMissingAdmitsNobodyAndIsReported) {
  control.core.state.settings.AuthenticationSource = e_AuthSource::GolbalFile;
  for (const std::string& path : {control.tree.Text() + "/none", control.tree.Text()}) {
    control.core.state.settings.AuthenticationSourceFile = path;
    control.errors.clear();
    control.Start();
    EXPECT_THAT(control.errors, ElementsAre(HasSubstr(path)));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusFor("ann:secret"), "401");
    EXPECT_EQ(control.errors.size(), 1u) << "within a minute";
    control.Pass(60'000);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusFor("ann:secret"), "401");
    EXPECT_EQ(control.errors.size(), 2u) << "once in the next one";
    control.core.lifecycle.StopServer();
  }
}

TEST_F(ModernPasswordsTest, AFileOfAFolderThatCannotBeReadAdmitsNobodyAndIsReported) {
  std::filesystem::create_symlink("nowhere", control.tree.Path() / "members/htaccess.txt");
  control.Start();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusFor("ann:secret"), "401");
  EXPECT_EQ(Status("/open/file.txt"), "200");
  EXPECT_EQ(control.errors.size(), 1u);
  std::filesystem::remove(control.tree.Path() / "members/htaccess.txt");
  Protect("ann:secret\n");
  std::filesystem::resize_file(control.tree.Path() / "members/htaccess.txt", (16 << 20) + 1);
  EXPECT_EQ(StatusFor("ann:secret"), "401") << "longer than it may be";
  std::filesystem::resize_file(control.tree.Path() / "members/htaccess.txt", 11);
  EXPECT_EQ(StatusFor("ann:secret"), "200");
}

TEST_F(ModernPasswordsTest, ASourceThatProtectsNothingDoesNotStart) {
  for (const e_AuthSource source : {e_AuthSource::LocalACL, e_AuthSource::DomainACL}) {
    control.core.state.settings.AuthenticationSource = source;
    try {
      control.core.lifecycle.StartServer();
      ADD_FAILURE() << "it started";
    } catch (const Error& error) {
      EXPECT_EQ(error.Number(), ErrorNumber::kInvalidCall);
    }
    EXPECT_FALSE(control.core.state.running);
  }
  control.core.state.settings.AuthenticationSource = e_AuthSource::DirectoryFile;
  control.Start();
  control.core.state.settings.AuthenticationSource = e_AuthSource::LocalACL;
  EXPECT_EQ(Status("/open/file.txt"), "401") << "chosen while it runs";
}

// ---- What hashes cost.

TEST_F(ModernPasswordsTest, ARightAnswerIsRememberedForAMinute) {
  Protect(std::string("ann:") + kSha256 + "\nbob:" + kSha512 + "\n");
  control.world.LetFilesSettle();
  control.Start();
  EXPECT_EQ(StatusFor("ann:secret"), "200");
  ASSERT_EQ(threads->count, 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusFor("ann:secret"), "200");
  EXPECT_EQ(threads->count, 1) << "remembered";
  EXPECT_EQ(StatusFor("bob:secret"), "200");
  EXPECT_EQ(StatusFor("ann:wrong"), "401");
  EXPECT_EQ(StatusFor("ann:wrong"), "401");
  EXPECT_EQ(threads->count, 4) << "another user, and a wrong one twice";
  control.Pass(59'000);
  EXPECT_EQ(StatusFor("ann:secret"), "200");
  EXPECT_EQ(threads->count, 4);
  control.Pass(1'000);
  EXPECT_EQ(StatusFor("ann:secret"), "200");
  EXPECT_EQ(threads->count, 5) << "a minute later";
}

TEST_F(ModernPasswordsTest, AChangeOfTheFileForgetsWhatWasRight) {
  Protect(std::string("ann:") + kSha256 + "\n");
  control.world.LetFilesSettle();
  control.Start();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(StatusFor("ann:secret"), "200");
  ASSERT_EQ(threads->count, 1);
  Protect(std::string("bob:") + kSha256 + "\n");
  EXPECT_EQ(StatusFor("ann:secret"), "401");
  EXPECT_EQ(StatusFor("bob:secret"), "200");
  EXPECT_EQ(threads->count, 3);
}

TEST_F(ModernPasswordsTest, WhatIsRightForOneFileIsNotForAnother) {
  Protect(std::string("ann:") + kSha256 + "\n");
  Protect(std::string("bob:") + kSha256 + "\n", "other");
  control.tree.Write("other/file.txt", "other");
  control.world.LetFilesSettle();
  control.Start();
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(StatusFor("ann:secret"), "200");
    EXPECT_EQ(Status("/other/file.txt", Basic("ann:secret")), "401");
  }
}

TEST_F(ModernPasswordsTest, TheSeventeenthThatWaitsIsToldThatTheServerIsBusy) {
  Protect(std::string("open:word\nann:") + kSha256 + "\n");
  control.Start();
  threads->holds = true;
  constexpr int kUnderWay = Workers::kMaxOfAKind + ModernAdmission::kMaxWaiting;
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (int i = 0; i < kUnderWay; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(control.Port()));
    clients.back()->Send(control.loop, Request("GET", "/members/file.txt", Basic("ann:secret")));
  }
  ASSERT_TRUE(Kit::RunUntil(control.loop, [&] { return threads->held.size() == kUnderWay; }));
  EXPECT_EQ(StatusFor("ann:secret"), "503");
  EXPECT_EQ(StatusFor("open:word"), "200") << "who needs no hash does not wait";
  EXPECT_EQ(Status("/open/file.txt"), "200");
  threads->LetGo();
  for (auto& client : clients) EXPECT_EQ(StatusOf(client->ReceiveAll(control.loop)), "200");
  threads->holds = false;
  EXPECT_EQ(StatusFor("ann:secret"), "200");
}

TEST_F(ModernPasswordsTest, AServerThatStopsLetsTheChecksGo) {
  Protect(std::string("ann:") + kSha256 + "\n");
  control.Start();
  threads->holds = true;
  Kit::RawClient client(control.Port());
  client.Send(control.loop, Request("GET", "/members/file.txt", Basic("ann:secret")));
  ASSERT_TRUE(Kit::RunUntil(control.loop, [&] { return threads->held.size() == 1; }));
  control.core.lifecycle.StopServer();
  EXPECT_THAT(threads->held, IsEmpty());
}

}  // namespace
}  // namespace TesselServer
