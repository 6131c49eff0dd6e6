// Access control lists: whatever is taken for a list is one that is written back alike, that the kernel would take, and
// that changes as told.
#include <algorithm>
#include <string>

#include "fuzz/Require.h"
#include "platform/access/AccessList.h"

namespace {

using namespace TesselServer;

void RequireOrder(const AccessList& list) {
  const auto& named = list.NamedEntries();
  const auto isNotBefore = [](const auto& a, const auto& b) {
    return a.trustee.kind == b.trustee.kind ? a.trustee.id >= b.trustee.id : a.trustee.kind > b.trustee.kind;
  };
  Require(std::adjacent_find(named.begin(), named.end(), isNotBefore) == named.end(), "names are in order, none twice");
  for (const auto& entry : named) {
    Require(entry.rights <= AccessList::kAllRights, "rights are three bits");
    Require(entry.trustee.id != Trustee::kNobodyAtAll, "each name has a number");
    Require(list.RightsOf(entry.trustee) == entry.rights, "each name is found");
  }
}

// Takes every name away again, with the one put in.
void RequireMinimal(AccessList list) {
  const Trustee somebody{Trustee::Kind::kGroup, 1};
  list.Put(somebody, AccessList::kRead);
  Require(list.RightsOf(somebody) == AccessList::kRead, "what is put in is there");
  Require(AccessList::FromBytes(list.Bytes()) == list || list.Size() > AccessList::kMaxEntries, "it still is a list");
  const auto named = list.NamedEntries();
  for (const auto& entry : named) Require(list.Remove(entry.trustee), "what is there can be taken away");
  Require(list == AccessList::FromMode(list.Mode()), "without names it is permission bits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto list = AccessList::FromBytes(AsText(data, size));
  if (!list) return 0;
  const std::string bytes = list->Bytes();
  Require(bytes.size() == size, "nothing is added and nothing left out");
  Require(AccessList::FromBytes(bytes) == list, "what is written is read back alike");
  Require(list->Mode() <= 0777, "permission bits are nine");
  Require(list->Size() <= AccessList::kMaxEntries, "a list is bounded");
  RequireOrder(*list);
  RequireMinimal(*list);
  return 0;
}
