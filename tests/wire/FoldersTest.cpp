// Lists of folders, as clients follow their links, with names and folders of every kind.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <thread>

#include "tests/kit/Child.h"
#include "tests/kit/Memory.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

namespace fs = std::filesystem;
using Kit::BodyOf;
using Kit::StatusLineOf;
using testing::HasSubstr;
using testing::Not;

// How often `part` stands in `text`.
std::size_t Count(const std::string& text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

// Every byte as a code, "/" too.
std::string Encoded(const std::string& name) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    text.append({'%', kDigits[byte >> 4], kDigits[byte & 0x0F]});
  }
  return text;
}

class FoldersTest : public Kit::WireTest {
 protected:
  FoldersTest() {
    control.tree.Write("outside.txt", "OUTSIDE");
    control.tessel.VerboseErrorsEnable(false);
    control.tessel.DirectoryBrowseEnable(true);
    control.Start(4);
  }
};

// ---- names

// Reads the lists /1/ to /N/ as a browser does, and follows each link but the parent's. Prints a line for each list,
// with the bodies of what its links lead to. A link is taken apart as a browser takes it apart; its bytes travel as
// codes.
constexpr const char* kFollower = R"(
import html.parser, http.client, sys, urllib.parse
port, count = int(sys.argv[1]), int(sys.argv[2])

def fetch(path):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
    connection.request("GET", path)
    answer = connection.getresponse()
    body = answer.read()
    connection.close()
    assert answer.status in (200, 404), answer.status
    return body if answer.status == 200 else b""

class Links(html.parser.HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.found = []
        self.feed(page.decode("latin-1"))
        self.close()
    def handle_starttag(self, tag, attributes):
        if tag == "a":
            self.found.append(dict(attributes).get("href") or "")

def follow(start, link):
    parts = urllib.parse.urlsplit(urllib.parse.urljoin("http://127.0.0.1" + start, link))
    return fetch(urllib.parse.quote(parts.path.encode("latin-1"), safe="/%!$&'()*+,;=:@~-._"))

for start in ("/%d/" % number for number in range(1, count + 1)):
    parent, *links = Links(fetch(start)).found
    assert parent == "/", parent
    sys.stdout.buffer.write(b" ".join(follow(start, link).replace(b"\n", b"") for link in links) + b"\n")
)";

struct NameCase {
  const char* name;
  bool fileLinkLeadsThere;
  bool folderLinkLeadsThere;
  bool isThere;  // for who writes the name out as codes
  const char* why;
};

constexpr NameCase kNames[] = {
    {"plain.txt", true, true, true, "nothing special"},
    {"two words.txt", false, true, true, "a link without quotes ends at a blank"},
    {" leading", false, true, true, "and begins behind it"},
    {"tab\there", false, false, false, "a control character is no part of an address"},
    {"new\nline", false, false, false, "nor is a line end"},
    {"return\rhere", false, false, false, "nor that one"},
    {"bell\x07", false, false, false, "nor any other"},
    {"100%", true, true, true, "no code follows the %"},
    {"%41", true, true, true, "the name itself is tried before the code is"},
    {"50%25", true, true, true, "the same"},
    {"blank%20code", false, true, true, "the one code that is always taken for what it stands for"},
    {"a#b", false, true, true, "what follows the # is a place in a page"},
    {"a?b", false, true, true, "what follows the ? is a query"},
    {"q'uote", true, true, true, "a quote inside a value is a character"},
    {"d\"quote", true, true, true, "and that one too"},
    {"<less>", false, true, true, "the > ends the tag"},
    {"<less", true, true, true, "without it the < is a character of the address"},
    {"a>b", false, true, true, "the same"},
    {"a&b", true, true, true, "no character is called b"},
    {"a&amp;b", false, true, true, "but & is"},
    {"\xC3\xA4.txt", true, true, true, "this client sends the bytes as they are; browsers take them for other letters"},
    {"\xE4.txt", true, true, true, "the same, and no UTF-8"},
    {"a\\b", false, false, false, "a separator in an address"},
    {"x><a href=..%2F..%2Foutside.txt>", false, true, true, "a name that brings its own link"},
    {"x><a href=..%5C..%5Coutside.txt>", false, true, true, "and another"},
    {"a+b=c;d,e!(f)~@$*-_.", true, true, true, "characters that stand for themselves"},
};

class FolderNamesTest : public FoldersTest {
 protected:
  // The folder, below the root, in which the entry with that name lies alone. 1 is the first.
  static std::string FolderOf(const NameCase& c) { return std::to_string(&c - std::begin(kNames) + 1); }
  std::string PathOf(const NameCase& c) { return control.tree.MakeFolder("root/" + FolderOf(c)) + "/" + c.name; }

  // What the links of each such folder lead to, in the order of the names.
  std::vector<std::string> FollowAll() {
    std::istringstream output(RunWell(
        {"/usr/bin/python3", "-c", kFollower, std::to_string(control.Port()), std::to_string(std::size(kNames))}));
    std::vector<std::string> lines;
    for (std::string line; std::getline(output, line);) lines.push_back(line);
    EXPECT_EQ(lines.size(), std::size(kNames));
    lines.resize(std::size(kNames));
    return lines;
  }
};

TEST_F(FolderNamesTest, LinksOfFilesLeadToThemWhereTheirNamesAllowIt) {
  for (const NameCase& c : kNames) std::ofstream(PathOf(c)) << "INSIDE";
  const std::vector<std::string> found = FollowAll();
  for (const NameCase& c : kNames) {
    const std::string& bodies = found[static_cast<std::size_t>(&c - std::begin(kNames))];
    EXPECT_EQ(Count(bodies, "INSIDE") > 0, c.fileLinkLeadsThere) << c.name << ": " << c.why;
    EXPECT_EQ(Count(bodies, "OUTSIDE"), 0u) << c.name;
    const std::string address = "/" + FolderOf(c) + "/" + Encoded(c.name);
    EXPECT_EQ(BodyOf(control.Get(address)), c.isThere ? "INSIDE" : "") << c.name << ": " << c.why;
  }
}

TEST_F(FolderNamesTest, LinksOfFoldersLeadToThemWhereTheirNamesCanBePrinted) {
  for (const NameCase& c : kNames) {
    fs::create_directory(PathOf(c));
    std::ofstream(PathOf(c) + "/index.html") << "INSIDE";
  }
  const std::vector<std::string> found = FollowAll();
  for (const NameCase& c : kNames) {
    const std::string& bodies = found[static_cast<std::size_t>(&c - std::begin(kNames))];
    EXPECT_EQ(Count(bodies, "INSIDE") > 0, c.folderLinkLeadsThere) << c.name << ": " << c.why;
    EXPECT_EQ(Count(bodies, "OUTSIDE"), 0u) << c.name;
  }
}

TEST_F(FoldersTest, NamesOf255BytesAreListedAndServed) {
  for (const std::string& name : {std::string(255, 'x'), std::string(255, '\xE4'), std::string(255, '%')}) {
    control.Write("long/" + name, "INSIDE");
    fs::create_directories(fs::path(control.root) / "longfolders" / name);
    EXPECT_THAT(BodyOf(control.Get("/long/")), HasSubstr("<a href = /long/" + name + ">" + name + "</a>"));
    EXPECT_EQ(BodyOf(control.Get("/long/" + Encoded(name))), "INSIDE");
    EXPECT_THAT(BodyOf(control.Get("/longfolders")), HasSubstr(">" + name + "</a>"));
    EXPECT_THAT(BodyOf(control.Get("/longfolders/" + Encoded(name))), HasSubstr("[Parent Directory]"));
  }
  EXPECT_EQ(StatusLineOf(control.Get("/long/" + std::string(256, 'x'))), "HTTP/1.0 404 Not Found");
}

// ---- folders

TEST_F(FoldersTest, WgetFollowsTheLinksOfATreeDownAndBringsItAllBack) {
  control.Write("tree/a.txt", "1");
  control.Write("tree/one down/b.txt", "2");
  control.Write("tree/one down/two-down/c.txt", "3");
  control.Write("tree/one down/two-down/100% down/d.txt", "4");
  Kit::TemporaryTree copy;
  RunWell({"wget", "-q", "-r", "-l", "5", "-np", "-nH", "-e", "robots=off", "-P", copy.Text(), control.Url("/tree/")});
  EXPECT_EQ(Kit::ReadFile(copy.Path() / "tree/a.txt"), "1");
  EXPECT_EQ(Kit::ReadFile(copy.Path() / "tree/one down/b.txt"), "2");
  EXPECT_EQ(Kit::ReadFile(copy.Path() / "tree/one down/two-down/c.txt"), "3");
  EXPECT_EQ(Kit::ReadFile(copy.Path() / "tree/one down/two-down/100% down/d.txt"), "4");
}

// Where files are made fastest: in memory, if there is such a place.
fs::path FastFolder() { return fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path(); }

// Fills a folder with empty files.
void Fill(const std::string& folder, int count) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < count; ++i) {
    const std::string name = "entry number " + std::to_string(i) + ".txt";
    if (mknodat(descriptor, name.c_str(), S_IFREG | 0644, 0) != 0) {
      ADD_FAILURE() << name << ": errno " << errno;
      break;
    }
  }
  close(descriptor);
}

TEST_F(FoldersTest, AFolderOfAHundredThousandEntriesIsListedWhole) {
  const int count = Kit::kSanitized ? 20'000 : 100'000;
  constexpr std::int64_t kBytesPerRow = 320;
  const Kit::TemporaryTree tree(FastFolder());
  Fill(tree.MakeFolder("many"), count);
  tree.Write("open.txt", "open");
  control.tessel.VirtualPath(tree.Text());
  const std::int64_t before = Kit::ResidentBytes();
  const std::string page =
      RunWell({"curl", "-sS", "--max-time", "50", control.Url("/many/")}, std::chrono::seconds(60));
  if (!Kit::kSanitized) {
    EXPECT_LT(Kit::ResidentBytes() - before, 3 * kBytesPerRow * count);
  }
  EXPECT_EQ(Count(page, "<a href = /many/entry number "), static_cast<std::size_t>(count));
  EXPECT_TRUE(page.ends_with("</table>\r\n</html>\r\n"));
  EXPECT_LT(page.size(), static_cast<std::size_t>(kBytesPerRow * count));
  EXPECT_EQ(BodyOf(control.Get("/open.txt")), "open");
}

TEST_F(FoldersTest, AListWhoseClientGoesAwayIsForgotten) {
  const Kit::TemporaryTree tree(FastFolder());
  Fill(tree.MakeFolder("many"), 10'000);  // more than a connection holds on its way
  tree.Write("open.txt", "open");
  control.tessel.VirtualPath(tree.Text());
  const std::string free = control.tessel.Stats_FreeConnections();
  for (int i = 0; i < 10; ++i) {
    Kit::RawClient client(control.Port());
    client.Send(loop, "GET /many/ HTTP/1.0\r\n\r\n");
    loop.RunOnce(5);
    client.Abort();
    EXPECT_EQ(BodyOf(control.Get("/open.txt")), "open");
  }
  Kit::Settle(loop);
  EXPECT_EQ(control.tessel.Stats_FreeConnections(), free);
  control.errors.clear();  // a client that resets its connection is told to the host
}

// A folder that comes and goes, as fast as it can, until the object goes.
class RestlessFolder {
 public:
  explicit RestlessFolder(fs::path path) : path_(std::move(path)), thread_([this] { Run(); }) {}
  RestlessFolder(const RestlessFolder&) = delete;
  RestlessFolder& operator=(const RestlessFolder&) = delete;
  ~RestlessFolder() {
    ended_ = true;
    thread_.join();
  }

 private:
  void Run() {
    while (!ended_) {
      std::error_code ignored;
      fs::create_directories(path_, ignored);
      for (int i = 0; i < 50; ++i) std::ofstream(path_ / ("file" + std::to_string(i)));
      fs::remove_all(path_, ignored);
    }
  }

  fs::path path_;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

TEST_F(FoldersTest, AFolderThatVanishesWhileItIsListedIsAListOrMissing) {
  control.Write("here/stays.txt", "x");
  int lists = 0;
  int missing = 0;
  {
    const RestlessFolder folder(fs::path(control.root) / "here" / "restless");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    // As long as it takes to see both, and a number of them.
    while ((lists + missing < 300 || lists == 0 || missing == 0) && std::chrono::steady_clock::now() < end) {
      const std::string answer = control.Get("/here/restless/");
      if (StatusLineOf(answer) == "HTTP/1.0 404 Not Found") {
        ++missing;
        continue;
      }
      ++lists;
      ASSERT_EQ(StatusLineOf(answer), "HTTP/1.0 200 OK");
      ASSERT_TRUE(answer.ends_with("</table>\r\n</html>\r\n"));
      ASSERT_LE(Count(answer, "<a href = /here/restless/file"), 50u);
      ASSERT_THAT(answer, HasSubstr("<a href = /here/>[Parent Directory]"));
    }
  }
  EXPECT_GT(lists, 0);
  EXPECT_GT(missing, 0);
  EXPECT_THAT(BodyOf(control.Get("/here/")), HasSubstr(">stays.txt</a>"));
}

// In a child that is not root, to whom nothing is closed. 0, or the number of what went wrong.
int AskForClosedFolders() {
  EventLoop loop;
  Kit::WireControl control(loop);
  control.Write("closed/a.txt", "x");
  control.Write("names/a.txt", "x");
  control.Write("open.txt", "open");
  control.tessel.VerboseErrorsEnable(false);
  control.tessel.DirectoryBrowseEnable(true);
  if (!control.tessel.StartServer()) return 1;
  const auto get = [&control](const char* path) { return control.Get(path); };
  const auto permit = [&control](const char* folder, int mode) {
    fs::permissions(fs::path(control.root) / folder, fs::perms(mode));
  };
  permit("closed", 0111);  // its files may be opened, its list may not be read
  permit("names", 0444);   // the other way round
  int wrong = 0;
  const std::string closed = get("/closed/");
  const std::string names = get("/names/");
  for (const std::string& answer : {closed, names}) {
    if (StatusLineOf(answer) != "HTTP/1.0 200 OK" || !answer.ends_with("</table>\r\n</html>\r\n")) wrong = 2;
    if (answer.find("[Parent Directory]") == std::string::npos || answer.find("a.txt") != std::string::npos) wrong = 3;
  }
  if (BodyOf(get("/closed/a.txt")) != "x") wrong = 4;
  if (StatusLineOf(get("/names/a.txt")) != "HTTP/1.0 404 Not Found") wrong = 5;
  control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  if (StatusLineOf(get("/closed/")) != "HTTP/1.0 401 Unauthorized") wrong = 6;  // whether it asks cannot be told
  if (BodyOf(get("/open.txt")) != "open" || !control.errors.empty()) wrong = 7;
  permit("closed", 0700);
  permit("names", 0700);
  return wrong;
}

TEST(ClosedFoldersTest, AFolderThatMayNotBeReadIsAListOfNothing) {
  const int status = Kit::InUnprivilegedChild(AskForClosedFolders);
  if (status == Kit::kCannotDropUser) GTEST_SKIP() << "no other user to change to";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace TesselServer
