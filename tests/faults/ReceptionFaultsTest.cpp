// Requests for which there is no memory somewhere on their way.

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/kit/FailNthMemory.h"
#include "tests/kit/Receptions.h"

namespace TesselServer {
namespace {

using Kit::Outcome;

constexpr int kMostRequestsForMemory = 100;  // no request below needs nearly as many

// Longer than what a text holds without asking for memory.
const std::string kPath = "/" + std::string(100, 'p');
const std::string kField = "User-Agent: " + std::string(100, 'u') + "\r\n";

// Brings the pieces and what ends them, as a connection does: behind a failure too. False when the fault did not come.
bool FailsOnce(Reception& reception, const std::vector<std::string>& pieces, int nth) {
  const Kit::FailNthMemory fault(nth);
  int failures = 0;
  bool answeredBehindIt = false;
  const auto step = [&](const auto& call) {
    try {
      const Outcome outcome = call();
      if (failures != 0 && outcome != Outcome::kIgnored) answeredBehindIt = true;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
  };
  for (const std::string& piece : pieces) step([&] { return reception.Data(piece); });
  step([&] { return reception.TimeUp(); });
  step([&] { return reception.EndOfInput(); });
  EXPECT_FALSE(answeredBehindIt) << "request for memory number " << nth;
  EXPECT_EQ(failures, fault.Happened() ? 1 : 0) << "request for memory number " << nth;
  return fault.Happened();
}

TEST(ReceptionFaultsTest, ARequestWithoutMemoryIsGivenUpAtWhateverByte) {
  const std::string body(200, 'b');
  const std::string announced = "Content-Length: 200\r\n\r\n";
  const std::string start = "POST " + kPath + " HTTP/1.0\r\n";
  const std::string smuggled = "GET /other HTTP/1.0\r\n\r\n";
  const std::vector<std::string> cases[] = {
      {"GET " + kPath + " HTTP/1.0\r\n" + kField + "\r\n", smuggled},
      {"GET " + kPath, "x HTTP/1.0\r\n" + kField + "\r\n", smuggled},
      {start + kField + announced + body, smuggled},
      {start + kField + announced, body, smuggled},
      {start + kField, announced, body, smuggled},
      {start + kField, announced + "GET /other HTTP/1.0\r\n\r\n", body},
      {start + kField + announced + body.substr(0, 50), body.substr(0, 142), smuggled},
      {start + kField + "Content-Length: 5\r\n", "X: " + body},
  };
  for (const auto& pieces : cases) {
    int failed = 0;
    for (int nth = 1; nth <= kMostRequestsForMemory; ++nth) {
      Reception reception;
      if (!FailsOnce(reception, pieces, nth)) break;
      ++failed;
      EXPECT_FALSE(reception.Fields().BodyPending) << nth;
      EXPECT_TRUE(reception.InputMayCome()) << nth << ": closing must be orderly";
      EXPECT_EQ(reception.Fields().RequestBody, "") << nth;
      reception.Reset();
      EXPECT_EQ(reception.Data("POST /p HTTP/1.0\r\nContent-Length: 3\r\n\r\nxyz"), Outcome::kComplete) << "afterwards";
      EXPECT_EQ(reception.Fields().RequestBody, "xyz");
    }
    EXPECT_GT(failed, 1);
    EXPECT_LT(failed, kMostRequestsForMemory) << "in the end nothing is left to fail";
  }
}

}  // namespace
}  // namespace TesselServer
