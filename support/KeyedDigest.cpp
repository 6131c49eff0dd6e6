#include "support/KeyedDigest.h"

#include <bit>
#include <random>

namespace TesselServer {

namespace {

class SipState {
 public:
  SipState(std::uint64_t key0, std::uint64_t key1)
      : v0_(key0 ^ 0x736f6d6570736575),
        v1_(key1 ^ 0x646f72616e646f6d),
        v2_(key0 ^ 0x6c7967656e657261),
        v3_(key1 ^ 0x7465646279746573) {}

  void Take(std::uint64_t word) {
    v3_ ^= word;
    Round();
    Round();
    v0_ ^= word;
  }

  std::uint64_t End() {
    v2_ ^= 0xff;
    for (int i = 0; i < 4; ++i) Round();
    return v0_ ^ v1_ ^ v2_ ^ v3_;
  }

 private:
  void Round() {
    v0_ += v1_;
    v1_ = std::rotl(v1_, 13) ^ v0_;
    v0_ = std::rotl(v0_, 32);
    v2_ += v3_;
    v3_ = std::rotl(v3_, 16) ^ v2_;
    v0_ += v3_;
    v3_ = std::rotl(v3_, 21) ^ v0_;
    v2_ += v1_;
    v1_ = std::rotl(v1_, 17) ^ v2_;
    v2_ = std::rotl(v2_, 32);
  }

  std::uint64_t v0_, v1_, v2_, v3_;
};

// Up to eight bytes, least significant first.
std::uint64_t WordOf(std::string_view bytes) {
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    word |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
  }
  return word;
}

}  // namespace

std::uint64_t SipHash(std::string_view text, std::uint64_t key0, std::uint64_t key1) {
  SipState state(key0, key1);
  const std::uint64_t length = static_cast<std::uint64_t>(text.size()) << 56;
  for (; text.size() >= 8; text.remove_prefix(8)) state.Take(WordOf(text.substr(0, 8)));
  state.Take(WordOf(text) | length);
  return state.End();
}

KeyedDigest::Key KeyedDigest::RandomKey() {
  std::random_device random;
  Key key;
  for (std::uint64_t& part : key) part = static_cast<std::uint64_t>(random()) << 32 | random();
  return key;
}

}  // namespace TesselServer
