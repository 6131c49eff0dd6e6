// Finds the blank line that ends the header block of a request, and watches the limits of the block on the way: how
// long the target, the request line, the block are and how many fields it has. It looks at each byte once, however the
// block is cut into chunks, and judges nothing else.
//
// Thread:    any one at a time.
// Ownership: keeps numbers only.
// Errors:    none; a limit that is exceeded is kRefused.
#pragma once

#include <cstddef>
#include <string_view>

namespace TesselServer::Modern {

//   HeadScanner scanner;
//   scanner.Begin(65536);
//   const auto step = scanner.Take(chunk);
//   if (step.state == HeadScanner::State::kEnd) Parse(the first scanner.HeadBytes() bytes of all that was taken);
class HeadScanner {
 public:
  // A longer target is refused: what browsers send is shorter, and the names of files are, too.
  static constexpr std::size_t kMaxTargetBytes = 8192;
  // More fields are refused; browsers send about 20, proxies add a few.
  static constexpr std::size_t kMaxFields = 200;

  enum class State {
    kMore,     // all was taken, the block goes on
    kEnd,      // the blank line was found; what comes after it was not taken
    kRefused,  // a limit is exceeded, see RefusalStatus; the line that exceeds it was not taken
  };
  struct Step {
    State state;
    std::size_t used;  // bytes taken from the front
  };

  // Expects the first byte of a request line. The block may have `headerBytes` bytes without its blank line.
  void Begin(std::size_t headerBytes);

  // Looks at the next bytes. Not to be called again after kEnd and kRefused.
  Step Take(std::string_view bytes);

  // 414 or 431 (RFC 9110 15.5.15, RFC 6585 5).
  int RefusalStatus() const { return refusal_; }

  // The bytes of the request line with its end, 0 until the line is whole.
  std::size_t LineBytes() const { return requestLineBytes_; }

  // The bytes of all lines that are whole, with their ends, without the blank line.
  std::size_t HeadBytes() const { return lineBegin_; }

  // The field lines that are whole.
  std::size_t FieldCount() const { return fields_; }

 private:
  bool IsBlankSoFar(std::string_view piece) const;
  int Judge(std::string_view piece, bool isWhole);
  bool TargetIsTooLong(std::string_view piece);

  std::size_t headerBytes_ = 0;
  std::size_t lineBegin_ = 0;  // where the line that is being read begins in the block
  std::size_t lineBytes_ = 0;  // what of it has come
  bool isReturn_ = false;      // that is one CR
  std::size_t requestLineBytes_ = 0;
  std::size_t blanks_ = 0;  // seen in the request line, at most 2
  std::size_t targetBytes_ = 0;
  std::size_t fields_ = 0;
  int refusal_ = 0;
};

}  // namespace TesselServer::Modern
