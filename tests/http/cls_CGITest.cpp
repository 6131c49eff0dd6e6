#include <gtest/gtest.h>

#include "http/cls_CGI.h"

namespace TesselServer {
namespace {

TEST(cls_CGITest, TheWarningIsOneFixedAnswer) {
  EXPECT_EQ(cls_CGI().CGIWarningPage(),
            "HTTP/1.0 200 OKContent-Type: text/html\r\n\r\n<HTML><BODY><TITLE>CGI Warning</TITLE><h1>CGI Warning</h1>"
            "<p>CGI Script Processing is not enabled on this server.</p>\r\n\r\n<p>;nbsp</p></BODY></HTML>");
}

}  // namespace
}  // namespace TesselServer
