// Listings of folders as today's clients see them: pages and JSON, links of odd names, large folders beside others.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>

#include "control/Tessel.h"
#include "control/life/TesselCore.h"
#include "platform/files/FileFacts.h"
#include "support/Text.h"
#include "tests/kit/Child.h"
#include "tests/kit/Descriptors.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using Kit::BodyOf;
using Kit::StatusLineOf;
using testing::HasSubstr;
using testing::Not;

// A control of today's manner on the real clock, which lists folders. The root lies in `tree`.
struct ListingSite {
  ListingSite() {
    core.lifecycle.Initialize();
    Settings& settings = core.state.settings = Settings();
    settings.HTTPMode = e_HTTPMode::Modern;
    settings.ServerIP = "127.0.0.1";
    settings.ServerPort = 0;
    settings.VirtualPath = root;
    settings.ServerName = "shelf";
    settings.DirectoryBrowseEnable = true;
    settings.VerboseErrorsEnable = false;
    settings.MaxConnections = 20;
    owner.LogEvent = [this](std::string& text) { errors.push_back(text); };
    core.lifecycle.StartServer();
    errors.clear();
  }
  ~ListingSite() { core.lifecycle.Terminate(); }

  std::int32_t Port() const { return core.state.sckWS.BoundPort(kListener); }

  static std::string Request(const std::string& method, const std::string& target, const std::string& fields = "") {
    return method + " " + target + " HTTP/1.1\r\nHost: shelf\r\nConnection: close\r\n" + fields + "\r\n";
  }
  std::string Ask(const std::string& method, const std::string& target, const std::string& fields = "") {
    return Kit::Exchange(loop, Port(), Request(method, target, fields));
  }
  std::string Get(const std::string& target, const std::string& fields = "") { return Ask("GET", target, fields); }

  void Write(const std::string& name, std::string_view bytes = "x") const { tree.Write("root/" + name, bytes); }

  Kit::TemporaryTree tree;
  const std::string root = tree.MakeFolder("root");
  Kit::SkippingWorld world;
  EventLoop loop{world};
  std::vector<std::string> errors;
  Tessel owner{loop};
  TesselCore core{loop, owner};
};

constexpr const char* kWantsJson = "Accept: application/json\r\n";

// The names in a page, in its order, with a slash behind folders; the parent folder is not one.
std::vector<std::string> ShownNames(const std::string& page) {
  constexpr std::string_view kBegin = "<bdi>", kEnd = "</bdi>";
  std::vector<std::string> names;
  for (std::size_t at = page.find("<tbody>"); (at = page.find(kBegin, at)) != std::string::npos;) {
    const std::size_t end = page.find(kEnd, at);
    names.push_back(page.substr(at + kBegin.size(), end - at - kBegin.size()));
    at = end + kEnd.size();
    if (page[at] == '/') names.back() += '/';
  }
  return names;
}

class ModernListingTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(site.errors, std::vector<std::string>{}); }

  std::vector<std::string> NamesAt(const std::string& target) { return ShownNames(BodyOf(site.Get(target))); }
  std::string RunWell(std::vector<std::string> arguments) {
    const Kit::ClientResult result = Kit::RunClient(site.loop, std::move(arguments), std::chrono::seconds(30));
    EXPECT_EQ(result.status, 0) << result.errors;
    return result.output;
  }
  std::string Url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(site.Port()) + path; }

  ListingSite site;
};

// ---- names

const std::string kOddNames[] = {
    "plain.txt",
    "two words",
    " blanks at both ends ",
    "\"double\" and 'single'",
    "<b>bold",
    "x\"><script>alert(1)",
    "a&b",
    "a&amp;b",
    "100%",
    "%41",
    "%2e%2e%2foutside",
    "a#b",
    "a?b=c",
    "a;b",
    "a+b",
    "a=b,c!(d)*$@[e]{f}|^`g",
    "c:",
    "javascript:alert(1)",
    "http:",
    "~",
    "~root",
    "-",
    "tail...",
    "\xC3\xA4\xC3\xB6",
    "a\xCC\x88",
    "\xE4\xF6.txt",
    "\xC3",
    "\xFF\xFE",
    "\xED\xA0\x80",
    "\xC2\x85",
    "\xF0\x9F\x8E\xB5",
    "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D.txt",
    "\xE2\x80\xAEtxt.scr",
    "\xEF\xBB\xBF"
    "bom",
    std::string(255, 'x'),
    std::string(255, '%'),
    std::string(255, '\xE4'),
};

// Names that no request leads to.
const std::string kNamesWithoutLink[] = {"new\nline", "tab\there", "\x01\x7F", "a\\b", "up\\..\\outside"};

// Reads the listing of the folder argv[2] as a page and as JSON, each as strictly as its form allows, follows each
// link, and prints what they lead to, a line for each.
constexpr const char* kListingReader = R"(
import html.parser, http.client, json, sys, urllib.parse
base = "http://127.0.0.1:%s%s" % (sys.argv[1], sys.argv[2])
connection = http.client.HTTPConnection("127.0.0.1", int(sys.argv[1]), timeout=10)

def fetch(link, **fields):
    address = urllib.parse.urlsplit(urllib.parse.urljoin(base, link))
    assert address.netloc == urllib.parse.urlsplit(base).netloc, link
    assert not address.query and not address.fragment, link
    connection.request("GET", address.path, headers=fields)
    answer = connection.getresponse()
    body = answer.read()
    assert answer.status == 200, (link, answer.status)
    return body

class Rows(html.parser.HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.links, self.names, self.inRows = [], 0, False
        self.feed(page)
        self.close()
    def handle_starttag(self, tag, attributes):
        assert tag not in ("script", "b"), tag
        if tag == "tbody":
            self.inRows = True
        if self.inRows and tag == "bdi":
            self.names += 1
        if self.inRows and tag == "a":
            self.links.append(dict(attributes)["href"])

page = Rows(fetch("").decode("utf-8"))
assert page.links[0] == "../"
entries = json.loads(fetch("", Accept="application/json").decode("utf-8"))
assert [e["link"] for e in entries if e["link"]] == page.links[1:]
assert len(entries) == page.names
for entry in entries:
    assert list(entry) == ["name", "link", "type", "size", "modified"], entry
    assert entry["type"] in ("file", "folder") and (entry["size"] is None) == (entry["type"] == "folder"), entry
    print("none" if entry["link"] is None else fetch(entry["link"]).decode())
)";

TEST_F(ModernListingTest, EveryNameIsReachedByItsLink) {
  for (const bool areFolders : {false, true}) {
    const std::string folder = areFolders ? "folders & more/" : "files #1/";
    std::multiset<std::string> expected;
    const auto add = [&](const std::string& name, const std::string& text, const std::string& found) {
      site.Write(folder + name + (areFolders ? "/index.html" : ""), text);
      expected.insert(found);
    };
    for (std::size_t i = 0; i < std::size(kOddNames); ++i) {
      const std::string text = "number " + std::to_string(i);
      add(kOddNames[i], text, text);
    }
    for (const std::string& name : kNamesWithoutLink) add(name, "never", "none");
    const std::string path = areFolders ? "/folders%20&%20more/" : "/files%20%231/";
    std::istringstream output(RunWell({"/usr/bin/python3", "-c", kListingReader, std::to_string(site.Port()), path}));
    std::multiset<std::string> found;
    for (std::string line; std::getline(output, line);) found.insert(line);
    EXPECT_EQ(found, expected) << folder;
  }
}

TEST_F(ModernListingTest, WgetBringsATreeBackWhole) {
  const char* const names[] = {"a.txt", "one down/50% & more.txt", "one down/two#down/c:d.txt", "<x>/\xC3\xA4?.txt"};
  for (const char* name : names) site.Write(std::string("tree/") + name, name);
  Kit::TemporaryTree copy;
  RunWell({"wget", "-q", "-r", "-l", "5", "-np", "-nH", "--restrict-file-names=nocontrol", "-e", "robots=off", "-P",
           copy.Text(), Url("/tree/")});
  for (const char* name : names) EXPECT_EQ(Kit::ReadFile(copy.Path() / "tree" / name), name);
}

TEST_F(ModernListingTest, WhatNoRequestWouldGetIsNotListed) {
  site.core.state.settings.AuthenticationSource = e_AuthSource::DirectoryFile;
  site.core.state.settings.AuthenticationSourceFile = site.root + "/names/users.txt";
  const std::string passwords = site.core.state.authFileName;
  ASSERT_FALSE(passwords.empty());
  site.core.state.settings.AuthenticationSource = e_AuthSource::GolbalFile;
  site.tree.Write("outside.txt", "OUTSIDE");
  for (const char* name : {"seen.txt", ".profile", "...", "..x", "users.txt", "folder/x", ".git/x"}) {
    site.Write(std::string("names/") + name);
  }
  site.Write("names/" + passwords, "ann:secret\n");
  site.Write("upper/" + Upper(passwords), "ann:secret\n");
  site.Write("upper/seen.txt");
  const fs::path names = site.root + "/names";
  fs::create_symlink("seen.txt", names / "link.txt");
  fs::create_symlink("folder", names / "linked");
  fs::create_symlink("../../outside.txt", names / "outside.txt");
  fs::create_symlink("/etc", names / "etc");
  fs::create_symlink("nothing", names / "dangling");
  fs::create_symlink("loop", names / "loop");
  fs::create_symlink("users.txt", names / "innocent.txt");
  fs::create_symlink(passwords, names / "harmless.txt");
  ASSERT_EQ(mkfifo((names / "pipe").c_str(), 0600), 0);
  site.core.state.settings.AuthenticationSource = e_AuthSource::DirectoryFile;
  const std::string ann = "Authorization: Basic YW5uOnNlY3JldA==\r\n";  // ann:secret
  const auto namesAt = [&](const char* target) { return ShownNames(BodyOf(site.Get(target, ann))); };
  EXPECT_EQ(namesAt("/names/"), (std::vector<std::string>{"folder/", "linked/", "link.txt", "seen.txt"}));
  EXPECT_EQ(namesAt("/upper/"), std::vector<std::string>{"seen.txt"});
  EXPECT_EQ(BodyOf(site.Get("/names/", std::string(kWantsJson) + ann)).find("users"), std::string::npos);
}

// ---- order and form

TEST_F(ModernListingTest, TheQueryChoosesTheOrder) {
  const struct {
    const char* name;
    std::size_t bytes;
    std::int64_t seconds;
  } files[] = {{"b.txt", 10, 300}, {"a.txt", 20, 100}, {"c.txt", 10, 200}};
  for (const auto& file : files) {
    site.Write(std::string("docs/") + file.name, std::string(file.bytes, 'x'));
    ASSERT_TRUE(WriteFileTime(site.root + "/docs/" + file.name, FileTime::kLastWrite, file.seconds));
  }
  for (const char* name : {"y", "z"}) {
    site.tree.MakeFolder(std::string("root/docs/") + name);
    ASSERT_TRUE(WriteFileTime(site.root + "/docs/" + name, FileTime::kLastWrite, name[0] == 'y' ? 9 : 5));
  }
  const struct {
    const char* query;
    std::vector<std::string> names;
  } cases[] = {
      {"", {"y/", "z/", "a.txt", "b.txt", "c.txt"}},
      {"?order=desc", {"z/", "y/", "c.txt", "b.txt", "a.txt"}},
      {"?sort=size", {"y/", "z/", "b.txt", "c.txt", "a.txt"}},
      {"?sort=size&order=desc", {"y/", "z/", "a.txt", "b.txt", "c.txt"}},
      {"?sort=time", {"z/", "y/", "a.txt", "c.txt", "b.txt"}},
      {"?order=desc&sort=time", {"y/", "z/", "b.txt", "c.txt", "a.txt"}},
      {"?sort=%3Cscript%3E&order=up", {"y/", "z/", "a.txt", "b.txt", "c.txt"}},
  };
  for (const auto& c : cases) EXPECT_EQ(NamesAt(std::string("/docs/") + c.query), c.names) << c.query;
  EXPECT_THAT(BodyOf(site.Get("/docs/?sort=time&order=desc", kWantsJson)),
              HasSubstr("[\n{\"name\":\"y\",\"link\":\"y/\",\"type\":\"folder\",\"size\":null,"
                        "\"modified\":\"1970-01-01T00:00:09Z\"},\n{\"name\":\"z\""));
  EXPECT_THAT(site.Get("/docs/?sort=%3Cscript%3E&x=<script>"), Not(HasSubstr("<script>")));
}

// The header lines but those that change with the clock and the text.
std::string FixedHead(const std::string& answer) {
  std::istringstream lines(answer.substr(0, answer.find("\r\n\r\n") + 2));
  std::string head;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("Date:") && !line.starts_with("Content-Length:")) head += line + "\n";
  }
  return head;
}

TEST_F(ModernListingTest, TheHeaderSaysWhatItIs) {
  site.Write("docs/a.txt");
  const auto expected = [](const std::string& type) {
    return "HTTP/1.1 200 OK\r\nServer: Orvane Tessel/1.1\r\nContent-Type: " + type +
           "\r\nVary: Accept\r\nX-Content-Type-Options: nosniff\r\n"
           "Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'\r\nConnection: close\r\n";
  };
  site.core.state.settings.Charset = "iso-8859-1";  // of other texts: a listing is UTF-8
  const std::string page = site.Get("/docs/");
  EXPECT_EQ(FixedHead(page), expected("text/html; charset=utf-8"));
  EXPECT_THAT(page, HasSubstr("\r\nContent-Length: " + std::to_string(BodyOf(page).size()) + "\r\n"));
  const std::string json = site.Get("/docs/", kWantsJson);
  EXPECT_EQ(FixedHead(json), expected("application/json"));
  EXPECT_THAT(json, HasSubstr("\r\nContent-Length: " + std::to_string(BodyOf(json).size()) + "\r\n"));
  EXPECT_EQ(site.Get("/docs/", "Accept: text/html\r\nAccept: application/json;q=0.5\r\n").find("[\n{"),
            std::string::npos);
}

TEST_F(ModernListingTest, HeadHasTheHeaderOfGet) {
  site.Write("docs/a.txt");
  for (const char* fields : {"", kWantsJson}) {
    const std::string whole = site.Get("/docs/", fields);
    const std::string head = site.Ask("HEAD", "/docs/", fields);
    EXPECT_EQ(Kit::WithoutDate(head), Kit::WithoutDate(whole.substr(0, whole.find("\r\n\r\n") + 4)));
  }
}

TEST_F(ModernListingTest, OnlyAFolderThatMayBeListedIs) {
  site.Write("docs/a.txt");
  site.Write("indexed/index.html", "INDEX");
  const auto isStatus = [this](const std::string& method, const std::string& target, const char* line) {
    EXPECT_EQ(StatusLineOf(site.Ask(method, target)), line) << method << " " << target;
  };
  isStatus("GET", "/docs", "HTTP/1.1 301 Moved Permanently");
  isStatus("POST", "/docs/", "HTTP/1.1 405 Method Not Allowed");
  isStatus("OPTIONS", "/docs/", "HTTP/1.1 204 No Content");
  isStatus("GET", "/missing/", "HTTP/1.1 404 Not Found");
  isStatus("GET", "/docs/a.txt/", "HTTP/1.1 404 Not Found");
  EXPECT_EQ(BodyOf(site.Get("/indexed/")), "INDEX");
  site.core.state.settings.DirectoryBrowseEnable = false;
  isStatus("GET", "/docs/", "HTTP/1.1 403 Forbidden");
  isStatus("HEAD", "/docs/", "HTTP/1.1 403 Forbidden");
  EXPECT_EQ(BodyOf(site.Get("/indexed/")), "INDEX");
}

TEST_F(ModernListingTest, LinksUpwardsLeadThereHoweverTheFolderWasAskedFor) {
  site.Write("a/b c/x.txt");
  const std::string relative = "<h1><a href=\"../../\"><bdi>shelf</bdi></a> / <a href=\"../\"><bdi>a</bdi></a> / ";
  const std::string absolute = "<h1><a href=\"/\"><bdi>shelf</bdi></a> / <a href=\"/a/\"><bdi>a</bdi></a> / ";
  const struct {
    const char* target;
    const std::string& heading;
    const char* why;
  } cases[] = {
      {"/a/b%20c/", relative, "the address has the same parts"},
      {"/%61/b%20c/?order=desc", relative, "codes divide nothing"},
      {"http://shelf/a/b%20c/", relative, "nor does what is in front of the path"},
      {"/a//b%20c/", absolute, "an empty part"},
      {"/a/./b%20c/", absolute, "a dot"},
      {"/a/x/../b%20c/", absolute, "two"},
      {"/a/b%20c//", absolute, "an empty part at the end"},
  };
  for (const auto& c : cases) EXPECT_THAT(BodyOf(site.Get(c.target)), HasSubstr(c.heading)) << c.target << c.why;
}

int AskForAClosedFolder() {
  ListingSite site;
  site.Write("closed/a.txt");
  fs::permissions(site.root + "/closed", fs::perms(0111));
  const std::string answer = site.Get("/closed/");
  const std::string file = site.Get("/closed/a.txt");
  fs::permissions(site.root + "/closed", fs::perms(0700));
  if (StatusLineOf(answer) != "HTTP/1.1 403 Forbidden") return 1;
  return StatusLineOf(file) == "HTTP/1.1 200 OK" ? 0 : 2;
}

TEST(ModernClosedFolderTest, AFolderThatMayNotBeReadIsForbidden) {
  const int status = Kit::InUnprivilegedChild(AskForAClosedFolder);
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
}

// ---- large folders

class LargeModernListingTest : public ModernListingTest {
 protected:
  static constexpr int kFiles = 20'000;

  LargeModernListingTest() {
    const std::string folder = site.tree.MakeFolder("root/many");
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < kFiles; ++i) {
      const std::string name = "entry " + std::to_string(i);
      EXPECT_EQ(mknodat(descriptor, name.c_str(), S_IFREG | 0644, 0), 0) << name;
    }
    close(descriptor);
    site.Write("open.txt", "open");
  }
  std::int64_t PageMemoryUsed() const { return site.core.state.pageMemory.Used(); }
};

TEST_F(LargeModernListingTest, OthersAreAnsweredWhileItIsMade) {
  site.world.LooksTake(100);  // many stretches of work, and not one, make a turn
  Kit::RawClient client(site.Port());
  client.Send(site.loop, ListingSite::Request("GET", "/many/"));
  int answered = 0;
  while (!client.Poll() && client.Received().empty()) {
    EXPECT_EQ(BodyOf(site.Get("/open.txt")), "open");
    ++answered;
  }
  EXPECT_GT(answered, 10);
  const std::string page = client.ReceiveAll(site.loop);
  const std::vector<std::string> names = ShownNames(page);
  EXPECT_EQ(names.size(), std::size_t{kFiles});
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), std::size_t{kFiles});
  EXPECT_TRUE(page.ends_with("</html>\n"));
}

TEST_F(LargeModernListingTest, WithoutMemoryForItTheServerIsTooBusy) {
  for (const std::int64_t limit : {0, 10'000, 1'000'000, 3'000'000}) {
    site.core.state.pageMemory.Limit(limit);
    const std::string answer = site.Get("/many/");
    EXPECT_EQ(StatusLineOf(answer), "HTTP/1.1 503 Service Unavailable") << limit;
    EXPECT_EQ(PageMemoryUsed(), 0) << limit;
  }
  site.core.state.pageMemory.Limit(kDefaultMaxUnsentPageBytes);
  EXPECT_EQ(StatusLineOf(site.Get("/many/")), "HTTP/1.1 200 OK");
  EXPECT_EQ(PageMemoryUsed(), 0);
}

TEST_F(LargeModernListingTest, AClientThatGoesAwayLeavesNothing) {
  EXPECT_EQ(BodyOf(site.Get("/open.txt")), "open");
  Kit::Settle(site.loop);
  const std::size_t descriptors = Kit::CountDescriptors();
  site.world.LooksTake(1000);
  for (const int turns : {1, 5, 50, 500, 1500}) {
    {
      Kit::RawClient client(site.Port());
      client.Send(site.loop, ListingSite::Request("GET", "/many/"));
      for (int i = 0; i < turns; ++i) site.loop.RunOnce(0);
      EXPECT_TRUE(client.Received().empty());
      client.Abort();
    }
    Kit::Settle(site.loop);
    EXPECT_EQ(PageMemoryUsed(), 0) << turns;
    EXPECT_EQ(TaskPromise::living, 0) << turns;
    EXPECT_EQ(Kit::CountDescriptors(), descriptors) << turns;
  }
  site.errors.clear();  // a client that resets its connection is reported
}

TEST_F(LargeModernListingTest, OfAFolderThatChangesMeanwhileEachNameIsListedOnceAtMost) {
  site.world.LooksTake(200);
  Kit::RawClient client(site.Port());
  client.Send(site.loop, ListingSite::Request("GET", "/many/"));
  const fs::path folder = site.root + "/many";
  for (int i = 0; !client.Poll() && client.Received().empty(); ++i) {
    site.loop.RunOnce(0);
    const std::string name = "entry " + std::to_string(i % 2000);
    std::error_code ignored;
    switch (i % 3) {
      case 0:
        fs::remove(folder / name, ignored);
        fs::create_directory(folder / name, ignored);
        break;
      case 1:
        fs::rename(folder / name, folder / ("moved " + name), ignored);
        break;
      default:
        site.Write("many/new " + std::to_string(i));
    }
  }
  std::vector<std::string> names = ShownNames(client.ReceiveAll(site.loop));
  EXPECT_GT(names.size(), std::size_t{kFiles} / 2);
  for (std::string& name : names) {
    if (name.ends_with('/')) name.pop_back();
  }
  const std::size_t count = names.size();
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), count);
}

}  // namespace
}  // namespace TesselServer
