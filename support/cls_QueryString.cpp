#include "support/cls_QueryString.h"

#include <limits>
#include <utility>

#include "support/Text.h"

namespace TesselServer {
namespace {

std::int16_t CountOf(std::string_view text, const std::string& key) {
  std::int16_t count = 0;
  std::size_t at = FindNoCase(text, key);
  while (at != std::string_view::npos && count < std::numeric_limits<std::int16_t>::max()) {
    ++count;
    at = FindNoCase(text, key, at + key.size());
  }
  return count;
}

}  // namespace

void cls_QueryString::QueryString(std::string queryString) { queryString_ = std::move(queryString); }

std::int16_t cls_QueryString::Count(std::string_view name) const {
  if (name == countedName_ && queryString_ == countedQueryString_) return count_;
  count_ = Trim(name).empty() ? std::int16_t{0} : CountOf(queryString_, std::string(name) + "=");
  countedName_ = name;
  countedQueryString_ = queryString_;
  return count_;
}

std::string cls_QueryString::Item(std::string_view name, std::int32_t index, std::string_view delimiter) const {
  const std::string_view trimmed = Trim(name);
  if (trimmed.empty() || index < 1) return {};
  const std::string key = std::string(name) + "=";
  std::size_t at = FindNoCase(queryString_, key);
  for (std::int32_t number = 1; number < index && at != std::string::npos; ++number) {
    at = FindNoCase(queryString_, key, at + key.size());
  }
  if (at == std::string::npos) return {};
  const std::size_t begin = at + trimmed.size() + 1;
  const std::size_t end = delimiter.empty() ? std::string::npos : FindNoCase(queryString_, delimiter, begin);
  return queryString_.substr(begin, end == std::string::npos ? end : end - begin);
}

}  // namespace TesselServer
