#include "control/connection/RequestLine.h"

#include "platform/world/AsciiCase.h"
#include "support/Text.h"

namespace TesselServer {
namespace {

constexpr std::string_view kSchemes[] = {"http://", "https://"};

std::string_view UrlOf(std::string_view line) {
  const auto blank = line.find(' ');
  if (blank == std::string_view::npos) return {};
  const auto url = line.substr(blank + 1);
  return url.substr(0, url.find(' '));
}

// The part of an absolute URL after its scheme and host; any other URL as it is.
std::string_view WithoutHost(std::string_view url) {
  for (const auto scheme : kSchemes) {
    if (!EqualNoCase(url.substr(0, scheme.size()), scheme)) continue;
    const auto end = url.find_first_of("/?", scheme.size());
    return end == std::string_view::npos ? std::string_view("/") : url.substr(end);
  }
  return url;
}

}  // namespace

void ReadRequestLine(std::string_view text, RequestFields& fields) {
  const auto line = text.substr(0, FindLineEnd(text));
  fields.RequestLine = line;
  const auto url = WithoutHost(UrlOf(line));
  if (url.empty()) return;
  const auto mark = url.find('?');
  if (mark != std::string_view::npos) fields.RequestQuery = url.substr(mark + 1);
  auto path = url.substr(0, mark);
  if (path.empty()) path = "/";  // a URL that is only a query asks for the root
  fields.DocumentURI = path;
  if (path.size() > 1 && path.front() == '/') path.remove_prefix(1);
  fields.RequestPath = path;
}

}  // namespace TesselServer
