#include "benchmarks/comparison/CommandLine.h"

#include <stdexcept>

namespace Comparison {

CommandLine::CommandLine(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (!word.starts_with("--")) throw std::runtime_error("not an option: " + word);
    const bool hasValue = i + 1 < argc && !std::string(argv[i + 1]).starts_with("--");
    values_[word.substr(2)] = hasValue ? argv[++i] : "";
  }
}

bool CommandLine::Has(const std::string& name) const { return values_.contains(name); }

std::string CommandLine::Text(const std::string& name, const std::string& absent) const {
  const auto found = values_.find(name);
  return found == values_.end() ? absent : found->second;
}

std::int64_t CommandLine::Number(const std::string& name, std::int64_t absent) const {
  const auto found = values_.find(name);
  if (found == values_.end()) return absent;
  try {
    return std::stoll(found->second);
  } catch (const std::exception&) {
    throw std::runtime_error("not a number: --" + name + " " + found->second);
  }
}

}  // namespace Comparison
