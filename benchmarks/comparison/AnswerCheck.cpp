#include "benchmarks/comparison/AnswerCheck.h"

namespace Comparison {

void AnswerCheck::Take(std::string_view bytes) { inBody_ ? TakeBody(bytes) : TakeHead(bytes); }

void AnswerCheck::TakeHead(std::string_view bytes) {
  const std::size_t known = head_.size();
  head_.append(bytes.substr(0, kMaxHead - known));
  const std::size_t end = head_.find("\r\n\r\n");
  if (end == std::string::npos) {
    if (head_.size() == kMaxHead) wrong_ = "a head without an end";
    return;
  }
  inBody_ = true;
  TakeBody(bytes.substr(end + 4 - known));
  head_.resize(end + 4);
  const std::string_view line(head_);
  if (!line.starts_with("HTTP/1.") || line.substr(8, 5) != " " + expected_->status + " ") {
    wrong_ = "the status line " + head_.substr(0, head_.find('\r'));
  }
}

void AnswerCheck::TakeBody(std::string_view bytes) {
  if (bodyBytes_ + bytes.size() <= expected_->body.size() &&
      std::string_view(expected_->body).substr(bodyBytes_, bytes.size()) != bytes) {
    wrong_ = "another byte behind byte " + std::to_string(bodyBytes_) + " of the body";
  }
  bodyBytes_ += bytes.size();
}

std::string AnswerCheck::End() const {
  if (!wrong_.empty()) return wrong_;
  if (!inBody_) return "an end inside the head";
  if (bodyBytes_ == expected_->body.size()) return "";
  return "a body of " + std::to_string(bodyBytes_) + " bytes and not " + std::to_string(expected_->body.size());
}

}  // namespace Comparison
