// Base64: bytes as text in the alphabet "A"-"Z" "a"-"z" "0"-"9" "+" "/", padded with "=".
//
// Thread:    any for text and bytes; the host's thread for files.
// Ownership: values; views given are read during the call.
// Errors:    decoding never fails on bad characters. EncodeArr, EncodeStr and DecodeToFile raise Error as documented
//            there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TesselServer {

//   cls_Base64 base64;
//   base64.DecodeStr("dXNlcjpwYXNz");  // "user:pass"
class cls_Base64 {
 public:
  static constexpr std::int32_t kErrorBase = static_cast<std::int32_t>(0x80040000);  // the numbers of raised errors
  static constexpr std::int32_t kFileExists = kErrorBase + 1000;
  static constexpr std::int32_t kArrayNotDimensioned = kErrorBase + 10000;

  static constexpr std::size_t kLineLength = 76;  // characters in a line of encoded text, as mail programs want it

  // The longest file that EncodeFile takes: text of such a file needs about as much memory again, and a third more.
  static constexpr std::int64_t kMaxFileBytes = 256LL * 1024 * 1024;

  // The bytes that `text` encodes. Every CR LF pair and then every "=", wherever it is, is left out; each other
  // character outside the alphabet (a blank, a lone CR or LF too) counts as "A", the value 0. A last group of two or
  // three characters gives one or two bytes, a single last character none.
  std::vector<std::uint8_t> DecodeArr(std::string_view text) const;

  // The same bytes as text.
  std::string DecodeStr(std::string_view text) const;

  // Writes the bytes that `text` encodes to a new file. In `path` "\" and "/" both separate. Raises kFileExists,
  // "File already exists." from "Base64.DecodeToFile" when anything exists there, which is left as it is: an existing
  // file is never opened, also when it appears at the last moment. Raises ErrorNumber::kFileAccess when the file cannot
  // be created or written whole; no part of it stays.
  void DecodeToFile(std::string_view text, std::string_view path) const;

  // `bytes` as text, in lines of kLineLength characters with CR LF between them and none after the last. Raises
  // kArrayNotDimensioned, "Input array is not dimensioned." from "Base64.EncodeArr" when there are no bytes.
  std::string EncodeArr(const std::vector<std::uint8_t>& bytes) const;

  // The bytes of `text` in the same way. Raises what EncodeArr raises for an empty text.
  std::string EncodeStr(std::string_view text) const;

  // The bytes of the file at `path` in the same way. "" when it cannot be read, is empty, or is longer than
  // kMaxFileBytes.
  std::string EncodeFile(std::string_view path) const;
};

}  // namespace TesselServer
