// Named values in the text after the "?" of a URL.
//
// kept: a name is searched as plain text, "name=" anywhere and in either case, and not between "&"s. So "id" also finds
// the tail of "userid=7", and "7" is its value. Values are returned as they are, "%20" and "+" included.
//
// Thread:    one at a time, reading too: Count remembers its last answer.
// Ownership: keeps its own copy of the query string.
// Errors:    none; what is not there is 0 or "".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TesselServer {

//   cls_QueryString query;
//   query.QueryString("a=1&b=2&a=3");
//   query.Count("a");         // 2
//   query.Item("A", 2, "&");  // "3"
class cls_QueryString {
 public:
  // Property QueryString (read/write): the text after the "?". Default: "".
  const std::string& QueryString() const { return queryString_; }
  void QueryString(std::string queryString);

  // How often `name` occurs, at most 32767. 0 for a blank name. Asked again with nothing changed, it does not count
  // again.
  std::int16_t Count(std::string_view name) const;

  // The value of the occurrence number `index` (the first is 1) of `name`: from after the "=" to the next `delimiter`,
  // or to the end when there is none or `delimiter` is empty. "" when there is no such occurrence, the name is blank or
  // `index` is below 1.
  // kept: a name is searched with its outer blanks but measured without them, so that for a name with blanks the value
  // begins earlier.
  std::string Item(std::string_view name, std::int32_t index, std::string_view delimiter) const;

 private:
  std::string queryString_;
  // Count's last answer. An empty name in an empty text has the count 0, so these are true from the start.
  mutable std::string countedName_;
  mutable std::string countedQueryString_;
  mutable std::int16_t count_ = 0;
};

}  // namespace TesselServer
