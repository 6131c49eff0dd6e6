// A memory of bounded size: values by name, of which those that were not asked for longest go first.
//
// Thread:    any one at a time.
// Ownership: keeps its own copy of every key. A pointer from Find holds until the next Put or Drop.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace TesselServer {

//   RecentlyUsed<int> memory(1000);
//   memory.Put("a", 1, 600);
//   memory.Put("b", 2, 600);  // "a" goes
//   memory.Find("a");         // nullptr
template <typename Value>
class RecentlyUsed {
 public:
  explicit RecentlyUsed(std::size_t maxBytes) : maxBytes_(maxBytes) {}
  RecentlyUsed(const RecentlyUsed&) = delete;
  RecentlyUsed& operator=(const RecentlyUsed&) = delete;

  // The value, which counts as just used; null when there is none.
  Value* Find(std::string_view key) {
    const auto found = places_.find(key);
    if (found == places_.end()) return nullptr;
    nodes_.splice(nodes_.begin(), nodes_, found->second);
    return &found->second->value;
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

  void Remove(Place place) {
    bytes_ -= place->bytes;
    places_.erase(place->key);
    nodes_.erase(place);
  }

  const std::size_t maxBytes_;
  std::size_t bytes_ = 0;
  std::list<Node> nodes_;  // the latest in front
  std::unordered_map<std::string_view, Place> places_;
};

}  // namespace TesselServer
