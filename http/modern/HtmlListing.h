// A folder's listing for people: an HTML page in UTF-8 with a table of names, exact and readable sizes, and times. The
// parts of the folder's path are links at the top, the heads of the columns choose the order. It has its style in it
// and no script, is laid out for narrow windows too, light or dark as the client likes, and can be read without styles.
//
// Names are shown as text, with U+FFFD for each control and each byte sequence that is no UTF-8; their links have the
// true bytes. A name that no request leads to has no link.
//
// Thread:    any one at a time; pure.
// Ownership: keeps its own copy of what it is made with; an entry is read during the call.
// Errors:    none but those of memory running out.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "http/modern/ListingPage.h"

namespace TesselServer::Modern {

// Appends `text` so that a page shows it as it is, also as the value of an attribute in quotes.
void AppendShown(std::string& to, std::string_view text);

// Appends the size in the unit that makes it a short number, "" below 1 KiB.
//
//   AppendReadableSize(to, 12'345);  // "12.1 KiB"
void AppendReadableSize(std::string& to, std::int64_t bytes);

// Appends the number with its digits in groups: "12,345".
void AppendGrouped(std::string& to, std::int64_t number);

class HtmlListing final : public ListingPage {
 public:
  // How many parts of the path are links: a page is not to be ever longer with the depth of its folder.
  static constexpr std::size_t kMaxParts = 32;

  struct Place {
    std::string path;  // of the folder, decoded: begins and ends with "/"
    std::string root;  // what the root is called; "" for "Root"
    // The client sees as many folders in the address as `path` has, so that "../" leads to the next one above. False:
    // links upwards are absolute. Relative ones work as well where a proxy shows the root below a path of its own.
    bool depthIsAsSent = true;
    ListingOrder order{};
  };

  explicit HtmlListing(Place place) : place_(std::move(place)) {}

  std::string_view Type() const override { return "text/html; charset=utf-8"; }
  void Begin(std::string& to) override;
  void AppendRow(std::string& to, const ListedEntry& entry) override;
  void End(std::string& to, bool isWhole) override;

 private:
  bool IsRoot() const { return place_.path.size() <= 1; }
  std::string_view RootName() const { return place_.root.empty() ? std::string_view("Root") : place_.root; }
  void AppendPath(std::string& to) const;
  void AppendPartLink(std::string& to, std::size_t pathEnd) const;
  void AppendLinkUp(std::string& to, std::size_t pathEnd) const;
  void AppendHead(std::string& to, ListingKey key, std::string_view text, std::string_view unit) const;

  Place place_;
  bool isEmpty_ = true;
};

}  // namespace TesselServer::Modern
