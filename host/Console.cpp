#include "host/Console.h"

#include <iostream>

namespace TesselServer {
namespace {

void Write(std::ostream& stream, std::string_view line) {
  stream.clear();  // an output that was full for a while is used again
  stream << line << std::endl;
}

}  // namespace

std::string Printable(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string printable;
  printable.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      printable += c;
    } else {
      printable += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return printable;
}

void Console::Log(std::string_view line) { Put(std::cout, line); }

void Console::Tell(std::string_view line) { Put(std::cerr, line); }

void Console::Release() {
  released_ = true;
  for (const auto& [stream, line] : kept_) Write(*stream, line);
  kept_.clear();
}

void Console::Put(std::ostream& stream, std::string_view line) {
  if (released_) {
    Write(stream, Printable(line));
  } else {
    kept_.emplace_back(&stream, Printable(line));
  }
}

}  // namespace TesselServer
