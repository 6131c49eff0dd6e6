#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <string_view>

#include "host/FileAnswers.h"
#include "host/RateDrawing.h"
#include "host/StatusJson.h"
#include "tests/wire/WireControl.h"

namespace TesselServer {
namespace {

using Kit::BodyOf;
using testing::HasSubstr;
using testing::Not;
using namespace std::chrono_literals;

class FileAnswersTest : public Kit::WireTest {
 protected:
  FileAnswersTest() {
    control.tessel.TrapFileEnable(true);
    control.tessel.FileRequest = [this](std::int32_t& index, std::string& path, std::string&) {
      answers.Answer(index, path);
    };
    control.Start(4);
  }

  std::string Post(std::string_view path, const std::string& body) const {
    return control.Ask("POST " + std::string(path) + " HTTP/1.0\r\nContent-Length: " + std::to_string(body.size()) +
                       "\r\n\r\n" + body);
  }

  RequestRate rate{RequestRate::TimePoint{}};
  FileAnswers answers{control.tessel, rate};
};

TEST_F(FileAnswersTest, EachNameHasItsTypeAndIsNotKept) {
  struct {
    const char *path, *type;
  } const cases[] = {
      {"/status.json", "application/json"},        {"/requests.svg", "image/svg+xml"},
      {"/form.echo", "text/plain; charset=utf-8"}, {"/Status.JSON", "application/json"},
      {"/REQUESTS.svg", "image/svg+xml"},          {"/form.ECHO?a=1", "text/plain; charset=utf-8"},
  };
  for (const auto& c : cases) {
    const auto answer = control.Get(c.path);
    EXPECT_THAT(answer, HasSubstr(std::string("\r\nContent-Type: ") + c.type + "\r\n")) << c.path;
    EXPECT_THAT(answer, HasSubstr("\r\nCache-Control: no-store\r\n")) << c.path;
  }
}

TEST_F(FileAnswersTest, TheStatisticsAreThoseOfTheControl) {
  const auto body = BodyOf(control.Get("/status.json"));
  EXPECT_THAT(body, HasSubstr("\"maxConnections\": 5\n"));
  EXPECT_THAT(BodyOf(control.Get("/status.json")), HasSubstr("\"requests\": 1,"));
}

TEST_F(FileAnswersTest, TheDrawingIsThatOfTheRate) {
  EXPECT_EQ(BodyOf(control.Get("/requests.svg")), RateDrawing({}));
  rate.Count(RequestRate::TimePoint{} + 1s, 4);
  EXPECT_EQ(BodyOf(control.Get("/requests.svg")), RateDrawing({4}));
}

TEST_F(FileAnswersTest, ABodyComesBackByteForByte) {
  for (const std::string& body : {std::string("name=value"), std::string("\0\r\n\r\n\xFF", 6), Kit::Noise(1 << 20)}) {
    EXPECT_EQ(BodyOf(Post("/form.echo", body)), body);
  }
  EXPECT_EQ(BodyOf(control.Get("/form.echo?a=1")), "");
}

TEST_F(FileAnswersTest, ABodyOfMoreThanAMebibyteIsRefused) {
  const auto answer = Post("/form.echo", std::string(FileAnswers::kMaxEchoBytes + 1, 'x'));
  EXPECT_THAT(answer, testing::StartsWith("HTTP/1.0 400 "));
  EXPECT_EQ(BodyOf(answer), "");
}

TEST_F(FileAnswersTest, EveryOtherPathIsServedAsAFile) {
  control.Write("index.html", "the start");
  control.Write("sub/status.json", "a file in a folder");
  control.Write("status.json.txt", "a longer name");
  EXPECT_EQ(BodyOf(control.Get("/")), "the start");
  EXPECT_EQ(BodyOf(control.Get("/sub/status.json")), "a file in a folder");
  EXPECT_EQ(BodyOf(control.Get("/status.json.txt")), "a longer name");
  EXPECT_THAT(control.Get("/none.json"), HasSubstr("404"));
  EXPECT_THAT(control.Get("/none.json"), Not(HasSubstr("no-store")));
}

TEST_F(FileAnswersTest, AFileOfTheSameNameAtTheRootIsHidden) {
  control.Write("form.echo", "the file");
  EXPECT_EQ(BodyOf(Post("/form.echo", "the body")), "the body");
}

}  // namespace
}  // namespace TesselServer
