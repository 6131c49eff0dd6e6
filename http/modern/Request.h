// What one request says: its line and its fields exactly as they were sent, and what they mean. RequestReader fills it
// in. It is used again from request to request of a connection.
//
// Thread:    any one at a time.
// Ownership: keeps its own copy of the header block, bounded by the limit of the reader, and 16 bytes a field; after
//            Reset at most kMostKeptText and kMostKeptFields of it. Views look into that copy: valid until Reset or a
//            move.
// Errors:    none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer::Modern {

class Request {
 public:
  // What stays of memory for the next request of the connection, some 512 bytes in all.
  static constexpr std::size_t kMostKeptText = 320;
  static constexpr std::size_t kMostKeptFields = 12;

  enum class Expectation {
    kNone,
    kContinue,  // the client waits for 100 Continue before it sends the body
    kUnknown,   // something else, which cannot be met
  };

  // The request line and all field lines as they were sent, each with its end, without the blank line.
  std::string_view Head() const { return head_; }

  // The request line without its end. Empty while it is not whole. Of a line that is refused there is the method at
  // most.
  std::string_view Line() const { return View(facts_.line); }
  std::string_view Method() const { return View(facts_.method); }
  std::string_view Target() const { return View(facts_.target); }

  // 0 for HTTP/1.0, 1 for HTTP/1.1 and later versions of HTTP/1.
  int MinorVersion() const { return facts_.minorVersion; }

  // The path of the target, decoded once, without empty and dot segments; a final slash stays. Begins with "/". Empty
  // where the target has none: IsAsterisk, a target of CONNECT, or a PathStatus other than 0.
  //
  //   "/a%20b//c/"  "/a b/c/"
  std::string_view Path() const { return facts_.pathIsDecoded ? std::string_view(decodedPath_) : View(facts_.path); }

  // 0, or the status that refuses the request for its path: 400. The framing of such a request is whole: its body can
  // be read, and the connection goes on.
  int PathStatus() const { return facts_.pathStatus; }

  // Whether a segment of the path begins with a dot, but for ".well-known" in front.
  bool HasHiddenSegment() const { return facts_.hasHiddenSegment; }

  // What follows the first "?" of the target, as sent.
  std::string_view Query() const { return View(facts_.query); }
  bool HasQuery() const { return facts_.hasQuery; }

  // The server itself is asked about (OPTIONS *).
  bool IsAsterisk() const { return facts_.isAsterisk; }

  // The authority that counts, host and port as sent: of the target where it names one, else of the field Host. Empty
  // where there is none.
  std::string_view Host() const { return View(facts_.host); }

  // The announced length of the body; nothing where none is announced.
  std::optional<std::int64_t> ContentLength() const { return facts_.contentLength; }
  bool IsChunked() const { return facts_.isChunked; }
  bool HasBody() const { return facts_.isChunked || facts_.contentLength.value_or(0) > 0; }

  // Whether the client means to send another request after this one (RFC 9112 9.3). False after CONNECT: what follows
  // may be meant for the other end of a tunnel.
  bool KeepsOpen() const { return facts_.keepsOpen; }

  // A client of HTTP/1.0 expects nothing (RFC 9110 10.1.1).
  Expectation Expects() const { return facts_.expectation; }

  // Field lines in the order sent. Values have no white space around them.
  std::size_t FieldCount() const { return fields_.size(); }
  std::string_view FieldName(std::size_t index) const { return View(fields_[index].name); }
  std::string_view FieldValue(std::size_t index) const { return View(fields_[index].value); }

  // Whether there is a field `name`, in any case.
  bool Has(std::string_view name) const { return FindField(name, 0) < fields_.size(); }

  // The value of the field `name`, in any case; empty where there is none. Several of one name are joined in the order
  // sent, with ", " or, of Cookie, with "; " (RFC 9110 5.3, RFC 6265 4.2.1). The usual single one costs no copy; of
  // several, `joined` keeps the text, and the view looks into it.
  std::string_view Field(std::string_view name, std::string& joined) const;
  std::string Field(std::string_view name) const;

  // What it takes of memory beside this object.
  std::size_t HeldBytes() const;

  // Forgets the request; see the limits above for what memory stays.
  void Reset();

 private:
  friend class HeadParser;     // fills in what the head says
  friend class RequestReader;  // collects the head

  // A part of head_. 32 bits are enough for the largest header block.
  struct Span {
    std::uint32_t begin = 0, size = 0;
  };
  struct FieldLine {
    Span name, value;
  };
  struct Facts {
    Span line, method, target, path, query, host;
    std::optional<std::int64_t> contentLength;
    int minorVersion = 1;
    int pathStatus = 0;
    Expectation expectation = Expectation::kNone;
    bool pathIsDecoded = false, hasHiddenSegment = false, hasQuery = false, isAsterisk = false;
    bool isChunked = false, keepsOpen = false;
  };

  std::string_view View(Span span) const { return std::string_view(head_).substr(span.begin, span.size); }
  std::size_t FindField(std::string_view name, std::size_t from) const;

  std::string head_;
  std::string decodedPath_;
  std::vector<FieldLine> fields_;
  Facts facts_;
};

}  // namespace TesselServer::Modern
