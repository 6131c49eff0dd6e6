#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/network/DottedText.h"

namespace TesselServer {
namespace {

TEST(DottedTextTest, IsWhatTheSystemWrites) {
  for (std::uint32_t number : {0u, 1u, 0x7F000001u, 0x0A00FF64u, 0xC0000201u, 0xFFFFFFFFu, 0x63646566u, 0x090A0B0Cu}) {
    const std::uint32_t address = htonl(number);
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    EXPECT_EQ(DottedText(address), text.data());
  }
}

}  // namespace
}  // namespace TesselServer
