// How long the body of a request is, by its fields Content-Length and Transfer-Encoding (RFC 9112 6). Strict, for two
// servers that understand a length differently let a client smuggle a request past one of them.
//
// Thread:    any one at a time.
// Ownership: keeps numbers only.
// Errors:    none; fields that are not clear have a status.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace TesselServer::Modern {

class BodyFraming {
 public:
  // Take the value of one field line, in the order sent.
  void AddContentLength(std::string_view value);
  void AddTransferEncoding(std::string_view value);

  // To be asked when all fields are known: 0, 400 where the length is not clear, 501 where the body has a coding that
  // is not known here.
  int Refusal(int minorVersion) const;

  // The announced length; INT64_MAX where the number is larger. Nothing where no length is announced.
  std::optional<std::int64_t> ContentLength() const { return length_; }
  bool IsChunked() const { return endsChunked_; }

 private:
  void AddCoding(std::string_view coding);

  std::optional<std::int64_t> length_;
  bool isBad_ = false;
  bool hasCodings_ = false;   // there is a Transfer-Encoding
  bool endsChunked_ = false;  // the last coding of those read is chunked
  bool hasOtherCoding_ = false;
};

}  // namespace TesselServer::Modern
