#include <gtest/gtest.h>

#include <string>

#include "platform/network/EchoPacket.h"

namespace TesselServer {
namespace {

using namespace std::string_literals;

const EchoMessage kMessage{0x1234, 7, "Echo This."};

// The answer to EchoRequest(kMessage): type 0, checksum 0x4406.
const std::string kReply = "\x00\x00\x44\x06\x12\x34\x00\x07"s + "Echo This.";

TEST(EchoPacketTest, ARequestHasItsHeaderItsChecksumAndItsPayload) {
  EXPECT_EQ(EchoRequest(kMessage), "\x08\x00\x3C\x06\x12\x34\x00\x07"s + "Echo This.");
}

TEST(EchoPacketTest, AnOddPayloadIsSummedWithAZeroAfterIt) {
  EXPECT_EQ(EchoRequest({0, 0, "a"}), "\x08\x00\x96\xFF\x00\x00\x00\x00"s + "a");
  EXPECT_EQ(EchoRequest({0, 0, ""}), "\x08\x00\xF7\xFF\x00\x00\x00\x00"s);
}

TEST(EchoPacketTest, OnlyTheAnswerIsTheAnswer) {
  struct {
    std::string packet;
    bool isReply;
    const char* why;
  } const cases[] = {
      {kReply, true, "the answer"},
      {EchoRequest(kMessage), false, "the request itself, which a raw socket on the loopback hears"},
      {"\x00\x01\x44\x05\x12\x34\x00\x07"s + "Echo This.", false, "another code"},
      {"\x03\x00\x41\x06\x12\x34\x00\x07"s + "Echo This.", false, "another type"},
      {"\x00\x00\x44\x05\x12\x35\x00\x07"s + "Echo This.", false, "another identifier"},
      {"\x00\x00\x44\x05\x12\x34\x00\x08"s + "Echo This.", false, "another sequence"},
      {"\x00\x00\x44\x05\x12\x34\x00\x07"s + "Echo This/", false, "another payload"},
      {"\x00\x00\x44\x07\x12\x34\x00\x07"s + "Echo This.", false, "a wrong checksum"},
      {kReply.substr(0, kReply.size() - 1), false, "one byte short"},
      {kReply + '\0', false, "one byte more"},
      {kReply.substr(0, 8), false, "no payload"},
      {kReply.substr(0, 7), false, "half a header"},
      {"", false, "nothing"},
  };
  for (const auto& c : cases) EXPECT_EQ(IsEchoReply(c.packet, kMessage), c.isReply) << c.why;
}

// An IPv4 header of `words` times four bytes for `protocol`.
std::string Header(int words, char protocol) {
  std::string bytes(static_cast<std::size_t>(words) * 4, '\0');
  bytes[0] = static_cast<char>(0x40 + words);
  bytes[9] = protocol;
  return bytes;
}

TEST(EchoPacketTest, AnInternetHeaderIsTakenOffByItsOwnLength) {
  EXPECT_EQ(WithoutInternetHeader(Header(5, 1) + kReply), kReply);
  EXPECT_EQ(WithoutInternetHeader(Header(15, 1) + kReply), kReply) << "with options";
  EXPECT_EQ(WithoutInternetHeader(Header(5, 1)), "");
}

TEST(EchoPacketTest, WhatIsNoInternetPacketHasNoMessage) {
  std::string otherVersion = Header(5, 1) + kReply;
  otherVersion[0] = 0x65;
  std::string shortHeader = Header(5, 1) + kReply;
  shortHeader[0] = 0x44;
  const std::string cases[] = {
      "", Header(5, 1).substr(0, 19), Header(15, 1).substr(0, 59), Header(5, 17) + kReply, otherVersion, shortHeader};
  for (const std::string& packet : cases) EXPECT_EQ(WithoutInternetHeader(packet), "") << packet.size();
}

TEST(EchoPacketTest, NoBytesHarm) {
  std::string bytes(64, '\0');
  for (int first = 0; first < 256; ++first) {
    bytes[0] = static_cast<char>(first);
    bytes[9] = 1;
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
      const std::string packet = bytes.substr(0, size);
      EXPECT_FALSE(IsEchoReply(WithoutInternetHeader(packet), kMessage));
      EXPECT_FALSE(IsEchoReply(packet, kMessage));
    }
  }
}

}  // namespace
}  // namespace TesselServer
