// Feeds a RequestReader and writes down what comes out, so that a case of a table is a line of text.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "http/modern/RequestReader.h"
#include "tests/kit/Cuts.h"

namespace TesselServer::Modern {

// What a reader made of some bytes.
struct Outcome {
  // Each request as "METHOD target" and " [body]" where it has one, " | " between, and at the end the status of a
  // refusal or "..." where a request has begun and is not whole. What has come of a body that is not whole is written
  // without "]".
  std::string text;
  std::string details;  // all that the requests say
};

// All that `request` says, in one text.
inline std::string Details(const Request& request) {
  std::string text(request.Head());
  text.append("line ").append(request.Line()).append("\nmethod ").append(request.Method());
  text.append("\ntarget ").append(request.Target()).append("\npath ").append(request.Path());
  text.append("\nquery ").append(request.Query()).append("\nhost ").append(request.Host());
  for (std::size_t i = 0; i < request.FieldCount(); ++i) {
    text.append("\nfield ").append(request.FieldName(i)).append("=").append(request.FieldValue(i));
  }
  text.append("\nlength ").append(std::to_string(request.ContentLength().value_or(-1)));
  for (const int number : {request.MinorVersion(), request.PathStatus(), static_cast<int>(request.Expects())}) {
    text.append(" ").append(std::to_string(number));
  }
  for (const bool flag : {request.HasHiddenSegment(), request.HasQuery(), request.IsAsterisk(), request.IsChunked(),
                          request.HasBody(), request.KeepsOpen()}) {
    text.append(flag ? " yes" : " no");
  }
  return text + "\n";
}

// Reads requests from pieces, one after the other, and holds what Next promises.
class RequestLog {
 public:
  explicit RequestLog(const RequestReader::Limits& limits) : limits_(limits) { reader_.Begin(limits_); }

  void Take(std::string_view bytes) {
    while (!isRefused_) {
      const auto step = reader_.Next(bytes, request_);
      ASSERT_LE(step.used, bytes.size());
      ASSERT_EQ(step.state == RequestReader::State::kBody, !step.body.empty());
      Note(step, bytes);
      bytes.remove_prefix(step.used);
      if (step.state == RequestReader::State::kMore) {
        ASSERT_TRUE(bytes.empty());
        return;
      }
    }
  }

  Outcome Result() {
    if (!isRefused_ && reader_.HasBegun()) {
      Separate();
      outcome_.text += "...";
    }
    return outcome_;
  }

 private:
  void Note(const RequestReader::Step& step, std::string_view bytes) {
    switch (step.state) {
      case RequestReader::State::kMore:
        break;
      case RequestReader::State::kHead:
        outcome_.details += Details(request_);
        Separate();
        outcome_.text.append(request_.Method()).append(" ").append(request_.Target());
        if (request_.PathStatus() != 0) outcome_.text.append(" bad path");
        if (request_.HasBody()) outcome_.text.append(" [");
        break;
      case RequestReader::State::kBody:
        ASSERT_GE(step.body.data(), bytes.data());
        ASSERT_LE(step.body.data() + step.body.size(), bytes.data() + step.used);
        body_ += step.body;
        ASSERT_EQ(static_cast<std::int64_t>(body_.size()), reader_.BodyReceived());
        outcome_.text += step.body;
        break;
      case RequestReader::State::kEnd:
        if (request_.HasBody()) outcome_.text += "]";
        body_.clear();
        reader_.Begin(limits_);
        break;
      case RequestReader::State::kRefused:
        isRefused_ = true;
        outcome_.details += Details(request_);
        Separate();
        outcome_.text += std::to_string(reader_.RefusalStatus());
        break;
    }
  }

  void Separate() {
    if (!outcome_.text.empty()) outcome_.text += " | ";
  }

  RequestReader::Limits limits_;
  RequestReader reader_;
  Request request_;
  std::string body_;
  bool isRefused_ = false;
  Outcome outcome_;
};

inline Outcome ReadPieces(const Kit::Pieces& pieces, const RequestReader::Limits& limits = {}) {
  RequestLog log(limits);
  for (const auto piece : pieces) log.Take(piece);
  return log.Result();
}

inline Outcome ReadWhole(std::string_view text, const RequestReader::Limits& limits = {}) {
  return ReadPieces({text}, limits);
}

// Expects that `text` is read as `expected` whole, byte by byte, and in two pieces wherever it is cut.
inline void ExpectRead(std::string_view text, std::string_view expected, const char* why,
                       const RequestReader::Limits& limits = {}) {
  const Outcome whole = ReadWhole(text, limits);
  EXPECT_EQ(whole.text, expected) << why << ":\n" << text;
  for (const auto& pieces : Kit::AllCuts(text)) {
    const Outcome cut = ReadPieces(pieces, limits);
    ASSERT_EQ(cut.text, whole.text) << why << ", cut after " << pieces.front().size() << ":\n" << text;
    ASSERT_EQ(cut.details, whole.details) << why << ", cut after " << pieces.front().size() << ":\n" << text;
  }
}

// The bytes of a literal, NUL included.
template <std::size_t kSize>
constexpr std::string_view Bytes(const char (&literal)[kSize]) {
  return {literal, kSize - 1};
}

}  // namespace TesselServer::Modern
