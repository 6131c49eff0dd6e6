#include "tests/wire/SuspensionStage.h"

#include <chrono>
#include <filesystem>
#include <fstream>

#include "platform/programs/OwnedChild.h"
#include "platform/tasks/Task.h"
#include "tests/kit/Descriptors.h"

namespace TesselServer::Suspension {

namespace {

constexpr std::int64_t kMicrosecondsPerLook = 1000;
constexpr std::int64_t kFilesSettle = 5000;        // milliseconds, after which no file has just been changed
constexpr std::int32_t kUntilReleased = 50;        // milliseconds at most, in which what is let go comes
constexpr auto kHangs = std::chrono::seconds(60);  // many times what a busy machine takes

}  // namespace

// ---- SilentNames

std::string SilentNames::Name() {
  std::unique_lock lock(mutex_);
  if (std::this_thread::get_id() != test_) changed_.wait(lock, [this] { return !areHeld_; });
  return "client.example.org";
}

void SilentNames::AreHeld(bool held) {
  const std::scoped_lock lock(mutex_);
  areHeld_ = held;
  changed_.notify_all();
}

// ---- Site

void Site::Folder(const std::string& name, int files) const {
  for (int i = 0; i < files; ++i) File(name + "/" + std::to_string(i) + ".txt", std::to_string(i));
}

void Site::MountDisk() const {
  tree.Write("shown/page.html", "[<!--#echo var=\"SERVER_PROTOCOL\"-->]");
  tree.Write("shown/passwords.txt", "realm:Members\nann:secret\n");
  if (Kit::SlowDisk::IsPossible()) disk.emplace(tree.Text() + "/shown", 0, root);
}

void Site::HoldDisk() const {
  if (disk) disk->HoldAll();
}

void Site::ReleaseDisk() const {
  if (disk) disk->Release();
}

void Site::CopyRoot() const {
  namespace fs = std::filesystem;
  fs::copy(root, otherRoot, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  for (const auto& entry : fs::recursive_directory_iterator(otherRoot)) {
    if (!entry.is_symlink() && entry.is_regular_file()) std::ofstream(entry.path(), std::ios::app) << " elsewhere";
  }
}

// ---- Stage

Stage::Stage(const Kind& given, Site& files, std::int32_t slots) : kind(given), site(files) {
  world.Skip(kFilesSettle);
  world.nameOf = [&names = site.names](std::uint32_t) { return std::optional<std::string>(names.Name()); };
  loop.HandlerFailed = [this](std::string& text) { failures.push_back(text); };
  descriptorsBefore = Kit::CountDescriptors();
  tessel = std::make_unique<Tessel>(loop);
  tessel->ServerIP("127.0.0.1");
  tessel->ServerPort("0");
  tessel->VirtualPath(site.root);
  tessel->ApplicationFolder(site.tree.Text() + "/application");
  tessel->CGIDirectory(site.tree.Text() + "/cgi");
  tessel->CGIEnable(true);
  tessel->SSIEnable(true);
  tessel->DirectoryBrowseEnable(true);
  Connect();
  tessel->MaxConnections(slots + 1);
  kind.configure(*this);
  tessel->StartServer();
  if (kind.prepare != nullptr) kind.prepare(*this);
  framesOfOthers = TaskPromise::living;
  world.LooksTake(kMicrosecondsPerLook);
}

Stage::~Stage() {
  onEvent = nullptr;
  tessel.reset();
  site.names.Answer();
  site.ReleaseDisk();
  EndChildren();
}

// What a handler needs is a copy: the control, and the handler with it, may be gone when the event is over.
void Stage::Connect() {
  tessel->HTTPLog = [this](std::string& line) { Raised(line); };
  tessel->StatusLine = [this](std::string& text) { Raised(text); };
  tessel->LogEvent = [this](std::string& text) {
    errors.push_back(text);
    Raised(text);
  };
  tessel->FileRequest = [this](std::int32_t& index, std::string& path, std::string&) {
    Stage& stage = *this;
    const std::int32_t asks = index;
    stage.offered = asks;
    stage.Raised(path);
    if (!stage.answersInside || !stage.tessel) return;
    stage.offered = 0;
    stage.tessel->TrapFileData(asks, "", true);
  };
  tessel->CallFunction = [this](std::int32_t& index, std::string& name) {
    Stage& stage = *this;
    const std::int32_t asks = index;
    const std::string answer = "(" + name + ")";
    stage.loop.DoEvents();
    stage.Raised(name);
    stage.loop.DoEvents();
    if (stage.tessel) stage.tessel->ReturnData(asks, answer);
  };
}

std::string Stage::Url() const {
  std::string url = kind.url;
  const std::size_t mark = url.find('*');
  if (mark != std::string::npos && site.disk) url.replace(mark, 1, site.disk->Name());
  return url;
}

void Stage::Raised(const std::string& text) {
  if (onEvent) onEvent(text);
}

void Stage::Ask() {
  first = std::make_unique<Kit::RawClient>(tessel->ListeningPort());
  first->Send(loop, Request());
}

bool Stage::IsUnderWay() {
  if (!first || first->Descriptor() < 0 || first->Poll()) return false;
  hasBegun_ = hasBegun_ || offered != 0 || TaskPromise::living > framesOfOthers;
  return hasBegun_;
}

bool Stage::RunTo(int point) {
  Ask();
  while (!IsUnderWay() && first->Descriptor() >= 0 && !first->Ended()) loop.RunOnce(20);
  for (int i = 0; i < point && IsUnderWay(); ++i) Step();
  return IsUnderWay();
}

bool Stage::Delivers(std::int32_t milliseconds) {
  if (!loop.RunOnce(milliseconds)) return false;
  if (holdsDisk && tessel && tessel->Workers() > 0) site.HoldDisk();
  return true;
}

void Stage::Step() {
  if (Delivers(0) || Delivers(2) || Delivers(4)) return;
  const bool hostAnswers = offered != 0;
  Release();
  if (!hostAnswers) Delivers(kUntilReleased);
}

bool Stage::Finish(Kit::RawClient& client) {
  holdsDisk = false;
  const auto end = std::chrono::steady_clock::now() + kHangs;
  while (TaskPromise::living > 0 || (client.Descriptor() >= 0 && !client.Poll())) {
    if (std::chrono::steady_clock::now() > end) return false;
    Step();
  }
  return true;
}

bool Stage::ComesToNothing() {
  constexpr std::int64_t kBeside = 2;
  if (!Kit::RunUntil(loop, [this] { return TaskPromise::living <= framesOfOthers + kBeside; })) return false;
  site.names.Answer();
  site.ReleaseDisk();
  return Kit::RunUntil(loop, [this] { return TaskPromise::living <= framesOfOthers; });
}

void Stage::Release() {
  site.names.Answer();
  site.ReleaseDisk();
  site.gate.Open();
  if (offered == 0 || !tessel) return;
  const std::int32_t index = offered;
  offered = 0;
  tessel->TrapFileData(index, "", true);
}

std::string Stage::Exchange(const std::string& request) {
  Kit::RawClient client(tessel->ListeningPort());
  client.Send(loop, request);
  return Finish(client) ? client.Received() : "no answer";
}

bool Stage::EndChildren() {
  const auto end = std::chrono::steady_clock::now() + kHangs;
  for (; !Kit::HasNoChild(); OwnedChild::CollectAbandoned()) {
    if (std::chrono::steady_clock::now() > end) return false;
    site.gate.Clear();
    site.gate.Open(8);
    world.Skip(1000);
    loop.RunOnce(1);
  }
  site.gate.Clear();
  return true;
}

}  // namespace TesselServer::Suspension
