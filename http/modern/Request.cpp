#include "http/modern/Request.h"

#include "support/Text.h"

namespace TesselServer::Modern {

// The index of the first field `name` from `from` on, FieldCount() where there is none.
std::size_t Request::FindField(std::string_view name, std::size_t from) const {
  while (from < fields_.size() && (fields_[from].name.size != name.size() || !EqualNoCase(FieldName(from), name)))
    ++from;
  return from;
}

std::string_view Request::Field(std::string_view name, std::string& joined) const {
  const std::size_t first = FindField(name, 0);
  if (first == fields_.size()) return {};
  std::size_t next = FindField(name, first + 1);
  if (next == fields_.size()) return FieldValue(first);
  const std::string_view between = EqualNoCase(name, "Cookie") ? "; " : ", ";
  joined = FieldValue(first);
  for (; next < fields_.size(); next = FindField(name, next + 1)) joined.append(between).append(FieldValue(next));
  return joined;
}

std::string Request::Field(std::string_view name) const {
  std::string joined;
  return std::string(Field(name, joined));
}

std::size_t Request::HeldBytes() const {
  const std::size_t withinItself = std::string().capacity();
  const auto held = [&](const std::string& text) { return text.capacity() > withinItself ? text.capacity() + 1 : 0; };
  return held(head_) + held(decodedPath_) + fields_.capacity() * sizeof(FieldLine);
}

void Request::Reset() {
  Empty(head_, kMostKeptText);
  Empty(decodedPath_, std::string().capacity());
  if (fields_.capacity() > kMostKeptFields) std::vector<FieldLine>().swap(fields_);
  fields_.clear();
  facts_ = Facts();
}

}  // namespace TesselServer::Modern
