#include "fuzz/kernel/Play.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "fuzz/kernel/AnswerShape.h"
#include "fuzz/kernel/Site.h"
#include "support/Text.h"
#include "tests/kit/Descriptors.h"

namespace TesselServer::Pretended {
namespace {

constexpr int kMostIdleTurns = 20'000;  // without a byte moved; a long piece of work takes hundreds
constexpr std::int64_t kLongestPass = 10'000'000;

const Site& TheSite() {
  static const Site site;
  return site;
}

std::int64_t Number(std::string_view text, std::int64_t otherwise = 0) {
  const bool isNegative = text.starts_with('-');
  const std::int64_t value = LeadingNumber(text.substr(isNegative ? 1 : 0, 9)).value_or(otherwise);
  return isNegative ? -value : value;
}

std::size_t Digit(std::string_view text, std::size_t place) {
  return place < text.size() && text[place] >= '0' && text[place] <= '9' ? static_cast<std::size_t>(text[place] - '0')
                                                                         : 0;
}

std::string WithLineEnds(std::string_view text) {
  std::string bytes;
  for (const char each : text) each == '~' ? bytes.append("\r\n") : bytes.append(1, each);
  return bytes;
}

bool IsOneOf(std::string_view letters, char letter) { return letters.find(letter) != std::string_view::npos; }

}  // namespace

Play::Play() {
  faults_.Forget();
  world_.applicationFolder = TheSite().Root();
  kernel_.Reset([this] { return world_.MonotonicMilliseconds(); });
  WorkerThreads::Share(pool_);
  descriptorsBefore_ = Kit::CountDescriptors();
  framesBefore_ = TaskPromise::living;
  loop_.emplace(world_);
  loop_->HandlerFailed = [this](std::string&) { ++failures_; };
  host_.emplace(*loop_, TheSite().Root());
  Rest();
}

// ---- Steps.

void Play::Step(std::string_view step) {
  if (step.empty()) return;
  const char what = step[0];
  const std::string_view rest = step.substr(1);
  if (IsOneOf("cserwzZ", what)) StepOfClient(what, Digit(rest, 0), rest.substr(std::min<std::size_t>(1, rest.size())));
  if (IsOneOf("xdq", what)) StepOfChild(what, Digit(rest, 0), rest.substr(std::min<std::size_t>(1, rest.size())));
  if (IsOneOf("hayo", what)) StepOfHost(what, rest);
  if (IsOneOf("tjlufgvb", what)) StepOfSystem(what, rest);
  for (unsigned i = 0; turns_ && i < *turns_; ++i) Turn();
  if (!turns_) Rest();
  Check();
}

void Play::StepOfClient(char what, std::size_t which, std::string_view rest) {
  Visitor& visitor = At(which);
  Client& client = *visitor.client;
  const auto number = static_cast<std::size_t>(std::max<std::int64_t>(Number(rest), 0));
  switch (what) {
    case 's':
      if (client.hasEnded || client.isGone || client.wasRefused) break;
      if (!client.serverHasClosed) client.unread += WithLineEnds(rest);
      visitor.sent += WithLineEnds(rest);
      break;
    case 'e':
      client.hasEnded = true;
      break;
    case 'r':
      client.isGone = visitor.isDisturbed = true;
      client.unread.clear();
      break;
    case 'w':
      client.window = rest.empty() ? kUnlimited : number;
      break;
    case 'z':
      client.readPiece = std::max<std::size_t>(number, 1);
      break;
    case 'Z':
      client.sendPiece = std::max<std::size_t>(number, 16);
      break;
    default:
      break;
  }
}

void Play::StepOfChild(char what, std::size_t which, std::string_view rest) {
  if (which >= kernel_.Children().size()) return;
  Child& child = *kernel_.Children()[which];
  if (what == 'x' && !child.hasEnded) Kernel::Print(child, WithLineEnds(rest));
  if (what == 'd') {
    const auto status = static_cast<int>(std::clamp<std::int64_t>(Number(rest), 0, 163));
    Kernel::End(child, status > 99 ? CLD_KILLED : CLD_EXITED, status > 99 ? status - 99 : status);
  }
  if (what != 'x') child.output->isHeldByChild = false;
}

void Play::StepOfHost(char what, std::string_view rest) {
  const char first = rest.empty() ? 'n' : rest[0];
  if (what == 'h' && rest.size() >= 3) host_->Plan(first, static_cast<unsigned>(Digit(rest, 1)), rest[2]);
  if (what == 'a') host_->Do(first);
  if (what == 'y') host_->Usually(first);
  if (what != 'o' || rest.empty()) return;
  host_->Set(first, static_cast<int>(std::clamp<std::int64_t>(Number(rest.substr(1)), 0, 1000)));
  if (!IsOneOf("WPX", first)) ++disturbances_;  // an answer may be another one now
}

void Play::StepOfSystem(char what, std::string_view rest) {
  const std::int64_t number = Number(rest);
  const auto count = static_cast<std::size_t>(std::max<std::int64_t>(number, 0));
  switch (what) {
    case 't':
      return Pass(std::clamp<std::int64_t>(number, 0, kLongestPass));
    case 'j':
      world_.utcSeconds += number;
      return;
    case 'l':
      world_.lookTakes = std::clamp<std::int64_t>(number, 0, 1000);
      return;
    case 'u':
      turns_.reset();
      if (!rest.empty()) turns_ = static_cast<unsigned>(Digit(rest, 0));
      return;
    case 'f':
      if (rest.size() < 2) return;
      return faults_.Set(rest[0], static_cast<unsigned>(Digit(rest, 1)), static_cast<unsigned>(Digit(rest, 2)),
                         static_cast<unsigned>(std::max<std::size_t>(Digit(rest, 3), 1)));
    case 'g':
      faults_.filePiece = count;
      return;
    case 'v':
      kernel_.order = count;
      return;
    default:
      return pool_->Do(count);
  }
}

// The present client of that number, or a new one where its connection is over.
Play::Visitor& Play::At(std::size_t which) {
  Visitor*& visitor = current_[which];
  const bool isOver = visitor != nullptr &&
                      (visitor->client->isGone || visitor->client->wasRefused || visitor->client->serverHasClosed);
  if (visitor == nullptr || isOver) {
    visitor = visitors_.emplace_back(std::make_unique<Visitor>()).get();
    kernel_.Connect(visitor->client);
  }
  return *visitor;
}

void Play::Pass(std::int64_t milliseconds) { world_.Advance(milliseconds); }

// ---- Turns.

void Play::Turn() {
  loop_->RunOnce(0);
  NoteDisturbances();
}

std::size_t Play::Progress() const {
  std::size_t bytes = 0;
  for (const auto& each : visitors_) bytes += each->client->got.size() + each->client->unread.size();
  return bytes;
}

void Play::Rest() {
  std::size_t before = Progress();
  for (int idle = 0; loop_->RunOnce(0); ++idle) {
    Require(idle < kMostIdleTurns, "the loop comes to rest");
    const std::size_t now = Progress();
    if (now != before) idle = 0;
    before = now;
  }
  NoteDisturbances();
}

// ---- Rules.

void Play::NoteDisturbances() {
  const unsigned now = disturbances_ + faults_.Happened() + host_->interventions + host_->thrown;
  if (now == disturbances_) return;
  for (const auto& each : visitors_) each->isDisturbed = true;
}

void Play::Check() {
  NoteDisturbances();
  for (const auto& each : visitors_) CheckAnswer(*each);
  CheckStatistics();
}

void Play::CheckAnswer(const Visitor& visitor) const {
  const Client& client = *visitor.client;
  for (const ChildPointer& child : kernel_.Children()) {
    if (child->printed.find("HTTP/") != std::string::npos) return;  // a program may say whatever it likes
  }
  const AnswerShape shape = ShapeOf(client.got);
  if (visitor.isDisturbed || !client.serverHasEnded) return;
  Require(client.got.empty() || shape.isWhole, "an answer is whole before the connection ends");
}

void Play::CheckStatistics() {
  if (host_->Core() == nullptr) return;
  const Statistics& statistics = host_->Core()->state.statistics;
  if (!host_->wasDeaf) {
    Require(statistics.ErrorCount == static_cast<double>(host_->logEvents), "each reported error is counted");
  }
  Require(failures_ <= host_->thrown, "nothing but the host throws");
}

// ---- The end.

void Play::Finish() {
  faults_.Clear();
  faults_.filePiece = 0;
  world_.lookTakes = 0;
  turns_.reset();
  host_->ForgetPlans();
  host_->Usually('p');
  LetEverythingGo();
  Check();
  CheckAnswersAreThere();
  MakeServerRun();
  AllClientsLeave();
  Probe();
  AllClientsLeave();
  Check();
  CheckNothingIsLeft();
}

void Play::LetEverythingGo() {
  for (const auto& each : visitors_) {
    each->client->window = each->client->readPiece = each->client->sendPiece = kUnlimited;
  }
  Rest();
  for (int rounds = 0; rounds < 8; ++rounds) {
    for (std::size_t place = 0; place < kernel_.Children().size() || pool_->Count() > 0; ++place) {
      while (pool_->Count() > 0) pool_->Do(0);
      if (place < kernel_.Children().size()) {
        Child& child = *kernel_.Children()[place];
        Kernel::End(child, CLD_EXITED, 0);
        child.output->isHeldByChild = false;
      }
      Rest();
    }
    host_->AnswerAll();
    Pass(1000);
    Rest();
  }
}

void Play::CheckAnswersAreThere() const {
  for (const auto& each : visitors_) {
    const Client& client = *each->client;
    if (each->isDisturbed || !client.wasAccepted) continue;
    if (!each->sent.starts_with("GET /") || each->sent.find("\r\n\r\n") == std::string::npos) continue;
    Require(!client.got.empty() && client.serverHasEnded, "a request is answered");
  }
}

void Play::AllClientsLeave() {
  for (const auto& each : visitors_) {
    each->client->isGone = each->isDisturbed = true;
    each->client->unread.clear();
  }
  Rest();
  for (int seconds = 0; seconds < 4; ++seconds) {
    Pass(1000);
    Rest();
  }
  Require(kernel_.OpenConnections() == 0, "no connection is left when its client has gone");
  const ControlState& state = host_->Core()->state;
  Require(state.bodyMemory.Used() == 0, "no memory for bodies is left in use");
  Require(state.pageMemory.Used() == 0, "no memory for pages is left in use");
}

void Play::MakeServerRun() {
  if (host_->Control() == nullptr) host_->Do('m');
  Rest();
  TesselCore& core = *host_->Core();
  if (!core.state.running || core.state.holdConnections) {
    host_->Control()->StopServer();
    Require(host_->Start(), "a server can be started again");
    Rest();
  }
  Pass(10'000);
  Rest();
  Require(host_->Control()->IsListening(), "a listener is tried again every ten seconds");
}

// As many clients as there are slots come at once, and each gets what it asks for.
void Play::Probe() {
  host_->Control()->VirtualPath(TheSite().Root());
  host_->Control()->TrapFileEnable(false);
  host_->Control()->MaxUnsentPageBytes(1'000'000);
  const std::int32_t slots = host_->Core()->state.HighestConnection() - kFirstConnection + 1;
  std::vector<Visitor*> probes;
  for (std::int32_t i = 0; i < slots; ++i) {
    Visitor& visitor = *visitors_.emplace_back(std::make_unique<Visitor>());
    visitor.client->window = 0;
    Require(kernel_.Connect(visitor.client), "there is a listener");
    visitor.client->unread = visitor.sent = "GET /plain.txt HTTP/1.0\r\n\r\n";
    probes.push_back(&visitor);
    Rest();
    Require(visitor.client->wasAccepted, "each slot is free again");
  }
  for (Visitor* each : probes) each->client->window = kUnlimited;
  Rest();
  for (Visitor* each : probes) {
    Require(ShapeOf(each->client->got).body == kPlainText, "each slot serves again");
    Require(each->client->serverHasEnded, "an answer is followed by its end");
  }
}

void Play::CheckNothingIsLeft() {
  host_->MakeAnew();  // collects the children that controls before it have left
  Rest();
  for (const ChildPointer& child : kernel_.Children()) Require(child->isCollected, "each child is collected");
  const auto core = host_->LatestCore();
  host_.reset();
  Rest();
  Require(core.expired(), "the control's inside goes with it");
  loop_.reset();
  while (pool_->Count() > 0) pool_->Do(0);
  Require(TaskPromise::living == framesBefore_, "no task outlives its owner");
  Require(kernel_.OpenDescriptors() == 0, "no pretended descriptor is left open");
  Require(Kit::CountDescriptors() == descriptorsBefore_, "no descriptor is left open");
}

}  // namespace TesselServer::Pretended
