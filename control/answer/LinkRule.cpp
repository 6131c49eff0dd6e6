#include "control/answer/LinkRule.h"

namespace TesselServer {

Task<bool> LinkIsServed(const LinkRule& rule, std::string name, FileIdentity target) {
  const std::string path = rule.folder + "/" + name;
  auto entry = rule.root->FindAtOnce(path);
  if (!entry) {
    auto search = rule.root->FindInTurns(path, rule.turns);
    entry = co_await search;
  }
  if (!entry->readable || entry->file.Identity() != target) co_return false;
  auto check = rule.secrets->ContainsInTurns(*entry, rule.turns);
  const bool isSecret = co_await check;
  co_return !isSecret;
}

}  // namespace TesselServer
