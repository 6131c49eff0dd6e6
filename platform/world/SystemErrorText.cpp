#include "platform/world/SystemErrorText.h"

#include <system_error>

namespace TesselServer {

std::string SystemErrorText(std::int32_t code) {
  std::string text = std::generic_category().message(code);
  // A number that the system does not know has a text that ends in the number, in every language.
  if (text.empty() || text.ends_with(std::to_string(code))) return "Unknown error.";
  if (text.size() > kMaxSystemErrorBytes) text.resize(kMaxSystemErrorBytes);
  return text;
}

}  // namespace TesselServer
