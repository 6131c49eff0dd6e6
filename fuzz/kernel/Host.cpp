#include "fuzz/kernel/Host.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace TesselServer::Pretended {
namespace {

std::shared_ptr<TesselCore>& CoreOf(Tessel& control);

// The way to what a control keeps for itself.
template <std::shared_ptr<TesselCore> Tessel::*kCore>
struct WayIn {
  friend std::shared_ptr<TesselCore>& CoreOf(Tessel& control) { return control.*kCore; }
};
template struct WayIn<&Tessel::core_>;

struct ThrownOnPurpose : std::runtime_error {
  ThrownOnPurpose() : std::runtime_error("thrown on purpose") {}
};

}  // namespace

Host::Host(EventLoop& loop, std::string root) : loop_(loop), root_(std::move(root)) { MakeAnew(); }

Host::~Host() { Destroy(); }

// ---- The control's life.

void Host::MakeAnew() {
  Destroy();
  control_ = std::make_unique<Tessel>(loop_);
  core_ = CoreOf(*control_);
  logEvents = 0;
  wasDeaf = false;
  Tessel& control = *control_;
  control.ApplicationFolder(root_);
  control.ServerIP("127.0.0.1");
  control.ServerPort("8080");
  control.VirtualPath(root_);
  control.CGIDirectory(root_ + "/scripts");
  control.MaxConnections(5);
  control.SSIEnable(true);
  control.CGIEnable(true);
  control.HTMLFunctionsEnable(true);
  control.DirectoryBrowseEnable(true);
  control.AuthenticationSource(e_AuthSource::DirectoryFile);
  control.TrapFileEnable(true);
  control.TrapFileTypes("trp");
  control.Workers(0);
  Connect();
  Start();
}

void Host::Destroy() { const auto gone = std::exchange(control_, nullptr); }

TesselCore* Host::Core() { return control_ ? CoreOf(*control_).get() : nullptr; }

bool Host::Start() {
  try {
    return control_ && control_->StartServer();
  } catch (const Error&) {
    return false;
  }
}

void Host::Connect() {
  Tessel& control = *control_;
  control.FileRequest = [this](std::int32_t& index, std::string&, std::string&) { Happens({'F', index}); };
  control.CallFunction = [this](std::int32_t& index, std::string& name) {
    control_->ReturnData(index, "(" + name + ")");
    Happens({'C', index});
  };
  control.HTTPLog = [this](std::string&) { Happens({'L'}); };
  control.LogEvent = [this](std::string&) {
    ++logEvents;
    Happens({'E'});
  };
  control.StatusLine = [this](std::string&) { Happens({'S'}); };
  control.PropertyChanged = [this](const std::string&) { Happens({'P'}); };
}

// ---- Events.

void Host::Happens(const Occasion& occasion) {
  if (occasion.index > 0) latestIndex_ = occasion.index;
  char action = occasion.event == 'F' ? usually_ : 'n';
  for (auto plan = plans_.begin(); plan != plans_.end(); ++plan) {
    if (plan->event != occasion.event) continue;
    if (plan->nth > 0) {
      --plan->nth;
      continue;
    }
    action = plan->action;
    plans_.erase(plan);
    break;
  }
  Act(action, occasion);
}

void Host::Do(char action) {
  if (action != 't') Act(action, {});
}

void Host::Act(char action, const Occasion& occasion) {
  if (action == 't' && occasion.event != 0) {
    ++thrown;
    if (occasion.event == 'E') ++logEvents;  // it is counted like an error, and not reported
    throw ThrownOnPurpose();
  }
  if (action == 'm') {
    ++interventions;
    return MakeAnew();
  }
  if (action == 'y') return loop_.DoEvents();
  if (action == 'o') return static_cast<void>(loop_.RunOnce(0));
  if (action == 'q') return Post();
  if (!control_) return;
  const std::int32_t index = occasion.index > 0 ? occasion.index : latestIndex_;
  if (action == 'r') return control_->ReturnData(index, "returned");
  if (action == 'v') return static_cast<void>(control_->CGIValue(index, "", "\n"));
  if (std::string_view("apx2").find(action) != std::string_view::npos) return Answer(action, index);
  ActOnServer(action);
}

// A task that is posted by a task is posted again only as far as there are plans for it.
void Host::Post() {
  loop_.Post([this] { Happens({'T'}); });
}

void Host::ActOnServer(char action) {
  if (std::string_view("sgdiuh").find(action) == std::string_view::npos) return;
  ++interventions;
  if (action == 's') control_->StopServer();
  if (action == 'g') Start();
  if (action == 'd') Destroy();
  if (action == 'i') control_->InitProperties();
  if (action == 'u') control_->VirtualPath("");
  if (action == 'h') {
    wasDeaf = true;
    control_->FileRequest = nullptr;
    control_->CallFunction = nullptr;
    control_->LogEvent = nullptr;
    control_->HTTPLog = nullptr;
  }
}

void Host::Answer(char action, std::int32_t index) {
  if (action == 'x') {
    try {
      control_->TrapFileDataEX(index, "data", false, "text/plain", "203", "X-Host: yes");
    } catch (const Error&) {  // the Index is no connection any more
    }
    return;
  }
  for (int i = 0; control_ && i < (action == '2' ? 2 : 1); ++i) {
    control_->TrapFileData(index, "the host's data", action == 'p');
  }
}

void Host::AnswerAll() {
  for (std::int32_t i = 1; control_ && i <= 16; ++i) {
    if (control_->RequestNumber(i) != 0) control_->TrapFileData(i, "late", false);
  }
}

// ---- Properties.

void Host::Set(char which, int value) {
  if (!control_) return;
  Tessel& control = *control_;
  const bool on = value != 0;
  switch (which) {
    case 'S':
      return control.SSIEnable(on);
    case 'C':
      return control.CGIEnable(on);
    case 'F':
      return control.HTMLFunctionsEnable(on);
    case 'D':
      return control.DirectoryBrowseEnable(on);
    case 'E':
      return control.ErrorFilesEnable(on);
    case 'V':
      return control.VerboseErrorsEnable(on);
    case 'T':
      return control.TrapFileEnable(on);
    case 't':
      return control.TrapFileTypes(on ? "trp" : "");
    case 'A':
      return control.AuthenticationSource(static_cast<e_AuthSource>(value % 5));
    case 'M':
      return control.MaxConnections(value);
    case 'W':
      return control.Workers(value);
    case 'P':
      return control.MaxPrograms(value);
    case 'O':
      return control.CGITimeout(value);
    case 'X':
      return control.ConnectionTimeout(value);
    case 'B':
      return control.MaxBodyBytesTotal(value * 100);
    case 'b':
      return control.MaxBodyBytes(value * 100);
    case 'U':
      return control.MaxUnsentPageBytes(value * 100);
    case 'N':
      return control.ServerPort(std::to_string(8080 + value % 3));
    default:
      return;
  }
}

}  // namespace TesselServer::Pretended
