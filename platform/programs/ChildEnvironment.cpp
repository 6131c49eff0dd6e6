#include "platform/programs/ChildEnvironment.h"

#include <map>
#include <string_view>

namespace TesselServer {
namespace {

bool CanBeAVariableName(std::string_view name) {
  return !name.empty() && name.find_first_of(std::string_view("=\0", 2)) == std::string_view::npos;
}

}  // namespace

std::vector<std::string> ChildEnvironment(const char* const* inherited,
                                          const std::vector<std::pair<std::string, std::string>>& added) {
  std::map<std::string_view, std::string_view> values;
  for (const auto& [name, value] : added) {
    if (CanBeAVariableName(name)) values.insert_or_assign(name, std::string_view(value.c_str()));
  }
  std::vector<std::string> lines;
  for (; inherited != nullptr && *inherited != nullptr; ++inherited) {
    const std::string_view line(*inherited);
    if (!values.contains(line.substr(0, line.find('=')))) lines.emplace_back(line);
  }
  for (const auto& [name, value] : values) lines.push_back(std::string(name) + '=' + std::string(value));
  return lines;
}

}  // namespace TesselServer
