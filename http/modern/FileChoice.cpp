#include "http/modern/FileChoice.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace TesselServer::Modern {
namespace {

using Kind = FileChoice::Kind;

std::optional<std::string_view> FieldIfThere(const Request& request, std::string_view name, std::string& joined) {
  if (!request.Has(name)) return std::nullopt;
  return request.Field(name, joined);
}

Precondition Evaluate(const Request& request, const Validators& file, std::int64_t now) {
  std::array<std::string, 4> joined;
  const Conditions conditions{
      FieldIfThere(request, "If-Match", joined[0]), FieldIfThere(request, "If-Unmodified-Since", joined[1]),
      FieldIfThere(request, "If-None-Match", joined[2]), FieldIfThere(request, "If-Modified-Since", joined[3])};
  return EvaluateConditions(conditions, file, true, now);
}

bool AsksForRange(const Request& request, const Validators& file, std::int64_t now) {
  if (request.Method() != "GET" || !request.Has("Range")) return false;
  std::string joined;
  const auto ifRange = FieldIfThere(request, "If-Range", joined);
  return !ifRange || IfRangeHolds(*ifRange, file, now);
}

}  // namespace

FileChoice ChooseOfFile(const Request& request, const Validators& file, std::int64_t size, std::int64_t now) {
  switch (Evaluate(request, file, now)) {
    case Precondition::kNotModified:
      return {Kind::kNotModified};
    case Precondition::kFailed:
      return {Kind::kFailed};
    case Precondition::kGoOn:
      break;
  }
  if (!AsksForRange(request, file, now)) return {};
  std::string joined;
  const ChosenRange chosen = ChooseRange(request.Field("Range", joined), size);
  switch (chosen.outcome) {
    case RangeOutcome::kUnsatisfiable:
      return {Kind::kUnsatisfiable};
    case RangeOutcome::kPart:
      return {Kind::kPart, chosen.range};
    case RangeOutcome::kWhole:
      break;
  }
  return {};
}

}  // namespace TesselServer::Modern
