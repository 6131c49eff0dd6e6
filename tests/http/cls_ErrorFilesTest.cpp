#include <gtest/gtest.h>

#include "http/cls_ErrorFiles.h"

namespace TesselServer {
namespace {

const struct {
  const char *key, *html;
} kPages[] = {
    {"301", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 301</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 301: Moved Permanently</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, the request page has been permanently moved.</font></dt><dt><font face="Arial">)"
            R"(Click the following link to go to the page:</font></dt></dl></body></html>)"},
    {"302", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 302</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 302: Moved Temporarily</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, the request page has been temporarily moved.</font></dt><dt><font face="Arial">)"
            R"(Click the following link to go to the page:</font></dt></dl></body></html>)"},
    {"304", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 304</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 304: Not Modified</strong></font></p><dl><dt>&nbsp;</dt><dt>&nbsp;</dt></dl>)"
            R"(</body></html>)"},
    {"403", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 403</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 403: Forbidden</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, you do not have permission to access the page you requested.</font></dt><dt>&nbsp;</dt>)"
            R"(</dl></body></html>)"},
    {"404", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 404</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTTP 404: File Not Found</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, the requested page does not exist on this server.</font></dt><dt><font face="Arial">)"
            R"(It is possible you typed the address incorrectly or that the page no longer exists. </font>)"
            R"(</dt></dl></body></html>)"},
    {"500", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 500</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 500: Internal Server Error</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, your valid request has not been displayed due to an internal server error.</font></dt>)"
            R"(<dt>&nbsp;</dt></dl></body></html>)"},
    {"501",
     R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
     R"(HTTP Error 501</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
     R"(<strong>HTPP 501: Not Implemented</strong></font></p><dl><dt><font face="Arial">)"
     R"(Sorry, your valid request has not been displayed since this server does not support the requested feature.)"
     R"(</font></dt><dt>&nbsp;</dt></dl></body></html>)"},
    {"502", R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
            R"(HTTP Error 502</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
            R"(<strong>HTPP 502: Bad Gateway</strong></font></p><dl><dt><font face="Arial">)"
            R"(Sorry, your valid request has not been displayed due to a problem with the gateway.</font></dt>)"
            R"(<dt>&nbsp;</dt></dl></body></html>)"},
    {"503",
     R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
     R"(HTTP Error 403</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
     R"(<strong>HTPP 503: Service Unavailable</strong></font></p><dl><dt>&nbsp;</dt><dt>)"
     R"(<font face="Arial">)"
     R"(Sorry, your valid request has not been displayed since this server does not support the requested feature.)"
     R"(</font></dt><dt>&nbsp;</dt></dl></body></html>)"},
    {"ServerTooBusy",
     R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
     R"(Error: Server Too Busy</title></head><body bgcolor="#FFFFFF"><p>)"
     R"(<font color="#FF0000" face="Arial"><strong>Sorry, server too busy.</strong></font></p><dl><dt>)"
     R"(<font face="Arial">Sorry, the server is too busy to handle you request.</dt><dt>&nbsp;</dt>)"
     R"(</dl></body></html>)"},
};
constexpr const char* kUnknownCodePage =
    R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
    R"(HTTP Error 501</title></head><body bgcolor="#FFFFFF"><p><font color="#FF0000" face="Arial">)"
    R"(<strong>HTPP 501: Not Implemented</strong></font></p><dl><dt><font face="Arial">)"
    R"(Sorry, your valid request has not been displayed since this server does not support the requested feature.)"
    R"(</font></dt></dl></body></html>)";
constexpr const char* kTooBusyPage =
    R"(<html><head><meta http-equiv="Content-Type" content="text/html; charset=iso-8859-1"><title>)"
    R"(Error: Server Too Busy</title></head><body bgcolor="#FFFFFF"><p>)"
    R"(<font color="#FF0000" face="Arial"><strong>Sorry, server too busy.</strong></font></p><dl><dt>)"
    R"(<font face="Arial">Sorry, the server is too busy to handle you request.</dt></dl></body></html>)";

TEST(cls_ErrorFilesTest, EveryKeyHasItsPage) {
  for (const auto& page : kPages) EXPECT_EQ(cls_ErrorFiles().ErrorPageHtml(page.key), page.html) << page.key;
}

TEST(cls_ErrorFilesTest, UnknownKeysGetThePageWithoutASpacer) {
  for (const char* key : {"418", "400", "401", "200", "", " 404", "404 ", "servertoobusy", "SERVERTOOBUSY"}) {
    EXPECT_EQ(cls_ErrorFiles().ErrorPageHtml(key), kUnknownCodePage) << key;
  }
}

TEST(cls_ErrorFilesTest, TheTooBusyPageHasNoSpacer) { EXPECT_EQ(cls_ErrorFiles().ServerTooBusyHtml(), kTooBusyPage); }

}  // namespace
}  // namespace TesselServer
