// A cache of bounded size: values by name, of which the least recently used go first, and which names were asked for
// within the last minute. A name gets a value at its second request within a minute, so that what is asked for once
// costs no more than without a cache, and a walk through a large site evicts nothing.
//
// Thread:    any one at a time.
// Ownership: keeps its own copy of every key. A pointer from Find holds until the next Put or Drop.
// Errors:    none but those of memory running out.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TesselServer {

//   LruCache<int> cache(1000);
//   cache.IsAskedAgain("a", 0);    // false
//   cache.IsAskedAgain("a", 500);  // true: half a second later
//   cache.Put("a", 1, 600);
//   cache.Put("b", 2, 600);  // "a" goes
//   cache.Find("a");         // nullptr
template <typename Value>
class LruCache {
 public:
  static constexpr std::uint32_t kAskedAgainMilliseconds = 60'000;

  // How many requests are noted, eight bytes each: as many as there are small files that fit into a cache of some MiB.
  // Names share them by their hash: of 10,000 names one in ten finds its note overwritten, and is not remembered.
  static constexpr std::size_t kNotes = 16'384;

  explicit LruCache(std::size_t maxBytes) : maxBytes_(maxBytes) {}
  LruCache(const LruCache&) = delete;
  LruCache& operator=(const LruCache&) = delete;

  // The value, which counts as just used; null when there is none.
  Value* Find(std::string_view key) {
    const auto found = places_.find(key);
    if (found == places_.end()) return nullptr;
    nodes_.splice(nodes_.begin(), nodes_, found->second);
    return &found->second->value;
  }

  // Notes that `key` is asked for at the moment `now` of a clock of milliseconds; whether it was before, less than
  // kAskedAgainMilliseconds ago.
  bool IsAskedAgain(std::string_view key, std::int64_t now) {
    if (sets_.empty()) sets_.resize(kNotes / kNotesPerSet);
    const std::size_t hash = std::hash<std::string_view>()(key);
    const auto mark = static_cast<std::uint32_t>(hash >> 32);
    const auto moment = static_cast<std::uint32_t>(now);
    auto& set = sets_[hash % sets_.size()];
    const auto age = [moment](const Note& note) { return moment - note.at; };
    auto note = std::find_if(set.begin(), set.end(), [mark](const Note& each) { return each.mark == mark; });
    const bool isAgain = note != set.end() && age(*note) < kAskedAgainMilliseconds;
    if (note == set.end()) {
      note = std::max_element(set.begin(), set.end(), [&](const Note& a, const Note& b) { return age(a) < age(b); });
    }
    *note = {mark, moment};
    return isAgain;
  }

  // Keeps `value`, which takes `bytes`, in place of what the key had. One that alone is too large is not kept.
  void Put(std::string_view key, Value value, std::size_t bytes) {
    Drop(key);
    if (bytes > maxBytes_) return;
    while (bytes_ + bytes > maxBytes_) Remove(std::prev(nodes_.end()));
    nodes_.push_front({std::string(key), std::move(value), bytes});
    try {
      places_.emplace(nodes_.front().key, nodes_.begin());
    } catch (...) {
      nodes_.pop_front();
      throw;
    }
    bytes_ += bytes;
  }

  void Drop(std::string_view key) {
    const auto found = places_.find(key);
    if (found != places_.end()) Remove(found->second);
  }

  // What all the values take, and how many there are.
  std::size_t Bytes() const { return bytes_; }
  std::size_t Count() const { return nodes_.size(); }

 private:
  struct Node {
    std::string key;
    Value value;
    std::size_t bytes;
  };
  using Place = typename std::list<Node>::iterator;

  // A request: the upper half of its name's hash, and the moment modulo 2^32.
  struct Note {
    std::uint32_t mark = 0;
    std::uint32_t at = 0;
  };
  static constexpr std::size_t kNotesPerSet = 4;

  void Remove(Place place) {
    bytes_ -= place->bytes;
    places_.erase(place->key);
    nodes_.erase(place);
  }

  const std::size_t maxBytes_;
  std::size_t bytes_ = 0;
  std::list<Node> nodes_;  // the latest in front
  std::unordered_map<std::string_view, Place> places_;
  std::vector<std::array<Note, kNotesPerSet>> sets_;  // made at the first request
};

}  // namespace TesselServer
