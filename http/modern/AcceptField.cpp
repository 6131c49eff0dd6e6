#include "http/modern/AcceptField.h"

#include <cstddef>
#include <optional>

#include "http/modern/FieldValues.h"
#include "platform/world/AsciiCase.h"

namespace TesselServer::Modern {
namespace {

constexpr int kWholeWeight = 1000;  // weights are counted in thousandths

// The text in front of the first `end` that is in no quoted string, taken from the front of `rest` with it.
std::string_view TakeUnquoted(std::string_view& rest, char end) {
  bool isQuoted = false;
  std::size_t at = 0;
  for (; at < rest.size() && (isQuoted || rest[at] != end); ++at) {
    if (rest[at] == '"') isQuoted = !isQuoted;
    if (isQuoted && rest[at] == '\\') ++at;
  }
  if (at > rest.size()) at = rest.size();  // a backslash was the last byte
  const std::string_view taken = rest.substr(0, at);
  rest.remove_prefix(at < rest.size() ? at + 1 : at);
  return TrimmedField(taken);
}

// Nothing where `text` is no weight (RFC 9110 section 12.4.2). More than three digits are read, not counted.
std::optional<int> WeightOf(std::string_view text) {
  if (text.empty() || (text[0] != '0' && text[0] != '1')) return std::nullopt;
  int weight = text[0] == '1' ? kWholeWeight : 0;
  if (text.size() > 1 && text[1] != '.') return std::nullopt;
  int worth = kWholeWeight / 10;
  for (std::size_t i = 2; i < text.size(); ++i, worth /= 10) {
    if (!IsDecimal(text[i])) return std::nullopt;
    weight += (text[i] - '0') * worth;
  }
  return weight <= kWholeWeight ? std::optional(weight) : std::nullopt;
}

struct MediaRange {
  std::string_view type;
  int weight = kWholeWeight;
  bool hasParameters = false;
};

std::optional<MediaRange> RangeIn(std::string_view element) {
  MediaRange range;
  range.type = TakeUnquoted(element, ';');
  while (!element.empty()) {
    const std::string_view parameter = TakeUnquoted(element, ';');
    if (!parameter.starts_with("q=") && !parameter.starts_with("Q=")) {
      range.hasParameters = range.hasParameters || !parameter.empty();
      continue;
    }
    const auto weight = WeightOf(parameter.substr(2));
    if (!weight) return std::nullopt;
    range.weight = *weight;
    break;  // what follows is no parameter of the type
  }
  return range;
}

// How well one type is accepted, by the ranges that were seen.
class TypeWeight {
 public:
  TypeWeight(std::string_view type, std::string_view family) : type_(type), family_(family) {}

  void See(const MediaRange& range) {
    const int rank = RankOf(range);
    if (rank == 0 || rank < rank_ || (rank == rank_ && range.weight <= weight_)) return;
    rank_ = rank;
    weight_ = range.weight;
  }
  int Weight() const { return weight_; }

 private:
  // How specific a range is that the type is in, 0 where it is not in it. One with parameters that an answer has not
  // (a version, say) is taken where nothing else names the type.
  int RankOf(const MediaRange& range) const {
    if (EqualNoCase(range.type, type_)) return range.hasParameters ? 3 : 4;
    if (EqualNoCase(range.type, family_)) return 2;
    return range.type == "*/*" ? 1 : 0;
  }

  std::string_view type_, family_;
  int rank_ = 0;
  int weight_ = 0;
};

}  // namespace

bool PrefersJson(std::string_view accept) {
  TypeWeight json("application/json", "application/*");
  TypeWeight html("text/html", "text/*");
  while (!accept.empty()) {
    const auto range = RangeIn(TakeUnquoted(accept, ','));
    if (!range) continue;
    json.See(*range);
    html.See(*range);
  }
  return json.Weight() > html.Weight();
}

}  // namespace TesselServer::Modern
