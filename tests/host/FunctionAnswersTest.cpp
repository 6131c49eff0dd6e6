#include <gmock/gmock.h>

#include <string>

#include "host/FunctionAnswers.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::MatchesRegex;

class FunctionAnswersTest : public Kit::WireTest {
 protected:
  FunctionAnswersTest() {
    control.tessel.HTMLFunctionsEnable(true);
    control.tessel.CallFunction = [this](std::int32_t& index, std::string& name) { answers.Answer(index, name); };
    control.Start(4);
  }

  // What the client sees of a page that holds `text`.
  std::string Shown(const std::string& text, const std::string& query = "") const {
    control.Write("page.html", text);
    return BodyOf(control.Get("/page.html" + query));
  }

  FunctionAnswers answers{control.tessel};
};

TEST_F(FunctionAnswersTest, StatisticsAreThoseOfTheControl) {
  struct {
    const char *tag, *text;
  } const cases[] = {
      {"<%=FunctionVersion()%>", "1\\.1\\.000"},
      {"<%=FunctionUpTime()%>", "00:00:0[0-9]:[0-9][0-9]"},
      {"<%=FunctionRequests()%>", "[1-9][0-9]*"},
      {"<%=FunctionErrors()%>", "0"},
      {"<%=FunctionBytesSent()%>", "[0-9]+K"},
      {"<%=FunctionBytesReceived()%>", "[0-9]+K"},
      {"<%=FunctionFreeConnections()%>", "[0-9]+/5"},
      {"<%=FunctionNow()%>", "20[0-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]"},
  };
  for (const auto& c : cases) EXPECT_THAT(Shown(c.tag), MatchesRegex(c.text)) << c.tag;
}

TEST_F(FunctionAnswersTest, NamesAreTheSameInAnyCaseAndWithBlanksAndQuotes) {
  for (const char* tag :
       {"<%=Function version()%>", "<%= FUNCTION VERSION ( ) %>", "<%=functionVeRsIoN()%>", "<%=FunctionVersion%>"}) {
    EXPECT_EQ(Shown(tag), "1.1.000") << tag;
  }
}

TEST_F(FunctionAnswersTest, AnUnknownNameGetsNothing) {
  EXPECT_EQ(Shown("[<%=FunctionNone()%>][<%=FunctionVersions()%>][<%=Function()%>]"), "[][][]");
  EXPECT_EQ(Shown("[<%=FunctionVersion()%>][<%=FunctionNone()%>]"), "[1.1.000][]");
}

TEST_F(FunctionAnswersTest, EchoGivesTheTextOfItsOwnTag) {
  EXPECT_EQ(Shown("[<%=Function Echo(text=a%20b)%>][<%=Function Echo(text=second)%>]", "?a=1"), "[a b][second]");
  EXPECT_EQ(Shown("[<%=Function Echo(text=)%>]", "?text=client"), "[]");
}

TEST_F(FunctionAnswersTest, EchoWithoutAnArgumentDoesNotShowTheClientsText) {
  EXPECT_EQ(Shown("[<%=Function Echo()%>]", "?text=client"), "[]");
}

TEST_F(FunctionAnswersTest, EchoMakesNoMarkup) {
  EXPECT_EQ(Shown("<%=Function Echo(text=%3Cb%3E%22)%>"), "&lt;b&gt;&quot;");
}

}  // namespace
}  // namespace TesselServer
