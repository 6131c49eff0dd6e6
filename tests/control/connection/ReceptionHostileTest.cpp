// What nobody sends who means well: no input may raise an exception, cost unbounded memory or time, or be answered
// twice.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "control/connection/Reception.h"
#include "tests/kit/Receptions.h"

namespace TesselServer {
namespace {

using Kit::Outcome;
using namespace std::string_view_literals;

constexpr std::size_t kMegabyte = 1024 * 1024;
constexpr std::size_t kPlenty = 4 * Reception::kMaxHeldBytes;

// Far above what any of these inputs takes, far below what a quadratic reader would take, sanitizers included.
constexpr auto kAmpleTime = std::chrono::seconds(10);

std::string Repeated(std::string_view text, std::size_t size) {
  std::string result;
  while (result.size() < size) result += text;
  result.resize(size);
  return result;
}

// Bytes held in the fields, which is all that a taken request may keep.
std::size_t Memory(const RequestFields& fields) {
  std::size_t bytes = 0;
  for (const auto* text :
       {&fields.RequestLine, &fields.DocumentURI, &fields.RequestPath, &fields.RequestQuery, &fields.RequestMethod,
        &fields.RequestHeader, &fields.RequestAccept, &fields.RequestReferer, &fields.RequestUserAgent,
        &fields.RequestContentType, &fields.AuthUser, &fields.AuthPassword, &fields.RequestBody}) {
    bytes += text->capacity();
  }
  return bytes;
}

TEST(ReceptionHostileTest, AnyByteMayComeFirst) {
  for (int first = 0; first < 256; ++first) {
    for (const std::string rest : {"", " / HTTP/1.0\r\n\r\n", "\r\n\r\n"}) {
      Reception reception;
      const auto outcome = reception.Data(static_cast<char>(first) + rest);
      if (rest.empty()) {
        EXPECT_EQ(outcome, first == 'G' || first == ' ' ? Outcome::kWaiting : Outcome::kHolding) << first;
      } else {
        EXPECT_EQ(outcome, Outcome::kBad) << first;
      }
    }
  }
}

TEST(ReceptionHostileTest, AnyByteMayStandAnywhere) {
  constexpr std::string_view kRaw = "POST /a?b HTTP/1.0\r\nContent-Length: 3\r\nAuthorization: Basic YTpi\r\n\r\nabc";
  for (std::size_t at = 0; at < kRaw.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string raw(kRaw);
      raw[at] = static_cast<char>(byte);
      Reception reception;
      auto outcome = reception.Data(raw);
      if (!Kit::IsFinal(outcome)) outcome = reception.EndOfInput();
      EXPECT_LE(reception.Fields().RequestBody.size(), 3U + 30U) << "at most 33 bytes can be announced here and come";
      EXPECT_FALSE(reception.Fields().BodyPending);
      EXPECT_EQ(reception.Data("x"), Outcome::kIgnored);
    }
  }
}

TEST(ReceptionHostileTest, RandomBytesInRandomPieces) {
  constexpr std::string_view kWords[] = {"GET ",
                                         "POST ",
                                         " ",
                                         "/",
                                         "?",
                                         "http://",
                                         "\r\n",
                                         "\r\n\r\n",
                                         "\r",
                                         "\n",
                                         "a",
                                         "accept:",
                                         "Basic",
                                         ":",
                                         ",",
                                         "Referer:",
                                         "HTTP/1",
                                         "\r\n\r",
                                         "12",
                                         "0",
                                         "99999999",
                                         "-",
                                         "\t",
                                         "User-Agent:",
                                         "GE",
                                         "content-length: ",
                                         "Content-Length: 0",
                                         "Content-Type:",
                                         "Authorization:"};
  std::mt19937 random(20261115);  // fixed, so that a failure can be repeated
  const auto below = [&random](std::size_t bound) { return random() % bound; };
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    for (std::size_t words = below(40); words > 0; --words) {
      if (below(4) == 0) {
        text += static_cast<char>(below(256));
      } else {
        text += kWords[below(std::size(kWords))];
      }
    }
    Reception reception(1000);
    std::vector<Outcome> outcomes;
    for (std::size_t at = 0; at < text.size();) {
      const auto size = 1 + below(below(2) == 0 ? 3 : 60);
      outcomes.push_back(reception.Data(std::string_view(text).substr(at, size)));
      at += size;
      if (below(20) == 0) {
        const auto outcome = reception.TimeUp();
        // kIgnored here only says that no time was running.
        if (outcome != Outcome::kIgnored) outcomes.push_back(outcome);
      }
    }
    const auto answer = Kit::Answer(outcomes);
    const auto& fields = reception.Fields();
    ASSERT_LE(fields.RequestBody.size(), text.size());
    ASSERT_LE(fields.RequestBody.size(), 1000U);
    ASSERT_EQ(fields.BodyWritePos, static_cast<std::int64_t>(fields.RequestBody.size()) + 1);
    if (answer == Outcome::kBad) {
      ASSERT_NE(fields.RequestPath, "");
    }
    const auto last = reception.EndOfInput();
    ASSERT_TRUE(last == Outcome::kIgnored || !Kit::IsFinal(answer));
    ASSERT_FALSE(fields.BodyPending);
  }
}

TEST(ReceptionHostileTest, EndlessUrlsAreRefused) {
  for (const std::string start : {"GET /", "   GET ", "", "GET http://"}) {
    const char fill = start.empty() ? ' ' : 'a';
    const std::string endless = start + std::string(kMegabyte, fill);
    for (const std::size_t size : {std::size_t{1}, std::size_t{1000}, std::size_t{65536}, kMegabyte * 2}) {
      Reception reception;
      std::size_t taken = 0;
      auto outcome = Outcome::kWaiting;
      for (std::size_t at = 0; at < endless.size(); at += size) {
        outcome = reception.Data(std::string_view(endless).substr(at, size));
        if (outcome != Outcome::kWaiting) break;
        taken = at + size;
      }
      EXPECT_EQ(outcome, Outcome::kBad) << start << " in pieces of " << size;
      EXPECT_LE(taken, Reception::kMaxHeldBytes) << start << " in pieces of " << size;
      EXPECT_NE(reception.Fields().RequestPath, "") << start;
      EXPECT_LE(Memory(reception.Fields()), 8 * Reception::kMaxHeldBytes);
    }
  }
}

TEST(ReceptionHostileTest, TheLongestUrlFits) {
  const std::string longest = "GET /" + std::string(Reception::kMaxHeldBytes - 6, 'a');
  for (const std::size_t size : {std::size_t{1}, std::size_t{1000}, kMegabyte}) {
    Reception fits;
    EXPECT_EQ(Kit::AnswerInPieces(fits, longest + " HTTP/1.0\r\n\r\n", size), Outcome::kComplete);
    EXPECT_EQ(fits.Fields().RequestPath, longest.substr(5));
    Reception tooLong;
    EXPECT_EQ(Kit::AnswerInPieces(tooLong, longest + "a HTTP/1.0\r\n\r\n", size), Outcome::kBad);
  }
}

TEST(ReceptionHostileTest, EndlessHeaderBlocksAreTakenAsTheyStand) {
  const std::string noLength = "POST /a HTTP/1.0\r\nX: " + std::string(kMegabyte, 'x') + "\r\n\r\n";
  const std::string withLength = "POST /a HTTP/1.0\r\nContent-Length: 12\r\nX: " + std::string(kMegabyte, 'x') +
                                 "\r\nUser-Agent: late\r\n\r\nabcdefghijkl";
  for (const std::size_t size : {std::size_t{1}, std::size_t{1000}, std::size_t{65536}, kMegabyte * 2}) {
    Reception refused;
    EXPECT_EQ(Kit::AnswerInPieces(refused, noLength, size), Outcome::kBad) << size;
    EXPECT_EQ(refused.Fields().RequestPath, "a");
    Reception taken;
    EXPECT_EQ(Kit::AnswerInPieces(taken, withLength, size), Outcome::kComplete) << size;
    EXPECT_EQ(taken.Fields().RequestBody, "abcdefghijkl") << size;
    EXPECT_EQ(taken.Fields().RequestHeader, "") << size;
    EXPECT_EQ(taken.Fields().RequestUserAgent, "") << size;
    EXPECT_EQ(taken.Fields().HeaderEndPos, 0) << size;
    EXPECT_LE(Memory(taken.Fields()), 8 * Reception::kMaxHeldBytes);
  }
}

TEST(ReceptionHostileTest, BytesAfterTheSearchedOnesAreInputToCome) {
  // The blank line ends the last byte that is searched; one byte more is input that was never announced.
  std::string fits = "GET / HTTP/1.0\r\nX: ";
  fits += std::string(Reception::kMaxHeldBytes - 4 - fits.size(), 'x') + "\r\n\r\n";
  Reception all;
  EXPECT_EQ(all.Data(fits), Outcome::kComplete);
  EXPECT_FALSE(all.InputMayCome());
  Reception more;
  EXPECT_EQ(more.Data(fits + "x"), Outcome::kComplete);
  EXPECT_TRUE(more.InputMayCome());
}

TEST(ReceptionHostileTest, LongInputsAreCheapAndBounded) {
  constexpr auto kNul = "\0"sv;
  const std::string inputs[] = {
      Repeated("accept:", kMegabyte),
      Repeated("accept:\r\n", kPlenty),
      Repeated("accept: a\r\n", kPlenty),
      Repeated("accept:", kPlenty / 2) + Repeated(kNul, kPlenty / 2),
      Repeated("accept:", kPlenty / 2) + Repeated("\r", kPlenty / 2),
      Repeated("accept:  \r\n", kPlenty),
      "accept:" + std::string(kPlenty, ' '),
      Repeated("AcCePt", kPlenty),
      Repeated(" ", kPlenty),
      Repeated(kNul, kPlenty),
      Repeated("\r", kPlenty),
      Repeated("\n", kPlenty),
      Repeated("\r\n", kPlenty),
      Repeated("\r\n\r", kPlenty),
      Repeated("C", kPlenty),
      Repeated("Content-Length:", kPlenty),
      Repeated("Content-Length: ", kPlenty),
      Repeated("Authorization:", kPlenty) + "Basic " + Repeated("QUFB", kPlenty),
      Repeated("http://", kPlenty),
      Repeated("?", kPlenty),
  };
  for (const std::string start : {"", "GET ", "GET / ", "GET / HTTP/1.0\r\n", "POST / HTTP/1.0\r\n"}) {
    for (const auto& input : inputs) {
      for (const std::size_t size : {std::size_t{1}, std::size_t{1460}, kPlenty * 3}) {
        const std::string text = start + input;
        const auto begin = std::chrono::steady_clock::now();
        Reception reception;
        const auto answer = Kit::AnswerInPieces(reception, text, size);
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_TRUE(Kit::IsFinal(answer)) << start << text.substr(0, 30) << " in pieces of " << size;
        EXPECT_LE(Memory(reception.Fields()), 16 * Reception::kMaxHeldBytes) << text.substr(0, 30);
        EXPECT_LT(took, kAmpleTime) << text.substr(0, 30) << " in pieces of " << size;
      }
    }
  }
}

TEST(ReceptionHostileTest, HugeLengthsCostNothing) {
  const std::string lengths[] = {"2147483647",           "2147483648",           "4294967295",
                                 "4294967296",           "9223372036854775807",  "9223372036854775808",
                                 "18446744073709551615", std::string(1000, '9'), std::string(1000, '0') + "9"};
  for (const auto& length : lengths) {
    Reception reception(std::int64_t{1} << 62);
    const auto outcome = reception.Data("POST / HTTP/1.0\r\nContent-Length:" + length + "\r\n\r\nbody");
    if (length == lengths[0]) {
      EXPECT_EQ(outcome, Outcome::kWaiting);
    } else if (length == lengths[8]) {
      EXPECT_EQ(outcome, Outcome::kGrace);
    } else {
      EXPECT_EQ(outcome, Outcome::kBad) << length;
    }
    EXPECT_LE(reception.Fields().RequestBody.capacity(), 64U) << length;
  }
}

TEST(ReceptionHostileTest, NulsStayInPathsAndVanishFromValues) {
  constexpr auto kRaw = "GET /a.htm\0.exe HTTP/1.0\r\nReferer: r\0s\r\nUser-Agent: u\r\nAccept: \0\r\n\r\n"sv;
  Reception reception;
  EXPECT_EQ(reception.Data(kRaw), Outcome::kComplete);
  EXPECT_EQ(reception.Fields().RequestPath, "a.htm\0.exe"sv) << "so that nothing can be found there";
  EXPECT_EQ(reception.Fields().RequestReferer, "");
  EXPECT_EQ(reception.Fields().RequestUserAgent, "u");
  EXPECT_EQ(reception.Fields().RequestAccept, "");
}

}  // namespace
}  // namespace TesselServer
