// Each kind of answer that waits for something, or takes long.

#include <filesystem>

#include "tests/wire/SuspensionStage.h"

namespace TesselServer::Suspension {

namespace {

constexpr const char* kProgram = "printf \"hello $REMOTE_HOST, \"\nread line < $here/gate\nprintf done";
constexpr const char* kMember = "Authorization: Basic YW5uOnNlY3JldA==\r\n";  // ann:secret
constexpr const char* kNothing =
    "/1234";                 // known at once, for a name without letters has one spelling, and not guarded
constexpr int kSome = 120;   // each of which is looked at
constexpr int kMany = 3000;  // whose names are gone through

void Nothing(Stage&) {}

void OneProgram(const Site& site) { site.Program("slow.exe", kProgram); }

// One that is served before has the only place.
void Occupy(Stage& stage) {
  stage.before.push_back(std::make_unique<Kit::RawClient>(stage.tessel->ListeningPort()));
  stage.before.back()->Send(stage.loop, stage.Request());
  Kit::Settle(stage.loop);
}

void Remember(Stage& stage) { stage.Exchange(stage.Request()); }

void ManyFiles(const Site& site) {
  site.Folder("files", kMany);
  site.File("files/Other.txt", "found");
}

void SomeFiles(const Site& site) {
  site.Folder("files", kSome);
  site.File("elsewhere.txt", "linked");
  std::filesystem::create_symlink("../elsewhere.txt", site.root + "/files/link.txt");
  std::filesystem::create_symlink("../../outside.txt", site.root + "/files/outside.txt");
  site.tree.Write("outside.txt", "outside");
}

void HoldNames(Stage& stage) { stage.site.names.AreHeld(true); }

void MountedDisk(const Site& site) {
  site.MountDisk();
  site.File("guarded.txt", "guarded");
  if (site.disk) std::filesystem::create_symlink(site.disk->Name() + "/page.html", site.root + "/link.html");
}

// A few pieces, each of which is read by itself.
void LargeFileThere(const Site& site) {
  site.MountDisk();
  if (site.disk) site.tree.Write("shown/large.bin", std::string(400'000, 'x'));
}

void HoldDisk(Stage& stage) {
  stage.holdsDisk = true;
  stage.site.HoldDisk();
}

void TrapPages(Stage& stage) {
  stage.tessel->TrapFileEnable(true);
  stage.tessel->TrapFileTypes("html");
}

void TwoPrograms(const Site& site) {
  OneProgram(site);
  site.File("page.html", "[<!--#exec cgi=\"slow.exe\"-->|<!--#exec cgi=\"slow.exe\"-->]");
}

void IncludedProgram(const Site& site) {
  OneProgram(site);
  site.File("inner.html", "(<!--#exec cgi=\"slow.exe\"-->)");
  site.File("page.html", "[<!--#include=\"inner.html\"-->]");
}

void PageWithTags(const Site& site) {
  std::string page;
  for (int i = 0; i < 36; ++i) {
    page += "<!--#echo var=\"SERVER_NAME\"--> <%= SERVER_PROTOCOL %>" + std::string(400, '.') + "\n";
  }
  site.File("page.html", page);
}

Kind Exact(Kind kind) {
  kind.isExact = true;
  return kind;
}

}  // namespace

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {
      {"Program", "/slow.exe", OneProgram, Nothing},
      {"ProgramThatWaitsForAPlace", "/slow.exe", OneProgram,
       [](Stage& stage) {
         stage.tessel->MaxPrograms(1);
         stage.tessel->MaxConnections(stage.tessel->MaxConnections() + 1);
       },
       Occupy},
      {"ProgramThatWaitsForAName", "/slow.exe", OneProgram, HoldNames},
      {"ProgramThatCannotBeRun", "/page.html",
       [](const Site& site) {
         site.tree.Write("cgi/broken.exe", "no program");
         site.File("page.html", "[<!--#exec cgi=\"broken.exe\"-->]");
       },
       Nothing},
      {"PageWithTwoPrograms", "/page.html", TwoPrograms, Nothing},
      {"IncludeWithAProgram", "/page.html", IncludedProgram, Nothing},
      {"PageWithAName", "/page.html",
       [](const Site& site) { site.File("page.html", "[<!--#echo var=\"REMOTE_HOST\"-->]"); }, HoldNames},
      Exact({"Listing", "/files/", SomeFiles, Nothing}),
      Exact({"ListingOfARememberedFolder", "/files/", SomeFiles, Nothing, Remember}),
      Exact({"NameInOtherCase", "/files/oTHER.txt", ManyFiles, Nothing}),
      Exact(
          {"MissingIndexPage", "/files/", ManyFiles, [](Stage& stage) { stage.tessel->DirectoryBrowseEnable(false); }}),
      Exact({"SitesPasswordFile", "/guarded.txt",
             [](const Site& site) {
               std::string passwords = "realm:Members\n";
               for (int i = 0; i < 10'000; ++i) passwords += "somebody:else\n";
               site.tree.Write("passwords.txt", passwords + "ann:secret\n");
               site.File("guarded.txt", "guarded");
             },
             [](Stage& stage) { stage.tessel->AuthenticationSourceFile(stage.site.tree.Text() + "/passwords.txt"); },
             nullptr, kMember, kNothing}),
      Exact({"MissingPasswordFileAmongMany", "/files/77.txt", ManyFiles,
             [](Stage& stage) { stage.tessel->AuthenticationSource(e_AuthSource::DirectoryFile); }, nullptr, "",
             kNothing}),
      Exact({"PageWithManyTags", "/page.html", PageWithTags, Nothing}),
      Exact({"ErrorPage", "/missing.txt",
             [](const Site& site) {
               site.tree.Write("application/html/errors/http404.html",
                               "<!--#echo var=\"DOCUMENT_URI\"--> is not here" + std::string(16 * 1024, '.'));
             },
             [](Stage& stage) { stage.tessel->ErrorFilesEnable(true); }}),
      {"FileOnASlowDisk", "/*/page.html", MountedDisk, Nothing, HoldDisk},
      {"LargeFileOnASlowDisk", "/*/large.bin", LargeFileThere, Nothing, HoldDisk},
      {"ListingThatShowsASlowDisk", "/", MountedDisk, Nothing, HoldDisk},
      {"PasswordFileOnASlowDisk", "/guarded.txt", MountedDisk,
       [](Stage& stage) {
         if (stage.site.disk) stage.tessel->AuthenticationSourceFile(stage.site.disk->Path() + "/passwords.txt");
       },
       HoldDisk, kMember, kNothing},
      {"RequestHandedBackLater", "/page.html", TwoPrograms, TrapPages},
      Exact({"RequestHandedBackAtOnce", "/page.html", PageWithTags,
             [](Stage& stage) {
               TrapPages(stage);
               stage.answersInside = true;
             }}),
      {"PageWithFunctions", "/page.html",
       [](const Site& site) {
         OneProgram(site);
         site.File("page.html", "[<%= FunctionOne() %><!--#exec cgi=\"slow.exe\"--><%= FunctionTwo(x) %>]");
       },
       [](Stage& stage) { stage.tessel->HTMLFunctionsEnable(true); }},
  };
  return kinds;
}

}  // namespace TesselServer::Suspension
