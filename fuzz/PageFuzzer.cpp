// Pages: whatever the author writes, what is put into the page stays whole and is never obeyed.
//
// The input's first byte chooses the switches: its three lowest bits stand for SSIEnable, CGIEnable and
// HTMLFunctionsEnable, so '0' to '7' do. The rest is the page. Every value that it can show, every file that it can
// include, every program and every function says kValue, which is full of tags.
#include <string>

#include "fuzz/Require.h"
#include "http/TagNormaliser.h"
#include "support/Text.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

// What is put in. The byte 0x02 stands at its beginning and nowhere else.
const std::string kValue =
    "\x02<!--#execcgi=forbidden.exe--><!--#execcmd=forbidden.exe--><!--#includefile=forbidden.txt-->"
    "<!--#includevirtual=forbidden.txt--><!--#include=forbidden.txt--><%=FunctionForbidden(x)%><%=AUTH_TYPE%>"
    "<!--#echovar=AUTH_TYPE-->-->)%>";

constexpr std::string_view kSecret = "\x03 the secret";

struct Site : Kit::PageSite {
  Site() {
    for (const auto* folder : {&tree, &cgi}) {
      folder->Write("forbidden.exe", "");
      folder->Write("value.exe", "");
    }
    tree.Write("forbidden.txt", kSecret);
    tree.Write("value.txt", kValue);
    tree.Write("echo.htm", "<%= HTTP_REFERER %>");
    tree.Write("outer.htm", "<!--#include=echo.htm--><%= Function F() %><!--#include=page.htm-->");
    request.Referer = kValue;
    request.UserAgent = kValue;
    request.QueryString = "q=" + kValue;
    programs.output = kValue;
    host.answer = [](const auto&) { return kValue; };
  }
};

void CheckCalls(const Site& site) {
  for (const auto& call : site.host.calls) {
    Require(call.name != "Forbidden" || call.params != "x", "no function is called that was put in");
  }
  for (const auto& start : site.programs.starts) {
    Require(!start.file.ends_with("forbidden.exe"), "no program is run that was put in");
  }
}

void CheckValues(std::string_view text) {
  for (auto at = text.find('\x02'); at != std::string_view::npos; at = text.find('\x02', at + 1)) {
    Require(text.substr(at).starts_with(kValue), "what was put in stays whole");
  }
  Require(text.find(kSecret) == std::string_view::npos, "no file is included that was put in");
}

}  // namespace
}  // namespace TesselServer

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  static Site site;
  if (size == 0) return 0;
  const std::string page(AsText(data, size).substr(1));
  site.record.SSIEnable((data[0] & 1) != 0);
  site.record.CGIEnable((data[0] & 2) != 0);
  site.record.HTMLFunctionsEnable((data[0] & 4) != 0);
  site.host.calls.clear();
  site.programs.starts.clear();
  const std::string result = site.Page(page);
  if ((data[0] & 7) == 0) Require(result == NormaliseTags(page), "without switches a page is only normalised");
  // An author who names what is forbidden, or writes the bytes that mark it, may have it.
  if (FindNoCase(page, "forbidden") != std::string::npos || page.find_first_of("\x02\x03") != std::string::npos)
    return 0;
  CheckCalls(site);
  CheckValues(result);
  return 0;
}
