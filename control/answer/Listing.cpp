#include "control/answer/Listing.h"

#include <utility>

#include "control/answer/SlotTarget.h"
#include "files/cls_DirListing.h"

namespace TesselServer {

namespace {

ListingRules RulesFor(ControlState& state, const std::string& folder) {
  ListingRules rules;
  rules.authFileName = state.authFileName;
  const PathIdentity passwords = IdentifyPath(state.settings.AuthenticationSourceFile);
  if (passwords.state == PathIdentity::State::kFound) rules.neverListed = passwords.identity;
  rules.linkIsServed = [root = state.Root(), secrets = state.Secrets(), folder](const std::string& name,
                                                                                const FileIdentity& target) {
    const FoundEntry entry = root->Find(folder + "/" + name);
    return entry.readable && entry.file.Identity() == target && !secrets->Contains(entry);
  };
  return rules;
}

}  // namespace

std::string ListingOf(ControlState& state, Slot& slot) {
  cls_DirListing listing(state.world, slot.Target.file, RulesFor(state, slot.Target.name),
                         state.Root()->NamesIn(slot.Target));
  std::string localDir = MappedFileOf(state, slot);
  std::string urlPath = slot.Fields().DocumentURI;
  return listing.GetDirListing(localDir, urlPath, state.settings.ServerName);
}

}  // namespace TesselServer
