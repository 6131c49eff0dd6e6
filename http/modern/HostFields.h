// Header lines that a host or a program gave for an answer: which of them are sent, and which lines of the control's
// own they replace. None of them can end its line, the header, or the answer before its time.
//
// Thread:    any.
// Ownership: keeps its own copies.
// Errors:    none; lines that cannot be sent are listed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer::Modern {

//   HostFields fields("X-One: 1\r\nContent-Length: 5\r\nbad line\r\n");
//   fields.Lines();    // "X-One: 1\r\n"
//   fields.Refused();  // {"bad line"}
class HostFields {
 public:
  // A report of more lines, or of longer ones, would only hide the first.
  static constexpr std::size_t kMaxRefused = 16;
  static constexpr std::size_t kMaxRefusedBytes = 256;

  HostFields() = default;

  // `text` is lines with CR LF between them; the last one may lack its own, and empty lines say nothing. Of the others
  //   - one without a colon, whose name is no token, or that holds a control other than tab (a bare CR or LF, a NUL) is
  //     refused, and so is a second Content-Type, Server or Date;
  //   - one that is for the connection (RFC 9110 section 7.6.1: Connection, Keep-Alive, Proxy-Connection, TE, Trailer,
  //     Transfer-Encoding, Upgrade) is dropped, and so is Content-Length: the control sees to both itself;
  //   - the rest is sent as it is, in its order.
  explicit HostFields(std::string_view text);

  // What is sent: whole lines, each with its CR LF.
  const std::string& Lines() const { return lines_; }

  // Which of the control's own lines are replaced by one of these.
  bool ReplacesContentType() const { return contentType_; }
  bool ReplacesServer() const { return server_; }
  bool ReplacesDate() const { return date_; }
  bool ReplacesCacheControl() const { return cacheControl_; }

  // Whether a line with this name, in any case, is sent.
  bool Has(std::string_view name) const;

  // The first kMaxRefused lines that were refused, each as it came, up to kMaxRefusedBytes. For a report; not yet fit
  // for a terminal (support/Printable.h).
  const std::vector<std::string>& Refused() const { return refused_; }

 private:
  void TakeLine(std::string_view line);
  bool TakesPlace(std::string_view name);
  void Refuse(std::string_view line);

  std::string lines_;
  std::vector<std::string> refused_;
  bool contentType_ = false;
  bool server_ = false;
  bool date_ = false;
  bool cacheControl_ = false;
};

}  // namespace TesselServer::Modern
