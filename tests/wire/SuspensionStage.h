// A control that is asked for something that takes more than one turn, and is taken from one point at which the answer
// waits to the next.
//
// Each look at the clock takes time here, so that long work waits after each of its steps; programs wait at a gate, and
// names and a disk on a thread, until the test lets them come. A point is what lies between two turns that deliver
// something, and between the last of them and letting go what is waited for.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <TesselServer/EventLoop.h>
#include <TesselServer/Tessel.h>

#include "tests/kit/Programs.h"
#include "tests/kit/RawClient.h"
#include "tests/kit/SkippingWorld.h"
#include "tests/kit/SlowDisk.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Suspension {

// A name server that keeps silent until it is told to answer.
class SilentNames {
 public:
  // Waits, unless it is asked on the thread of the test, which would have to answer itself.
  std::string Name();
  void AreHeld(bool held);
  void Answer() { AreHeld(false); }

 private:
  const std::thread::id test_ = std::this_thread::get_id();
  std::mutex mutex_;
  std::condition_variable changed_;
  bool areHeld_ = false;
};

// The files of a kind of answer, the same for all runs.
struct Site {
  // Writes a file below the root.
  void File(const std::string& name, std::string_view text) const { tree.Write("root/" + name, text); }
  void Program(const std::string& name, std::string_view script) const {
    Kit::WriteProgram(tree, "cgi/" + name, script);
  }
  // Mounts the disk, which has one file, a page. Nothing where this machine has no file systems in user space.
  void MountDisk() const;
  // From now on each call of the disk waits, until they are released.
  void HoldDisk() const;
  void ReleaseDisk() const;
  // Makes the other root.
  void CopyRoot() const;
  // A folder with so many files.
  void Folder(const std::string& name, int files) const;

  Kit::TemporaryTree tree;
  const std::string root = tree.MakeFolder("root");
  const std::string otherRoot = tree.Text() + "/other";  // has other files of the same names
  const Kit::Gate gate{tree};
  SilentNames names;
  mutable std::optional<Kit::SlowDisk> disk;  // mounted below the root, where the kind needs one
};

class Stage;

// One kind of answer that is not made in one go.
struct Kind {
  const char* name;
  const char* url;  // a "*" in it is the name of the disk
  void (*write)(const Site& site);
  void (*configure)(Stage& stage);          // before the start
  void (*prepare)(Stage& stage) = nullptr;  // before the request
  const char* fields = "";                  // of every request
  // A request for it is answered, and logged, in the turn in which it comes.
  const char* aside = "/small.txt";
  // Waits for nothing but turns: each run has the same points. Elsewhere threads and programs that are slower or faster
  // make two points of one, or one of two.
  bool isExact = false;
};

inline void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

// The points are those of one request, the first client's; everything is destroyed with the stage.
class Stage {
 public:
  // Serves `slots` clients at once besides those that the kind itself needs.
  Stage(const Kind& given, Site& files, std::int32_t slots);
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;
  ~Stage();

  // Asks, and goes on to the given point, 0 being the first. False when the answer was made before it was reached.
  bool RunTo(int point);
  // Asks only.
  void Ask();
  // Whether the first client's answer has begun to wait for something, and has not come to its end.
  bool IsUnderWay();
  // The next turn that delivers something; where none does, what is waited for is let go, and comes.
  void Step();
  // Goes on until nothing is being made any more, and `client` has its answer. False when that does not happen.
  bool Finish(Kit::RawClient& client);
  bool Finish() { return Finish(*first); }
  // Goes on until nothing is being made for the first client, with no program and no host to wait for. What may be left
  // for a while is what goes on for the sake of others: one look-up of a name, and one start of a program.
  bool ComesToNothing();
  // Lets one program pass, names come, and answers as the host.
  void Release();

  std::string Request() const { return Get(Url()); }
  std::string Url() const;
  std::string Get(const std::string& url) const { return "GET " + url + " HTTP/1.0\r\n" + kind.fields + "\r\n"; }
  std::string Exchange(const std::string& request);

  // Lets all children come to their end and collects them. False when one is left.
  bool EndChildren();

  const Kind& kind;
  Site& site;
  Kit::SkippingWorld world;
  EventLoop loop{world};
  std::size_t descriptorsBefore = 0;  // without the control
  std::vector<std::string> failures;  // what the loop has reported
  std::vector<std::string> errors;    // LogEvent
  std::unique_ptr<Tessel> tessel;
  std::unique_ptr<Kit::RawClient> first;
  std::unique_ptr<Kit::RawClient> other;                // has connected before the first one, where the test wants it
  std::vector<std::unique_ptr<Kit::RawClient>> before;  // those that the kind needs
  std::int64_t framesOfOthers = 0;
  std::int32_t offered = 0;                              // the Index that waits for the host, 0 for none
  bool holdsDisk = false;                                // each piece of work there is waited for, until Finish
  bool answersInside = false;                            // the host answers inside FileRequest
  std::function<void(const std::string& text)> onEvent;  // called inside each event, with its text

 private:
  void Connect();
  // One turn, which waits for so long. Whether it has delivered something.
  bool Delivers(std::int32_t milliseconds);
  void Raised(const std::string& text);

  bool hasBegun_ = false;  // the first client's answer has waited
};

// All of them.
const std::vector<Kind>& Kinds();

}  // namespace TesselServer::Suspension
