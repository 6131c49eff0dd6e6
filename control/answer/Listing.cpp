#include "control/answer/Listing.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "control/answer/LinkRule.h"
#include "control/answer/SlotTarget.h"
#include "files/cls_DirListing.h"

namespace TesselServer {

namespace {

// `links` outlives the rules.
Task<ListingRules> RulesFor(std::string authFileName, std::string passwordFile, const LinkRule& links) {
  ListingRules rules;
  rules.authFileName = std::move(authFileName);
  auto identifying = IdentifyInTurns(std::move(passwordFile), links.turns);
  const PathIdentity passwords = co_await identifying;
  if (passwords.state == PathIdentity::State::kFound) rules.neverListed = passwords.identity;
  rules.linkIsServed = [&links](std::string name, FileIdentity target) {
    return LinkIsServed(links, std::move(name), target);
  };
  co_return rules;
}

}  // namespace

Task<std::optional<std::string>> ListingOf(ControlState& state, Slot& slot) {
  Turns* const turns = &state.turns;
  const LinkRule links{slot.TargetRoot, state.Secrets(), slot.Target.name, turns};
  std::string localDir = MappedFileOf(state, slot);
  std::string urlPath = slot.Fields().DocumentURI;
  const std::string serverName = state.settings.ServerName;
  FoundEntry& target = slot.Target;  // its name is still asked for
  const FoundEntry folder{target.kind, target.name, target.readable, std::move(target.file)};
  auto ruling = RulesFor(state.authFileName, state.settings.AuthenticationSourceFile, links);
  ListingRules rules = co_await ruling;
  auto naming = links.root->NamesInTurns(folder, turns);
  auto names = co_await naming;
  cls_DirListing listing(state.world, folder.file, std::move(rules), std::move(names));
  listing.MayHold([&state, &slot](std::size_t bytes) {
    return slot.PageMemory.Resize(state.pageMemory, static_cast<std::int64_t>(bytes));
  });
  auto page = listing.ListInTurns(localDir, urlPath, serverName, turns);
  co_return co_await page;
}

}  // namespace TesselServer
