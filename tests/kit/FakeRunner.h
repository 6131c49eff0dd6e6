// A runner that starts nothing: it keeps what it was told to start and answers as the test says.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/programs/ProgramRunner.h"

namespace TesselServer::Kit {

class FakeRunner : public ProgramRunner {
 public:
  std::vector<ProgramStart> started;
  ProgramResult answer;  // the same each time

  // Answers with that output from now on, or with that failure.
  void Print(std::string_view output) {
    answer = ProgramResult();
    answer.ended = true;
    answer.output = output;
  }
  void Fail(ProgramResult::Failure failure, std::int32_t error) {
    answer = ProgramResult();
    answer.failure = failure;
    answer.error = error;
  }

  Task<void> Run(ProgramStart start, ProgramResult& result) override {
    start.Complete();
    started.push_back(std::move(start));
    result = answer;
    return {};
  }

  // The files that were started, each with its words: "/srv/a.exe|one|two".
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (const ProgramStart& start : started) {
      std::string line = start.file;
      for (const std::string& word : start.arguments) line.append("|").append(word);
      lines.push_back(std::move(line));
    }
    return lines;
  }
};

}  // namespace TesselServer::Kit
