// A control of the second manner, and what its answers say.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/world/AsciiCase.h"
#include "tests/kit/TestControl.h"

namespace TesselServer::Kit {

class ModernTest : public ControlTest {
 protected:
  ModernTest() {
    tessel.HTTPMode(e_HTTPMode::Modern);
    tessel.MaxConnections(100);
  }

  std::int32_t Start() { return control.Start(); }

  // A GET of 1.1, with these field lines more.
  static std::string Request(std::string_view target, std::string_view fields = {}) {
    return std::string("GET ").append(target).append(" HTTP/1.1\r\nHost: h\r\n").append(fields).append("\r\n");
  }
  // The answer to it, on a connection of its own.
  std::string Fetch(std::string_view target, std::string_view fields = {}) {
    return control.Ask(Request(target, std::string(fields) + "Connection: close\r\n"));
  }

  static std::string StatusOf(std::string_view answer) {
    return std::string(answer.starts_with("HTTP/1.1 ") ? answer.substr(9, 3) : std::string_view());
  }

  // The value of the first field with this name, "" where there is none.
  static std::string FieldOf(std::string_view answer, std::string_view name) {
    std::string_view head = answer.substr(0, answer.find("\r\n\r\n"));
    while (!head.empty()) {
      const std::string_view line = head.substr(0, head.find("\r\n"));
      head.remove_prefix(std::min(head.size(), line.size() + 2));
      const std::size_t colon = line.find(": ");
      if (colon != std::string_view::npos && EqualNoCase(line.substr(0, colon), name)) {
        return std::string(line.substr(colon + 2));
      }
    }
    return {};
  }

  // The answers that follow one another in `bytes`, each with the length that its header announces. What is left over
  // is one more.
  static std::vector<std::string> AnswersOf(std::string_view bytes) {
    std::vector<std::string> answers;
    while (!bytes.empty()) {
      const std::size_t headEnd = bytes.find("\r\n\r\n");
      const std::string length = FieldOf(bytes, "Content-Length");
      std::size_t size = bytes.size();
      if (headEnd != std::string_view::npos && !length.empty()) size = headEnd + 4 + std::stoul(length);
      answers.emplace_back(bytes.substr(0, size));
      bytes.remove_prefix(std::min(size, bytes.size()));
    }
    return answers;
  }
};

}  // namespace TesselServer::Kit
