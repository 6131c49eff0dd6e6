// What a fuzz target says when a rule is broken: it stops the program, so that the fuzzer keeps the input and a replay
// fails. Checked in every kind of build.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace TesselServer {

inline void Require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "broken rule: %s\n", rule);
  std::abort();
}

// A fuzzer's input as text.
inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace TesselServer

// One input. Each target defines it; the fuzzer or ReplayMain.cpp calls it. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
