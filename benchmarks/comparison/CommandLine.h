// The command line of a program of the comparison: "--name value" pairs and "--name" switches.
//
// Thread:    any.
// Ownership: keeps copies.
// Errors:    std::runtime_error for a word that is no name, and for a value that is missing or no number.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace Comparison {

//   const CommandLine line(argc, argv);      // --port 8080 --watch
//   line.Number("port", 0);                  // 8080
//   line.Has("watch");                       // true
class CommandLine {
 public:
  CommandLine(int argc, char** argv);

  // Whether the name was given, with or without a value.
  bool Has(const std::string& name) const;

  // The value of a name, or `absent`. "" for a switch.
  std::string Text(const std::string& name, const std::string& absent = "") const;

  // The value of a name as a number, or `absent`.
  std::int64_t Number(const std::string& name, std::int64_t absent) const;

 private:
  std::map<std::string, std::string> values_;
};

}  // namespace Comparison
