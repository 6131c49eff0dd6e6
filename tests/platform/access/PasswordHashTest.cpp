#include <gtest/gtest.h>

#include "platform/access/PasswordHash.h"

namespace TesselServer {
namespace {

const struct {
  const char* hash;
  const char* kind;
} kHashesOfSecret[] = {
    {"$5$tessel$zrTUzFijWUM12K.ew6Qhu79Jh9Sxu039mDzRKcUWk12", "SHA-256"},
    {"$6$tessel$uC6O51/NsiToWouApAm/LZja43Oxghs8sVRFaUDzZ3yJgqxpzbKyDK4oJ6iz1.xB.la4oVl.46XcxB3v.9scp0", "SHA-512"},
    {"$6$rounds=1000$tessel$9iMV/UzsqSWHjsB1U5S9HSOuJlUldT8LuPMAfe9g9ur3Sm36MpaFTq1g5r5jbHECJLOQi8iEfO0IaR6/qF9M60",
     "SHA-512 with its number of rounds"},
    {"$2y$05$abcdefghijklmnopqrstuuOQiyCxlgf/oeuTqixKmWdcYUh4Hjl0a", "bcrypt"},
    {"$2b$05$abcdefghijklmnopqrstuuOQiyCxlgf/oeuTqixKmWdcYUh4Hjl0a", "bcrypt, as other systems name it"},
    {"$y$j75$V7qMYJaNbVKOeh4PhtqPk/$aiP0zlKso6cH6kly/ZO/0yHQl1H1qu3MiYgcCY8Upk0", "yescrypt"},
    {"$gy$j75$V7qMYJaNbVKOeh4PhtqPk/$vhtznLUVj/2JSe58RqBnJkGfj44.XgTA4GrqjYfK/44", "yescrypt in GOST"},
};

TEST(PasswordHashTest, ThisBuildCanCheckThem) { EXPECT_TRUE(CanCheckPasswordHashes()) << "libcrypt-dev is missing"; }

TEST(PasswordHashTest, OnlyThePasswordItselfIsRight) {
  for (const auto& c : kHashesOfSecret) {
    EXPECT_TRUE(IsPasswordHash(c.hash)) << c.kind;
    EXPECT_EQ(CheckPasswordHash("secret", c.hash), HashCheck::kRight) << c.kind;
    for (const std::string& wrong : {std::string(), std::string("secre"), std::string("secret "), std::string("Secret"),
                                     std::string("secret\0", 7), std::string("secret\0more", 11), std::string(c.hash),
                                     std::string(512, 's'), std::string(100'000, 's')}) {
      EXPECT_EQ(CheckPasswordHash(wrong, c.hash), HashCheck::kWrong) << c.kind << ": " << wrong.substr(0, 20);
    }
  }
}

TEST(PasswordHashTest, ADamagedHashIsNeverRight) {
  for (const auto& c : kHashesOfSecret) {
    std::string hash = c.hash;
    EXPECT_NE(CheckPasswordHash("secret", hash.substr(0, hash.size() - 1)), HashCheck::kRight) << c.kind;
    EXPECT_NE(CheckPasswordHash("secret", hash + "x"), HashCheck::kRight) << c.kind;
    EXPECT_NE(CheckPasswordHash("secret", hash + " "), HashCheck::kRight) << c.kind;
    hash[hash.size() - 3] = hash[hash.size() - 3] == 'a' ? 'b' : 'a';
    EXPECT_EQ(CheckPasswordHash("secret", hash), HashCheck::kWrong) << c.kind;
  }
}

TEST(PasswordHashTest, OfBcryptNoByteGoesUnchecked) {
  constexpr const char* kOf72 = "$2y$05$abcdefghijklmnopqrstuujf8SX2ahXLwp9w/B.Y5XdysS6yR576q";
  EXPECT_EQ(CheckPasswordHash(std::string(72, 'x'), kOf72), HashCheck::kRight);
  EXPECT_EQ(CheckPasswordHash(std::string(73, 'x'), kOf72), HashCheck::kWrong);
  EXPECT_EQ(CheckPasswordHash(std::string(71, 'x'), kOf72), HashCheck::kWrong);
}

TEST(PasswordHashTest, ALongPasswordIsRightAsAWhole) {
  constexpr const char* kOf511 = "$5$tessel$d2gsaLSBiz6gd0sNCnKjtIdSWZDEp0L2/4voThu97c5";
  EXPECT_EQ(CheckPasswordHash(std::string(511, 'x'), kOf511), HashCheck::kRight);
  EXPECT_EQ(CheckPasswordHash(std::string(510, 'x'), kOf511), HashCheck::kWrong);
  EXPECT_EQ(CheckPasswordHash(std::string(512, 'x'), kOf511), HashCheck::kWrong);
}

TEST(PasswordHashTest, WhatTheSystemDoesNotKnowIsImpossible) {
  for (const char* hash : {"$apr1$salt$abcdefghijklmnopqrstuv", "$argon2id$v=19$m=1$abc", "$2y$", "$2y$xx$abc", "$y$x",
                           "", "secret", "abJnggxhB/yWI"}) {
    EXPECT_EQ(CheckPasswordHash("secret", hash), HashCheck::kImpossible) << hash;
  }
  EXPECT_EQ(CheckPasswordHash("secret", "$6$" + std::string(100'000, 'x')), HashCheck::kImpossible);
}

TEST(PasswordHashTest, APasswordMayBeginWithADollar) {
  for (const char* text : {"", "$", "$$", "$5", "$5$", "$ecret", "$100", "$money$more", "6$a$b", " $6$a$b"}) {
    EXPECT_FALSE(IsPasswordHash(text)) << text;
  }
  for (const char* text : {"$1$a", "$apr1$a$b", "$2a$10$x", "$7$x", "$argon2i$x"}) {
    EXPECT_TRUE(IsPasswordHash(text)) << text;
  }
}

}  // namespace
}  // namespace TesselServer
