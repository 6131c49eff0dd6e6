// How the program's settings come into the control, and how they are kept.
//
// Thread:    the control's thread, before it serves.
// Ownership: none.
// Errors:    SettingError; the control may then have some of the settings and must not be started.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <TesselServer/Tessel.h>

#include "host/Options.h"

namespace TesselServer {

// A setting that cannot be used; what() is one line with its name and the reason.
class SettingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Sets every property: the program's own defaults, before them what the file of --config has, before that what the
// command line says. Checks all values, and that the folder to serve and the files named can be used.
// Returns what is worth telling the user, one line each.
std::vector<std::string> ApplySettings(Tessel& tessel, const Options& options);

// Writes the control's properties to the file `path`. The program's own defaults are always written, so that the file
// means the same to every reader.
void SaveSettings(const Tessel& tessel, const std::string& path);

}  // namespace TesselServer
