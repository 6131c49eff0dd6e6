#include "http/PageTexts.h"

#include <algorithm>
#include <utility>

namespace TesselServer {

std::string_view PageTexts::Keep(std::string text) {
  if (text.size() > kMaxSmallBytes) return Keep(std::make_shared<const std::string>(std::move(text)));
  if (text.empty()) return "";
  if (!small_) small_ = std::make_unique<std::pmr::monotonic_buffer_resource>(text.size());
  char* const place = static_cast<char*>(small_->allocate(text.size(), 1));
  std::copy(text.begin(), text.end(), place);
  return {place, text.size()};
}

std::string_view PageTexts::Keep(Shared text) {
  const std::string_view whole = *text;
  if (large_.empty() || large_.back() != text) large_.push_back(std::move(text));
  return whole;
}

}  // namespace TesselServer
