// The reader beside http_parser, the parser that node and many proxies had for years: what is accepted here it accepts,
// too, and reads the same, but for a list of differences. What it accepts and is refused here does not matter.
#include <gtest/gtest.h>
#include <http_parser.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "http/modern/ByteClasses.h"
#include "support/Text.h"
#include "tests/http/modern/SmugglingTricks.h"

namespace TesselServer::Modern {
namespace {

struct PlainRequest {
  std::string method, target, body;
  std::string framing;  // what was sent from the header block's end on
  std::vector<std::pair<std::string, std::string>> fields;

  std::string Text() const {
    std::string text = method + " " + target + "\n";
    for (const auto& [name, value] : fields) text.append(name).append("=").append(TrimBlanks(value)).append("\n");
    return text + "\n" + body;
  }

  // The value of the last field `name`, which is in lower case; empty where there is none.
  std::string Field(std::string_view name) const {
    std::string found;
    for (const auto& [other, value] : fields) {
      if (EqualNoCase(other, name)) found = value;
    }
    return found;
  }

  std::size_t Count(std::string_view name) const {
    return static_cast<std::size_t>(
        std::count_if(fields.begin(), fields.end(), [&](const auto& field) { return EqualNoCase(field.first, name); }));
  }
};

struct PlainStream {
  std::vector<PlainRequest> requests;  // those that are whole
  bool endsInBody = false;             // one more is valid, and its body is not whole
};

// A value with the white space around it.
std::string_view RawValue(const Request& request, std::size_t index) {
  const auto name = request.FieldName(index);
  const auto head = request.Head();
  const auto line = head.substr(static_cast<std::size_t>(name.data() - head.data()));
  return line.substr(name.size() + 1, line.find_first_of("\r\n") - name.size() - 1);
}

// The requests of `stream` up to the first one that is refused or ends the connection.
PlainStream ReadHere(std::string_view stream) {
  PlainStream read;
  PlainRequest current;
  Request request;
  RequestReader reader;
  reader.Begin({});
  for (;;) {
    const auto step = reader.Next(stream, request);
    if (step.state != RequestReader::State::kHead) current.framing += stream.substr(0, step.used);
    stream.remove_prefix(step.used);
    switch (step.state) {
      case RequestReader::State::kMore:
        return read;
      case RequestReader::State::kRefused:
        read.endsInBody = false;
        return read;
      case RequestReader::State::kHead:
        read.endsInBody = true;
        current = {std::string(request.Method()), std::string(request.Target()), "", "", {}};
        for (std::size_t i = 0; i < request.FieldCount(); ++i) {
          current.fields.emplace_back(request.FieldName(i), RawValue(request, i));
        }
        break;
      case RequestReader::State::kBody:
        current.body += step.body;
        break;
      case RequestReader::State::kEnd:
        read.endsInBody = false;
        read.requests.push_back(current);
        if (!request.KeepsOpen()) return read;
        reader.Begin({});
        break;
    }
  }
}

// What http_parser tells of one stream.
class OtherReading {
 public:
  PlainStream Read(std::string_view stream) && {
    http_parser parser;
    http_parser_init(&parser, HTTP_REQUEST);
    parser.data = this;
    http_parser_execute(&parser, &Settings(), stream.data(), stream.size());
    return std::move(read_);
  }

 private:
  static OtherReading& Of(http_parser* parser) { return *static_cast<OtherReading*>(parser->data); }

  static const http_parser_settings& Settings() {
    static const http_parser_settings settings = [] {
      http_parser_settings made;
      http_parser_settings_init(&made);
      made.on_message_begin = [](http_parser* parser) {
        Of(parser).current_ = {};
        Of(parser).isInHead_ = true;
        return 0;
      };
      made.on_url = [](http_parser* parser, const char* at, std::size_t size) {
        Of(parser).current_.target.append(at, size);
        return 0;
      };
      made.on_header_field = [](http_parser* parser, const char* at, std::size_t size) {
        if (Of(parser).isInHead_) Of(parser).current_.fields.emplace_back(std::string(at, size), "");
        return 0;
      };
      made.on_header_value = [](http_parser* parser, const char* at, std::size_t size) {
        if (Of(parser).isInHead_) Of(parser).current_.fields.back().second.append(at, size);
        return 0;
      };
      made.on_headers_complete = [](http_parser* parser) {
        Of(parser).isInHead_ = false;  // what comes later are trailer fields
        Of(parser).current_.method = http_method_str(static_cast<http_method>(parser->method));
        return 0;
      };
      made.on_body = [](http_parser* parser, const char* at, std::size_t size) {
        Of(parser).current_.body.append(at, size);
        return 0;
      };
      made.on_message_complete = [](http_parser* parser) {
        Of(parser).read_.requests.push_back(Of(parser).current_);
        return 0;
      };
      return made;
    }();
    return settings;
  }

  PlainRequest current_;
  bool isInHead_ = false;
  PlainStream read_;
};

bool IsMethodOfTheOther(std::string_view method) {
  for (int i = 0; i <= HTTP_SOURCE; ++i) {
    if (method == http_method_str(static_cast<http_method>(i))) return true;
  }
  return false;
}

// Where the two differ. Each is found by what was read here.
struct Difference {
  const char* why;
  bool (*applies)(const PlainRequest& request);
};

const Difference kDifferences[] = {
    {"it knows the methods of a list, here any token is one (RFC 9110 9.1) and is refused by name later",
     [](const PlainRequest& request) { return !IsMethodOfTheOther(request.method); }},
    {"it takes no list of codings that has empty elements (RFC 9110 5.6.1.2)",
     [](const PlainRequest& request) { return request.Field("transfer-encoding").find(',') != std::string::npos; }},
    {"it takes no HTAB around the name of a coding, which is white space there (RFC 9110 5.5)",
     [](const PlainRequest& request) { return request.Field("transfer-encoding").find('\t') != std::string::npos; }},
    {"it takes a longer name that begins with Transfer-Encoding for that field",
     [](const PlainRequest& request) {
       constexpr std::string_view kName = "transfer-encoding";
       return std::any_of(request.fields.begin(), request.fields.end(), [&](const auto& field) {
         return field.first.size() > kName.size() && EqualNoCase(field.first.substr(0, kName.size()), kName);
       });
     }},
    {"it reads a length and codings among trailer fields, too, where they mean nothing (RFC 9112 7.1.2)",
     [](const PlainRequest& request) {
       return FindNoCase(request.framing, "content-length") != kNpos ||
              FindNoCase(request.framing, "transfer-encoding") != kNpos;
     }},
    {"it refuses several equal lengths, which RFC 9110 8.6 lets count as one",
     [](const PlainRequest& request) {
       return request.Count("content-length") > 1 || request.Field("content-length").find(',') != std::string::npos;
     }},
};

class ModernOtherParserTest : public ::testing::Test {
 protected:
  // Compares the two over `stream`, up to the first difference that is known.
  void Compare(std::string_view stream) {
    const PlainStream here = ReadHere(stream);
    const PlainStream other = OtherReading().Read(stream);
    for (std::size_t i = 0; i < here.requests.size(); ++i) {
      const auto& request = here.requests[i];
      const bool isThere = i < other.requests.size();
      if (isThere && request.Text() == other.requests[i].Text()) {
        ++same_;
        continue;
      }
      EXPECT_TRUE(IsKnown(request)) << "read here:\n"
                                    << request.Text() << "\nread by the other:\n"
                                    << (isThere ? other.requests[i].Text() : "nothing") << "\nof:\n"
                                    << stream;
      return;
    }
    if (!here.endsInBody) return;
    ASSERT_LE(other.requests.size(), here.requests.size()) << "it takes a body for whole in:\n" << stream;
  }

  bool IsKnown(const PlainRequest& request) {
    for (const auto& difference : kDifferences) {
      if (!difference.applies(request)) continue;
      ++seen_[difference.why];
      return true;
    }
    return false;
  }

  std::size_t same_ = 0;  // requests that both accept and read the same
  std::map<std::string, int> seen_;
};

TEST_F(ModernOtherParserTest, ReadsTheTricksAlike) {
  for (const auto& trick : AllTricks()) Compare(trick.bytes);
  EXPECT_GT(same_, 50u);
  for (const auto& difference : kDifferences) EXPECT_GT(seen_[difference.why], 0) << "never seen: " << difference.why;
}

// `text` with a few bytes changed, or parts of it moved.
std::string Mutated(std::string text, std::string_view other, std::mt19937& random) {
  constexpr std::string_view kBytes = Bytes("\r\n\r\n\0\t :;,/?*%\\\"0123afxXGH\x0b\x7f\x80\xff");
  for (auto changes = 1 + random() % 3; changes > 0 && !text.empty(); --changes) {
    const std::size_t at = random() % text.size();
    const std::size_t length = 1 + random() % 8;
    switch (random() % 6) {
      case 0:
      case 1:
        text[at] = kBytes[random() % kBytes.size()];
        break;
      case 2:
        text.insert(at, 1, kBytes[random() % kBytes.size()]);
        break;
      case 3:
        text.erase(at, length);
        break;
      case 4:
        text.insert(random() % text.size(), text.substr(at, length * 4));
        break;
      default:
        text.insert(at, other.substr(random() % (other.size() + 1), length * 4));
    }
  }
  return text;
}

TEST_F(ModernOtherParserTest, ReadsRandomMutationsAlike) {
  std::vector<std::string_view> good, all;
  for (const auto& trick : AllTricks()) {
    all.push_back(trick.bytes);
    if (std::string_view(trick.outcome).find("40") == std::string_view::npos) good.push_back(trick.bytes);
  }
  std::mt19937 random(20260911);
  for (int i = 0; i < 10000; ++i) {
    Compare(Mutated(std::string(good[random() % good.size()]), all[random() % all.size()], random));
  }
  EXPECT_GT(same_, 1000u);
}

}  // namespace
}  // namespace TesselServer::Modern
