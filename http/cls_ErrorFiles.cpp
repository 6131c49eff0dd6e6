#include "http/cls_ErrorFiles.h"

#include <array>

namespace TesselServer {
namespace {

struct ErrorPage {
  std::string_view key;
  std::string_view title;
  std::string_view heading;
  std::array<std::string_view, 3> lines;  // "" is no line; one that begins with "<dt>" is used as it is
};

constexpr std::string_view kSpacer = "<dt>&nbsp;</dt>";
constexpr std::string_view kNotSupported =
    "Sorry, your valid request has not been displayed since this server does not support the requested feature.";
constexpr std::string_view kFollowLink = "Click the following link to go to the page:";

// kept: "HTPP" in all headings but that of 404, and the title of 503
constexpr ErrorPage kPages[] = {
    {"301",
     "HTTP Error 301",
     "HTPP 301: Moved Permanently",
     {"Sorry, the request page has been permanently moved.", kFollowLink}},
    {"302",
     "HTTP Error 302",
     "HTPP 302: Moved Temporarily",
     {"Sorry, the request page has been temporarily moved.", kFollowLink}},
    {"304", "HTTP Error 304", "HTPP 304: Not Modified", {kSpacer, kSpacer}},
    {"403",
     "HTTP Error 403",
     "HTPP 403: Forbidden",
     {"Sorry, you do not have permission to access the page you requested.", kSpacer}},
    {"404",
     "HTTP Error 404",
     "HTTP 404: File Not Found",
     {"Sorry, the requested page does not exist on this server.",
      "It is possible you typed the address incorrectly or that the page no longer exists. "}},
    {"500",
     "HTTP Error 500",
     "HTPP 500: Internal Server Error",
     {"Sorry, your valid request has not been displayed due to an internal server error.", kSpacer}},
    {"501", "HTTP Error 501", "HTPP 501: Not Implemented", {kNotSupported, kSpacer}},
    {"502",
     "HTTP Error 502",
     "HTPP 502: Bad Gateway",
     {"Sorry, your valid request has not been displayed due to a problem with the gateway.", kSpacer}},
    {"503", "HTTP Error 403", "HTPP 503: Service Unavailable", {kSpacer, kNotSupported, kSpacer}},
};

constexpr ErrorPage kUnknownCode = {"", "HTTP Error 501", "HTPP 501: Not Implemented", {kNotSupported}};

// kept: the list line as it has always been, without the end of its font
constexpr ErrorPage kServerTooBusy = {
    "ServerTooBusy",
    "Error: Server Too Busy",
    "Sorry, server too busy.",
    {"<dt><font face=\"Arial\">Sorry, the server is too busy to handle you request.</dt>", kSpacer}};

const ErrorPage& PageFor(std::string_view key) {
  for (const ErrorPage& page : kPages) {
    if (page.key == key) return page;
  }
  return key == kServerTooBusy.key ? kServerTooBusy : kUnknownCode;
}

std::string Html(const ErrorPage& page) {
  std::string html =
      "<html>"
      "<head>"
      "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\">"
      "<title>";
  html += page.title;
  html +=
      "</title>"
      "</head>"
      "<body bgcolor=\"#FFFFFF\">"
      "<p><font color=\"#FF0000\" face=\"Arial\"><strong>";
  html += page.heading;
  html +=
      "</strong></font></p>"
      "<dl>";
  for (const std::string_view line : page.lines) {
    if (line.empty() || line.starts_with("<dt>")) {
      html += line;
    } else {
      html.append("<dt><font face=\"Arial\">").append(line).append("</font></dt>");
    }
  }
  html +=
      "</dl>"
      "</body>"
      "</html>";
  return html;
}

}  // namespace

std::string cls_ErrorFiles::ErrorPageHtml(std::string_view Key) const { return Html(PageFor(Key)); }

std::string cls_ErrorFiles::ServerTooBusyHtml() const {
  ErrorPage page = kServerTooBusy;
  page.lines[1] = "";
  return Html(page);
}

}  // namespace TesselServer
