// A page under processing: a sequence of pieces, each the author's text or text that a processor has put in.
//
// Thread:    any; a value.
// Ownership: keeps its own text.
// Errors:    none.
#pragma once

#include <string>
#include <vector>

namespace TesselServer {

// Processors look for tags in author pieces only and copy inserted ones on, so what an echo, an include, a program or
// the host has put in is never scanned again. A processor builds a new page in one pass:
//
//   Page result;
//   for (const Page::Piece& piece : page.Pieces()) {
//     if (piece.source == Page::Source::kInserted) result.AppendInserted(piece.text);
//     else ReplaceTags(piece.text, result);  // AppendAuthor for what stays, AppendInserted for answers
//   }
//   page = std::move(result);
class Page {
 public:
  enum class Source {
    kAuthor,    // from the file: tags in it are obeyed
    kInserted,  // put in by a processor: never looked at again
  };
  struct Piece {
    Source source;
    std::string text;  // never ""
  };

  Page() = default;
  explicit Page(std::string authorText) { AppendAuthor(std::move(authorText)); }

  const std::vector<Piece>& Pieces() const { return pieces_; }

  // Adds text at the end; "" adds nothing. Neighbours of one source become one piece.
  void AppendAuthor(std::string text) { Append(Source::kAuthor, std::move(text)); }
  void AppendInserted(std::string text) { Append(Source::kInserted, std::move(text)); }

  // All pieces joined.
  std::string Text() const&;
  std::string Text() &&;

 private:
  void Append(Source source, std::string text);

  std::vector<Piece> pieces_;  // neighbours differ in source
};

}  // namespace TesselServer
