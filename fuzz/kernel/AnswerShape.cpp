#include "fuzz/kernel/AnswerShape.h"

#include "fuzz/Require.h"
#include "support/Text.h"

namespace TesselServer::Pretended {
namespace {

constexpr std::string_view kStatus = "HTTP/1.0 ";
constexpr std::string_view kLength = "\r\nContent-Length: ";

}  // namespace

AnswerShape ShapeOf(std::string_view got) {
  AnswerShape shape;
  Require(got.substr(0, kStatus.size()) == kStatus.substr(0, got.size()), "an answer begins with its status line");
  const std::size_t end = got.find("\r\n\r\n");
  if (end == std::string_view::npos) return shape;
  shape.body = got.substr(end + 4);
  const std::string_view head = got.substr(0, end + 2);
  const std::size_t length = head.find(kLength);
  if (length == std::string_view::npos) {
    shape.isWhole = true;
  } else {
    const std::string_view digits = head.substr(length + kLength.size());
    Require(head.find(kLength, length + 1) == std::string_view::npos, "a length is announced once");
    shape.announced = LeadingNumber(digits);
    Require(shape.announced.has_value(), "what is announced is a length");
    const auto size = static_cast<std::int64_t>(shape.body.size());
    Require(size <= *shape.announced + 1, "no more follows than was announced");
    shape.isWhole = size >= *shape.announced;
  }
  Require(shape.body.find(kStatus) == std::string_view::npos, "there is one answer");
  return shape;
}

}  // namespace TesselServer::Pretended
