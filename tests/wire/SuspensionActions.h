// What may happen to a control while an answer of it waits, and what must hold afterwards.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/wire/SuspensionStage.h"

namespace TesselServer::Suspension {

// What a run is like in which nothing happens.
struct Plain {
  std::string answer;               // without its date
  std::vector<std::string> errors;  // LogEvent
  std::size_t descriptors = 0;      // of the control, when all is done
  int points = 0;                   // at which the answer waits: those that every run has
  int events = 0;                   // that it raises
};

struct Action {
  const char* name;
  void (*act)(Stage& stage);
  // The first client's answer, as far as it has come, and more. Everything is done by then but for what is waited for
  // outside the control.
  void (*check)(Stage& stage, const Plain& plain);
  bool keepsDescriptors = true;  // those of the control are as many as before
};

// All actions, and the changes of one property each. With a change the answer is as before, or as a later one.
const std::vector<Action>& Actions();

struct Change {
  const char* name;
  void (*make)(Tessel& tessel, const Site& site);
  // Is in an answer that is neither as before nor as later: what it is made with has been switched off meanwhile.
  const char* meanwhile = "no such text";
};
const std::vector<Change>& Changes();

// One request, without anything happening.
Plain PlainRun(const Kind& kind, Site& site);

// What must hold when all is over, whatever has happened. The control is gone then.
void CheckRemains(Stage& stage, const Plain& plain, bool keepsDescriptors);

}  // namespace TesselServer::Suspension
