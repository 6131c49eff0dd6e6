// The environment of a child process, made from this process's own and what is added to it.
//
// Thread:    any; the inherited environment must not change meanwhile.
// Errors:    none but those of memory running out.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace TesselServer {

// The lines "NAME=value" of the child. `inherited` is a list as environ(7), or null for none. An added name replaces
// every inherited line of that name; of two equal added names the later counts. An added name that no environment can
// hold (empty, with "=" or NUL) is left out; an added value is cut at its first NUL.
//
//   inherited HOME=/root LANG=C, added LANG=de, PORT=80:  HOME=/root LANG=de PORT=80, the added ones in any order
std::vector<std::string> ChildEnvironment(const char* const* inherited,
                                          const std::vector<std::pair<std::string, std::string>>& added);

}  // namespace TesselServer
