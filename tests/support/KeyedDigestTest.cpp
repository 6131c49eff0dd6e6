#include <gtest/gtest.h>

#include <string>

#include "support/ConstantTime.h"
#include "support/KeyedDigest.h"

namespace TesselServer {
namespace {

std::string BytesUpTo(int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST(KeyedDigestTest, IsTheOneThatItsAuthorsPublished) {
  constexpr std::uint64_t kKey0 = 0x0706050403020100, kKey1 = 0x0f0e0d0c0b0a0908;
  EXPECT_EQ(SipHash("", kKey0, kKey1), 0x726fdb47dd0e0e31u);
  EXPECT_EQ(SipHash(BytesUpTo(1), kKey0, kKey1), 0x74f839c593dc67fdu);
  EXPECT_EQ(SipHash(BytesUpTo(8), kKey0, kKey1), 0x93f5f5799a932462u);
  EXPECT_EQ(SipHash(BytesUpTo(15), kKey0, kKey1), 0xa129ca6149be45e5u);
}

TEST(KeyedDigestTest, AnotherKeyGivesAnotherDigest) {
  const KeyedDigest one(KeyedDigest::RandomKey()), other(KeyedDigest::RandomKey());
  EXPECT_EQ(one.Of("ann:secret"), one.Of("ann:secret"));
  EXPECT_NE(one.Of("ann:secret"), one.Of("ann:secreT"));
  EXPECT_NE(one.Of("ann:secret"), other.Of("ann:secret"));
  EXPECT_NE(one.Of("x")[0], one.Of("x")[1]);
}

TEST(ConstantTimeTest, OnlyTheWholeTextIsEqual) {
  const struct {
    const char *text, *secret;
    bool isEqual;
  } cases[] = {
      {"", "", true},
      {"a", "", false},
      {"", "a", false},
      {"secret", "secret", true},
      {"secre", "secret", false},
      {"secrets", "secret", false},
      {"Secret", "secret", false},
      {"aa", "a", false},
      {"a", "aa", false},
      {"secretsecret", "secret", false},
  };
  for (const auto& c : cases) EXPECT_EQ(EqualInConstantTime(c.text, c.secret), c.isEqual) << c.text << "|" << c.secret;
}

}  // namespace
}  // namespace TesselServer
