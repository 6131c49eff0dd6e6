// Access control lists as the system's own tools, getfacl and setfacl, show and make them. The tools belong to what the
// tests need: a test that cannot start them fails.
#pragma once

#include <sys/xattr.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/kit/ClientProcess.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer::Kit {

inline constexpr const char* kNoAccessLists = "no file system at hand keeps access control lists";

// Whether the file system of a folder keeps lists, asked of the folder without changing it.
inline bool KeepsAccessLists(const std::filesystem::path& folder) {
  return getxattr(folder.c_str(), "system.posix_acl_access", nullptr, 0) >= 0 || errno == ENODATA;
}

// A new folder where lists are kept: the temporary folder, the working folder, which is the build's, or one in memory.
// Null when there is none.
inline std::unique_ptr<TemporaryTree> TreeWithAccessLists() {
  for (const std::filesystem::path& parent :
       {std::filesystem::temp_directory_path(), std::filesystem::current_path(), std::filesystem::path("/dev/shm")}) {
    if (KeepsAccessLists(parent)) return std::make_unique<TemporaryTree>(parent);
  }
  return nullptr;
}

// Runs a program to its end and returns what it wrote. Throws when it fails.
inline std::string RunTool(std::vector<std::string> arguments) {
  const std::string name = arguments[0];
  Clients tool;
  tool.push_back(std::make_unique<ClientProcess>(std::move(arguments)));
  const bool ended =
      RunClients(tool, std::chrono::seconds(20), [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
  if (!ended || tool[0]->ExitStatus() != 0) throw std::runtime_error(name + " failed: " + tool[0]->Errors());
  return tool[0]->Output();
}

// The list that setfacl makes of `changes`, "u:1:rw-,m::r--" for one.
inline void Setfacl(const std::string& changes, const std::string& path) { RunTool({"setfacl", "-m", changes, path}); }

// The list as getfacl shows it, with numbers for names, its entries joined by blanks:
// "user::rw- user:1:r-x group::r-- mask::r-x other::r--". `which` is "-a", or "-d" for the list handed down.
inline std::string Getfacl(const std::string& path, const std::string& which = "-a") {
  std::string text = RunTool({"getfacl", "-c", "-E", "-n", "-p", which, path});
  while (text.ends_with('\n')) text.pop_back();
  for (char& c : text) {
    if (c == '\n') c = ' ';
  }
  return text;
}

}  // namespace TesselServer::Kit
