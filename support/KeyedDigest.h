// Digests of secrets, which can be compared and do not tell what they are of.
//
//   const KeyedDigest digest(KeyedDigest::RandomKey());
//   digest.Of("ann:secret") == digest.Of("ann:secret");   // true; without the key nothing can be said of the text
//
// Each half is SipHash-2-4 (Aumasson and Bernstein, 2012), with a key of its own.
//
// Thread:    any.
// Ownership: values. No byte of a text is kept.
// Errors:    RandomKey raises std::runtime_error where the system has no random numbers.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace TesselServer {

// SipHash-2-4 of `text`; the key's first eight bytes are `key0`, least significant first.
std::uint64_t SipHash(std::string_view text, std::uint64_t key0, std::uint64_t key1);

class KeyedDigest {
 public:
  using Key = std::array<std::uint64_t, 4>;
  using Value = std::array<std::uint64_t, 2>;

  // Another one at each call.
  static Key RandomKey();

  explicit KeyedDigest(const Key& key) : key_(key) {}

  Value Of(std::string_view text) const { return {SipHash(text, key_[0], key_[1]), SipHash(text, key_[2], key_[3])}; }

 private:
  Key key_;
};

}  // namespace TesselServer
