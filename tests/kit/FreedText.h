// Looks for a text in every piece of memory that is given back, in a program that links FailNthMemory.cpp: what a
// process lets go of can still be read in it until the memory is used again.
//
//   FreedText secret("topsecret");
//   ...
//   secret.Seen();  // how many pieces held it when they were given back
#pragma once

#include <string_view>

namespace TesselServer::Kit {

class FreedText {
 public:
  // Watches this thread from now on; `text` outlives the watch. One watch at a time.
  explicit FreedText(std::string_view text);
  FreedText(const FreedText&) = delete;
  FreedText& operator=(const FreedText&) = delete;
  ~FreedText();

  int Seen() const;
};

}  // namespace TesselServer::Kit
