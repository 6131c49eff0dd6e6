// The program around the control: it answers, and does in any event what a script wants.
//
// An event has a letter: F FileRequest, C CallFunction, L HTTPLog, E LogEvent, S StatusLine, P PropertyChanged,
// T a posted task. So has what the host does:
//
//   a  answers the trapped request         s  stops the server        q  posts a task
//   p  hands it back to be served          g  starts it               v  asks for all variables
//   x  answers with status and header      d  destroys the control    i  sets all properties to their defaults
//   2  answers twice                       m  makes it anew           u  empties the document root
//   r  returns a function's text           y  yields (DoEvents)       h  disconnects its handlers of events
//   n  nothing                             o  runs a turn             t  throws, in events
//
// Thread:    the loop's.
// Ownership: the loop outlives it.
// Errors:    what it throws as the script says is counted.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "control/Tessel.h"
#include "control/life/TesselCore.h"

namespace TesselServer::Pretended {

class Host {
 public:
  Host(EventLoop& loop, std::string root);
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host();

  // A control with everything switched on, that is started.
  void MakeAnew();
  void Destroy();

  // Has the nth next event of this kind (0 is the first) do this.
  void Plan(char event, unsigned nth, char action) { plans_.push_back({event, nth, action}); }

  // Does it now, outside any event. Without a control only the one that makes it has an effect.
  void Do(char action);

  // Sets a property: `which` is a letter of kProperties (Host.cpp).
  void Set(char which, int value);

  // What is done in FileRequest where nothing is planned.
  void Usually(char action) { usually_ = action; }

  void ForgetPlans() { plans_.clear(); }
  void AnswerAll();
  bool Start();

  Tessel* Control() { return control_.get(); }
  TesselCore* Core();
  const std::weak_ptr<TesselCore>& LatestCore() const { return core_; }

  std::int64_t logEvents = 0;  // of this control, as far as its handler was connected
  bool wasDeaf = false;        // a handler was disconnected meanwhile
  unsigned interventions = 0;  // how often it did what may end an answer of another client
  unsigned thrown = 0;

 private:
  struct PlannedAction {
    char event;
    unsigned nth;
    char action;
  };
  // Whose event it is, so that the host does nothing to a control that came later.
  struct Occasion {
    char event = 0;
    std::int32_t index = 0;
  };

  void Connect();
  void Happens(const Occasion& occasion);
  void Act(char action, const Occasion& occasion);
  void ActOnServer(char action);
  void Answer(char action, std::int32_t index);
  void Post();

  EventLoop& loop_;
  std::string root_;
  std::unique_ptr<Tessel> control_;
  std::weak_ptr<TesselCore> core_;
  std::vector<PlannedAction> plans_;
  char usually_ = 'p';
  std::int32_t latestIndex_ = 2;
};

}  // namespace TesselServer::Pretended
