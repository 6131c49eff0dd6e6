// Follows the bytes of one answer and says whether it was the expected one: its status, every byte of its body or at
// least their number, and that the connection ended behind the last.
//
// Thread:    any.
// Ownership: the expectation outlives the check.
// Errors:    none.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Comparison {

struct Expectation {
  std::string status = "200";
  std::string body;
};

//   AnswerCheck check(expected);
//   check.Take("HTTP/1.0 200 OK\r\n\r\nhel");
//   check.Take("lo");
//   check.End();   // "" when "hello" was expected
class AnswerCheck {
 public:
  // How long a head may be; a longer one is wrong.
  static constexpr std::size_t kMaxHead = 16384;

  explicit AnswerCheck(const Expectation& expected) : expected_(&expected) {}

  // The next bytes of the answer.
  void Take(std::string_view bytes);

  // `count` bytes of the body came that nobody looked at.
  void Skip(std::size_t count) { bodyBytes_ += count; }

  // Whether the head is complete, so that what comes is the body.
  bool InBody() const { return inBody_; }

  // How many bytes of the body have come.
  std::uint64_t BodyBytes() const { return bodyBytes_; }

  // The connection has ended: "" when all was as expected, otherwise what was not.
  std::string End() const;

 private:
  void TakeHead(std::string_view bytes);
  void TakeBody(std::string_view bytes);

  const Expectation* expected_;
  std::string head_;  // up to and with the blank line; at most kMaxHead
  std::string wrong_;
  std::uint64_t bodyBytes_ = 0;
  bool inBody_ = false;
};

}  // namespace Comparison
