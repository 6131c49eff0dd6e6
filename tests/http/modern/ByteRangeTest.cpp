#include <gtest/gtest.h>

#include "http/modern/ByteRange.h"

namespace TesselServer::Modern {
namespace {

constexpr auto kWhole = RangeOutcome::kWhole;
constexpr auto kPart = RangeOutcome::kPart;
constexpr auto kNone = RangeOutcome::kUnsatisfiable;

struct RangeCase {
  std::string_view value;
  std::int64_t size;
  RangeOutcome outcome;
  ByteRange range;
  const char* why;
};

void ExpectRange(const RangeCase& c) {
  const ChosenRange chosen = ChooseRange(c.value, c.size);
  EXPECT_EQ(chosen.outcome, c.outcome) << c.value << " of " << c.size << ": " << c.why;
  EXPECT_EQ(chosen.range, c.range) << c.value << " of " << c.size << ": " << c.why;
}

TEST(ByteRangeTest, OneRangeIsAPart) {
  const RangeCase cases[] = {
      {"bytes=0-0", 10, kPart, {0, 0}, "the first byte"},
      {"bytes=9-9", 10, kPart, {9, 9}, "the last byte"},
      {"bytes=2-5", 10, kPart, {2, 5}, "within"},
      {"bytes=0-", 10, kPart, {0, 9}, "all of it is a part, too: players ask so"},
      {"bytes=5-", 10, kPart, {5, 9}, "the rest: a download goes on"},
      {"bytes=9-", 10, kPart, {9, 9}, "the last byte as the rest"},
      {"bytes=-5", 10, kPart, {5, 9}, "the last five"},
      {"bytes=-10", 10, kPart, {0, 9}, "as many as there are"},
      {"bytes=-11", 10, kPart, {0, 9}, "more than there are"},
      {"bytes=5-10", 10, kPart, {5, 9}, "ends after the end"},
      {"bytes=5-999", 10, kPart, {5, 9}, "likewise"},
      {"bytes=007-008", 10, kPart, {7, 8}, "leading zeros say nothing"},
      {"BYTES=2-5", 10, kPart, {2, 5}, "names of units have no case (section 14.1)"},
      {"bytes=2-5", 5'368'709'120, kPart, {2, 5}, "a large file"},
      {"bytes=5368709000-", 5'368'709'120, kPart, {5'368'709'000, 5'368'709'119}, "beyond 32 bits"},
      {"bytes=0-0", 1, kPart, {0, 0}, "a file of one byte"},
  };
  for (const auto& c : cases) ExpectRange(c);
}

TEST(ByteRangeTest, WhatLiesBehindTheEndCannotBeSatisfied) {
  const RangeCase cases[] = {
      {"bytes=10-", 10, kNone, {}, "begins at the end"},
      {"bytes=10-20", 10, kNone, {}, "likewise"},
      {"bytes=99-100", 10, kNone, {}, "after it"},
      {"bytes=-0", 10, kNone, {}, "the last none"},
      {"bytes=-00", 10, kNone, {}, "likewise"},
      {"bytes=10-, 20-30,-0", 10, kNone, {}, "none of several"},
      {"bytes=0-", 0, kNone, {}, "an empty file has no first byte"},
      {"bytes=0-0", 0, kNone, {}, "likewise"},
      {"bytes=-0", 0, kNone, {}, "nothing of nothing"},
  };
  for (const auto& c : cases) ExpectRange(c);
}

TEST(ByteRangeTest, SeveralRangesThatTouchAreOne) {
  const RangeCase cases[] = {
      {"bytes=0-4,5-9", 20, kPart, {0, 9}, "they touch"},
      {"bytes=5-9,0-4", 20, kPart, {0, 9}, "the other way round"},
      {"bytes=0-6,3-9", 20, kPart, {0, 9}, "they overlap"},
      {"bytes=0-9,2-3", 20, kPart, {0, 9}, "one within the other"},
      {"bytes=2-3,0-9", 20, kPart, {0, 9}, "likewise"},
      {"bytes=2-3,2-3,2-3", 20, kPart, {2, 3}, "the same again"},
      {"bytes=10-14,0-4,5-9", 20, kPart, {0, 14}, "three without order"},
      {"bytes=15-,-5", 20, kPart, {15, 19}, "two ways to say the same"},
      {"bytes=10-14,-5", 20, kPart, {10, 19}, "a suffix that touches"},
      {"bytes=0-4,99-", 20, kPart, {0, 4}, "one that cannot be satisfied does not count"},
      {"bytes=99-,0-4,-0", 20, kPart, {0, 4}, "likewise"},
      {"bytes=0-,0-,0-,0-,0-,0-", 20, kPart, {0, 19}, "many of all of it"},
      {"bytes=0-4,6-9", 20, kWhole, {}, "a byte between them"},
      {"bytes=0-0,-1", 20, kWhole, {}, "the first and the last"},
      {"bytes=0-0,-1", 2, kPart, {0, 1}, "the first and the last of two"},
      {"bytes=0-1,4-5,2-3,7-7", 20, kWhole, {}, "a gap at the end"},
  };
  for (const auto& c : cases) ExpectRange(c);
}

TEST(ByteRangeTest, ListsMayHaveBlanksAndEmptyElements) {
  const RangeCase cases[] = {
      {"bytes=0-4, 5-9", 20, kPart, {0, 9}, "a blank after the comma"},
      {"bytes=0-4 ,5-9", 20, kPart, {0, 9}, "before it"},
      {"bytes=0-4 \t,\t 5-9", 20, kPart, {0, 9}, "tabs"},
      {"bytes=0-4,,5-9", 20, kPart, {0, 9}, "an empty element (section 5.6.1.2)"},
      {"bytes=,0-4", 20, kPart, {0, 4}, "in front"},
      {"bytes=, ,0-4", 20, kPart, {0, 4}, "two"},
      {"bytes=0-4,", 20, kPart, {0, 4}, "at the end"},
      {"bytes=0-4, ,", 20, kPart, {0, 4}, "two"},
      {"bytes=,", 20, kWhole, {}, "nothing else: a list has an element"},
      {"bytes= 0-4", 20, kWhole, {}, "a blank in front of the first belongs to no list"},
  };
  for (const auto& c : cases) ExpectRange(c);
}

TEST(ByteRangeTest, WhatCannotBeReadIsTheWholeFile) {
  for (const std::string_view value : {"",
                                       "bytes",
                                       "bytes=",
                                       "=0-4",
                                       "0-4",
                                       "bytes 0-4",
                                       "bytes:0-4",
                                       "bytes =0-4",
                                       " bytes=0-4",
                                       "lines=0-4",
                                       "bytesx=0-4",
                                       "byte=0-4",
                                       "none",
                                       "bytes=-",
                                       "bytes=--",
                                       "bytes=--5",
                                       "bytes=4-2",
                                       "bytes=0-4,4-2",
                                       "bytes=4-2,0-4",
                                       "bytes=0",
                                       "bytes=0,5",
                                       "bytes=0-4;5-9",
                                       "bytes=0-4 5-9",
                                       "bytes=0 -4",
                                       "bytes=0- 4",
                                       "bytes=- 5",
                                       "bytes=+0-4",
                                       "bytes=0-+4",
                                       "bytes=-+5",
                                       "bytes=0x0-4",
                                       "bytes=0-4x",
                                       "bytes=0-4-8",
                                       "bytes=a-b",
                                       "bytes=*",
                                       "bytes=*/20",
                                       "bytes=0-4/20",
                                       "bytes=0.0-4",
                                       "bytes=1e1-",
                                       "bytes==0-4",
                                       "bytes=0-4=",
                                       "bytes=\"0-4\"",
                                       "bytes=0-4,bytes=5-9",
                                       "bytes=0\xE2\x80\x93"
                                       "4",
                                       "bytes=\xD9\xA0-",
                                       "bytes=0-4,x",
                                       "bytes=0-4\r\n"}) {
    ExpectRange({value, 20, kWhole, {}, "no range"});
  }
  ExpectRange({std::string_view("bytes=0-4\0", 10), 20, kWhole, {}, "a NUL at the end"});
  ExpectRange({std::string_view("bytes\0=0-4", 10), 20, kWhole, {}, "a NUL in the unit"});
}

TEST(ByteRangeTest, HugeNumbersAreJustLarge) {
  const RangeCase cases[] = {
      {"bytes=0-9223372036854775807", 20, kPart, {0, 19}, "the largest of 64 bits"},
      {"bytes=0-9223372036854775808", 20, kPart, {0, 19}, "one more"},
      {"bytes=0-18446744073709551616", 20, kPart, {0, 19}, "two to the 64th is not zero"},
      {"bytes=5-18446744073709551617", 20, kPart, {5, 19}, "nor is one more a one"},
      {"bytes=18446744073709551616-", 20, kNone, {}, "as the first"},
      {"bytes=18446744073709551621-18446744073709551626", 20, kNone, {}, "not 5 to 10"},
      {"bytes=-18446744073709551621", 20, kPart, {0, 19}, "as a suffix"},
      {"bytes=-99999999999999999999999999999999999999999999999999", 20, kPart, {0, 19}, "of fifty digits"},
      {"bytes=-99999999999999999999999999999999999999999999999999", 0, kWhole, {}, "of an empty file"},
      {"bytes=9223372036854775806-",
       9'223'372'036'854'775'807,
       kPart,
       {9'223'372'036'854'775'806, 9'223'372'036'854'775'806},
       "the last byte of the largest file there can be"},
      {"bytes=0-, 9223372036854775806-",
       9'223'372'036'854'775'807,
       kPart,
       {0, 9'223'372'036'854'775'806},
       "likewise, beside all of it"},
  };
  for (const auto& c : cases) ExpectRange(c);
}

TEST(ByteRangeTest, ASuffixOfAnEmptyFileIsTheEmptyFile) {
  // Section 14.1.2 lets it be satisfied, but no Content-Range could name it.
  ExpectRange({"bytes=-5", 0, kWhole, {}, "of nothing"});
  ExpectRange({"bytes=0-, -5", 0, kWhole, {}, "beside one that cannot be satisfied"});
}

TEST(ByteRangeTest, TooManyRangesAreTheWholeFile) {
  std::string value = "bytes=0-0";
  for (std::size_t i = 1; i < kMaxByteRanges; ++i) value += ",0-0";
  ExpectRange({value, 10, kPart, {0, 0}, "as many as may be"});
  ExpectRange({value + ",", 10, kPart, {0, 0}, "an empty element is none"});
  ExpectRange({value + ",0-0", 10, kWhole, {}, "one more"});
  ExpectRange({value + ",99-", 10, kWhole, {}, "one more that could not be satisfied"});
  std::string many = "bytes=";
  for (int i = 0; i < 100'000; ++i) many += "0-,";
  ExpectRange({many, 10, kWhole, {}, "very many"});
  ExpectRange({"bytes=" + std::string(100'000, ',') + "0-0", 10, kPart, {0, 0}, "very many empty ones"});
  ExpectRange({"bytes=" + std::string(100'000, '9') + "-", 10, kNone, {}, "a very long number"});
}

TEST(ByteRangeTest, EveryShortTextGivesARangeWithinTheFile) {
  constexpr std::string_view kAlphabet = "059-, ";
  std::size_t parts = 0;
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{1}, std::int64_t{6}, std::int64_t{100}}) {
    for (std::size_t number = 0; number < 6 * 6 * 6 * 6 * 6 * 6; ++number) {
      std::string value = "bytes=";
      for (std::size_t rest = number, i = 0; i < 6; ++i, rest /= 6) value += kAlphabet[rest % 6];
      const ChosenRange chosen = ChooseRange(value, size);
      if (chosen.outcome != kPart) continue;
      ++parts;
      ASSERT_TRUE(0 <= chosen.range.first && chosen.range.first <= chosen.range.last && chosen.range.last < size)
          << value << " of " << size;
    }
  }
  EXPECT_GT(parts, 1000u) << "many of them are ranges";
}

TEST(ByteRangeTest, IsNamedInTheAnswer) {
  EXPECT_EQ(ContentRangeText({0, 0}, 1), "bytes 0-0/1");
  EXPECT_EQ(ContentRangeText({5, 9}, 10), "bytes 5-9/10");
  EXPECT_EQ(ContentRangeText({5'368'709'000, 5'368'709'119}, 5'368'709'120), "bytes 5368709000-5368709119/5368709120");
  EXPECT_EQ(UnsatisfiedRangeText(10), "bytes */10");
  EXPECT_EQ(UnsatisfiedRangeText(0), "bytes */0");
  EXPECT_EQ((ByteRange{5, 9}.Length()), 5);
}

}  // namespace
}  // namespace TesselServer::Modern
