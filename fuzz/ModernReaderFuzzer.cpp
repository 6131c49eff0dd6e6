// Streams of requests of HTTP/1.1: whatever comes, in whatever pieces, and whether requests come together or one by
// one, the same requests with the same bodies are read, and the same refusal ends them. What is kept is bounded.
//
// The input is the stream.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/Require.h"
#include "http/modern/RequestReader.h"
#include "support/Text.h"

namespace {

using TesselServer::IsControl;
using TesselServer::Require;
using TesselServer::Modern::Request;
using TesselServer::Modern::RequestReader;
using State = RequestReader::State;

// A field line has a name, a colon and an end: so many bytes at least.
constexpr std::size_t kMaxFields = 200, kFieldBytes = 16;

// One request, and where it ended in the stream.
struct Read {
  std::string all;  // what it says, with its body
  std::size_t end = 0;
};

struct Stream {
  std::vector<Read> requests;  // the last one may be refused, or not whole
  bool isWhole = true;         // it ended with a request's end
};

void CheckPath(const Request& request) {
  const auto path = request.Path();
  const bool mayBeEmpty = request.IsAsterisk() || request.Method() == "CONNECT" || request.PathStatus() != 0;
  Require(path.empty() ? mayBeEmpty : path.front() == '/', "a path begins with a slash");
  Require(path.find("//") == std::string_view::npos, "no segment of a path is empty");
  Require(path.find('\\') == std::string_view::npos, "a path has one kind of slash");
  Require(std::none_of(path.begin(), path.end(), IsControl), "a path has no control characters");
  const std::string around = std::string(path) + "/";
  Require(around.find("/../") == std::string::npos && around.find("/./") == std::string::npos, "no dot segments");
}

std::string Facts(const Request& request) {
  std::string text(request.Head());
  for (const auto part :
       {request.Line(), request.Method(), request.Target(), request.Path(), request.Query(), request.Host()}) {
    text.append("\n").append(part);
  }
  for (const auto number :
       {static_cast<std::int64_t>(request.MinorVersion()), static_cast<std::int64_t>(request.PathStatus()),
        static_cast<std::int64_t>(request.Expects()), request.ContentLength().value_or(-1)}) {
    text.append(" ").append(std::to_string(number));
  }
  return text + (request.KeepsOpen() ? " keeps" : " ends") + (request.IsChunked() ? " chunked\n" : "\n");
}

void CheckFields(const Request& request, std::string_view stream) {
  Require(request.FieldCount() <= kMaxFields, "fields are bounded");
  Require(stream.find(request.Head()) != std::string_view::npos, "the head is as it was sent");
  std::string joined;
  for (std::size_t i = 0; i < request.FieldCount(); ++i) {
    const auto name = request.FieldName(i), value = request.FieldValue(i);
    Require(!name.empty() && request.Has(name), "a field is found by its name");
    Require(request.Field(name, joined).find(value) != std::string_view::npos, "a value is part of the whole one");
    Require(value.find_first_of("\r\n") == std::string_view::npos, "a value is one line");
  }
  Require(!request.IsChunked() || !request.ContentLength(), "the length of a body is clear");
}

// Reads a stream and writes down its requests.
class StreamReading {
 public:
  StreamReading(std::string_view stream, const RequestReader::Limits& limits) : stream_(stream), limits_(limits) {
    reader_.Begin(limits_);
  }

  // Gives the next bytes, until all of them are taken and no more can be said without others. False once refused.
  bool Give(std::size_t count) {
    const std::size_t given = taken_ + count;
    for (;;) {
      const auto step = reader_.Next(stream_.substr(taken_, given - taken_), request_);
      Require(step.used <= given - taken_, "no more is taken than was given");
      Require(request_.HeldBytes() <= 3 * limits_.headerBytes + 2 * kMaxFields * kFieldBytes + 1024,
              "memory is bounded");
      taken_ += step.used;
      Note(step);
      if (step.state == State::kRefused) return false;
      if (step.state == State::kMore) {
        Require(taken_ == given, "all is taken before more is asked for");
        return true;
      }
    }
  }

  std::size_t Left() const { return stream_.size() - taken_; }

  Stream Result() && {
    read_.isWhole = current_.all.empty() && !reader_.HasBegun();
    if (!read_.isWhole) {
      current_.all += " begun " + body_;
      read_.requests.push_back(std::move(current_));
    }
    return std::move(read_);
  }

 private:
  void Note(const RequestReader::Step& step) {
    switch (step.state) {
      case State::kMore:
        break;
      case State::kHead:
        CheckFields(request_, stream_);
        CheckPath(request_);
        current_.all = Facts(request_);
        break;
      case State::kBody:
        Require(!step.body.empty(), "a piece is not empty");
        body_ += step.body;
        Require(reader_.BodyReceived() == static_cast<std::int64_t>(body_.size()), "the body is counted");
        Require(reader_.BodyReceived() <= limits_.bodyBytes, "a body is bounded");
        break;
      case State::kEnd:
        EndRequest();
        break;
      case State::kRefused:
        current_.all += Facts(request_) + " refused " + std::to_string(reader_.RefusalStatus());
        break;
    }
  }

  void EndRequest() {
    const auto announced = request_.ContentLength().value_or(0);
    Require(request_.IsChunked() || announced == static_cast<std::int64_t>(body_.size()), "a body is as announced");
    current_.all += body_;
    current_.end = taken_;
    read_.requests.push_back(std::move(current_));
    current_ = {};
    body_.clear();
    request_.Reset();
    Require(request_.HeldBytes() <= 1024, "little is kept");
    reader_.Begin(limits_);
  }

  std::string_view stream_;
  RequestReader::Limits limits_;
  RequestReader reader_;
  Request request_;
  Stream read_;
  Read current_;
  std::string body_;
  std::size_t taken_ = 0;
};

// Reads `stream`, giving `pieceBytes` of it at once; 0 stands for sizes that vary.
Stream ReadStream(std::string_view stream, std::size_t pieceBytes, const RequestReader::Limits& limits) {
  StreamReading reading(stream, limits);
  auto random = static_cast<std::uint32_t>(stream.size());
  while (reading.Left() > 0) {
    random = random * 1664525u + 1013904223u;
    if (!reading.Give(std::min(reading.Left(), pieceBytes > 0 ? pieceBytes : 1 + (random >> 28)))) break;
  }
  return std::move(reading).Result();
}

void RequireSame(const Stream& a, const Stream& b) {
  Require(a.isWhole == b.isWhole && a.requests.size() == b.requests.size(), "the same number of requests is read");
  for (std::size_t i = 0; i < a.requests.size(); ++i) {
    Require(a.requests[i].all == b.requests[i].all, "the same requests are read");
    Require(a.requests[i].end == b.requests[i].end, "they end at the same bytes");
  }
}

void Check(std::string_view stream, const RequestReader::Limits& limits) {
  const Stream whole = ReadStream(stream, stream.size(), limits);
  RequireSame(whole, ReadStream(stream, 1, limits));
  RequireSame(whole, ReadStream(stream, 0, limits));
  std::size_t begin = 0;
  for (const auto& request : whole.requests) {
    const std::size_t end = request.end > 0 ? request.end : stream.size();
    const Stream alone = ReadStream(stream.substr(begin, end - begin), end - begin, limits);
    Require(alone.requests.size() == 1 && alone.requests[0].all == request.all, "a request alone is read the same");
    begin = end;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto stream = TesselServer::AsText(data, size);
  Check(stream, {});
  Check(stream, {.headerBytes = 64, .bodyBytes = 16});  // so small that inputs reach them
  return 0;
}
