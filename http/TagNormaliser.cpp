#include "http/TagNormaliser.h"

#include <string_view>
#include <utility>

namespace TesselServer {
namespace {

constexpr std::string_view kOpeners[] = {"<!--#", "<%"};

std::string WithoutBlanksBehind(std::string_view opener, std::string page) {
  std::size_t tag = page.find(opener);
  if (tag == std::string::npos) return page;
  std::string result;
  result.reserve(page.size());
  std::size_t done = 0;
  for (; tag != std::string::npos; tag = page.find(opener, done)) {
    const std::size_t end = page.find('>', tag);
    if (end == std::string::npos) break;
    result.append(page, done, tag - done);
    for (std::size_t i = tag; i < end; ++i) {
      if (page[i] != ' ' && page[i] != '"') result += page[i];
    }
    done = end;
  }
  return result.append(page, done);
}

}  // namespace

std::string NormaliseTags(std::string page) {
  for (const std::string_view opener : kOpeners) page = WithoutBlanksBehind(opener, std::move(page));
  return page;
}

}  // namespace TesselServer
