#include <gtest/gtest.h>

#include <string>

#include "http/modern/AcceptField.h"

namespace TesselServer::Modern {
namespace {

TEST(AcceptFieldTest, JsonIsForThoseWhoLikeItBest) {
  const struct {
    const char* accept;
    bool prefersJson;
    const char* why;
  } cases[] = {
      {"", false, "nothing is said"},
      {"application/json", true, "the one"},
      {"Application/JSON", true, "types have no case"},
      {"text/html", false, "the other"},
      {"text/plain", false, "neither: a page is better than nothing"},
      {"*/*", false, "equally"},
      {"application/json, text/html", false, "equally"},
      {"text/html, application/json", false, "in any order"},
      {"application/json, */*", false, "equally"},
      {"application/json, */*;q=0.8", true, "what clients for programs send"},
      {"text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8", false, "what browsers send"},
      {"text/html;q=0.5, application/json;q=0.6", true, "more"},
      {"text/html;q=0.6, application/json;q=0.5", false, "less"},
      {"text/html;q=0.999, application/json;q=1.000", true, "three digits"},
      {"text/html;q=0.5, application/json;q=0.500", false, "equal numbers"},
      {"text/html;q=0.10, application/json;q=0.9", true, "numbers, not texts"},
      {"application/json;q=0", false, "none of it"},
      {"application/json;q=0.000, text/plain", false, "none of it"},
      {"application/json;q=0, */*", false, "none of it, whatever else"},
      {"application/*", true, "by its family"},
      {"application/*, text/html", false, "equally"},
      {"application/*;q=0.9, application/json;q=0.1, text/html;q=0.5", false, "the name counts more than the family"},
      {"application/json;q=0.1, application/*;q=0.9, text/html;q=0.5", false, "in any order"},
      {"text/*;q=0.1, */*", true, "HTML by its family, JSON by the rest"},
      {"*/*, text/html;q=0.5", true, "the same by its name"},
      {"*/*;q=0.1, text/html;q=0", true, "a little is more than none"},
      {"application/json;q=0.2, application/json;q=0.8, text/html;q=0.5", true, "of the same twice the higher one"},
      {"application/json ; q=1 ,text/html ; q=0.1", true, "blanks"},
      {"application/json;\tq=1,\ttext/html;q=0.1", true, "tabs"},
      {",, application/json ,,", true, "empty elements"},
      {"application/json;Q=1, text/html;q=0.1", true, "the weight's name has no case"},
      {"application/json;charset=utf-8", true, "with a parameter, where nothing else is said"},
      {"application/json;version=2, application/json;q=0.1, text/html;q=0.5", false, "the plain type is what is sent"},
      {"application/json;a=\"x,text/html;q=0\", text/html;q=0.5", true, "a comma in quotes divides nothing"},
      {"application/json;a=\"\\\",\";q=0.1, text/html;q=0.5", false, "nor does one after a quoted quote"},
      {"application/json;q=0.6;x=1, text/html;q=0.5", true, "what follows the weight says nothing of the type"},
      {"application/json;q=2, text/html;q=0.1", false, "no weight: that element is not there"},
      {"application/json;q=1.001, text/html;q=0.1", false, "the same"},
      {"application/json;q=-1", false, "the same"},
      {"application/json;q=", false, "the same"},
      {"application/json;q=0,9", false, "a decimal comma ends the element, with 0"},
      {"application/json;q=.9", false, "a digit must come first"},
      {"application/json;q=0.", false, "that is 0"},
      {"application/json;q=1.", true, "and that 1"},
      {"application/json;q=0.12345, text/html;q=0.12", true, "digits too many"},
      {"application/jsonp", false, "another type"},
      {"xapplication/json", false, "another type"},
      {"application/ json", false, "no type"},
      {"application/json;a=\"", true, "a quote that never ends"},
      {"application/json;a=\"\\", true, "nor a quoted one"},
      {"*/json", false, "no range"},
      {"*", false, "no range"},
      {";q=1", false, "no type at all"},
  };
  for (const auto& c : cases) EXPECT_EQ(PrefersJson(c.accept), c.prefersJson) << c.accept << ": " << c.why;
}

TEST(AcceptFieldTest, AnyBytesAreReadToTheirEnd) {
  const std::string hostile[] = {std::string(60'000, ','),
                                 std::string(60'000, ';'),
                                 std::string(60'000, '"'),
                                 std::string(60'000, '\\'),
                                 "application/json;q=" + std::string(60'000, '1'),
                                 "application/json;q=0." + std::string(60'000, '0')};
  for (const std::string& accept : hostile) EXPECT_FALSE(PrefersJson(accept)) << accept.substr(0, 30);
}

}  // namespace
}  // namespace TesselServer::Modern
