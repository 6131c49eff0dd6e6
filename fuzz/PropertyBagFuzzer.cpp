// Property bag files: any file can be read, what it says can be asked for as any type, and what is saved comes back.
#include <string>

#include "fuzz/Require.h"
#include "platform/settings/PropertyBag.h"
#include "platform/world/Error.h"
#include "tests/kit/TemporaryTree.h"

namespace TesselServer {
namespace {

void AskFor(const PropertyBag& bag, const std::string& name, const PropertyValue& byDefault) {
  try {
    const auto value = bag.ReadProperty(name, byDefault);
    Require(value.index() == byDefault.index(), "a value has the type of its default");
  } catch (const Error& error) {
    Require(error.Number() == ErrorNumber::kTypeMismatch || error.Number() == ErrorNumber::kOverflow,
            "a value that does not fit is a type mismatch or an overflow");
  }
}

// False when the bag holds a name that no file can hold.
bool Save(const FilePropertyBag& bag) {
  try {
    bag.Save();
    return true;
  } catch (const Error& error) {
    Require(error.Number() == ErrorNumber::kFileAccess, "a bag that cannot be saved says so");
    return false;
  }
}

}  // namespace
}  // namespace TesselServer

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace TesselServer;
  static const Kit::TemporaryTree tree;
  const auto path = tree.Write("settings.conf", AsText(data, size));
  FilePropertyBag bag(path);
  bag.Load();
  for (const auto& [name, text] : bag.Items()) {
    AskFor(bag, name, PropertyValue(false));
    AskFor(bag, name, PropertyValue(std::int32_t{0}));
    AskFor(bag, name, PropertyValue(std::string()));
  }
  if (!Save(bag)) return 0;
  FilePropertyBag again(path);
  again.Load();
  Require(again.Items() == bag.Items(), "what was saved comes back");
  return 0;
}
