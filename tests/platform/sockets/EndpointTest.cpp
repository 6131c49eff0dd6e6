#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/sockets/Endpoint.h"
#include "tests/kit/TcpPair.h"

namespace TesselServer {
namespace {

TEST(EndpointTest, ReadsAndWritesAddressesOfBothFamilies) {
  struct {
    const char* given;
    const char* text;
    bool v4;
  } const cases[] = {
      {"127.0.0.1", "127.0.0.1", true},          {"0.0.0.0", "0.0.0.0", true},
      {"192.0.2.255", "192.0.2.255", true},      {"::1", "::1", false},
      {"2001:DB8:0:0::7", "2001:db8::7", false},
  };
  for (const auto& c : cases) {
    const auto endpoint = Endpoint::Parse(c.given, 8080);
    ASSERT_TRUE(endpoint) << c.given;
    EXPECT_EQ(endpoint->Text(), c.text);
    EXPECT_EQ(endpoint->IsIPv4(), c.v4) << c.given;
    EXPECT_EQ(endpoint->Family(), c.v4 ? AF_INET : AF_INET6) << c.given;
    EXPECT_EQ(endpoint->Port(), 8080) << c.given;
    EXPECT_EQ(*endpoint, *Endpoint::Parse(c.text, 8080)) << c.given;
    EXPECT_FALSE(*endpoint == *Endpoint::Parse(c.text, 8081)) << c.given;
    EXPECT_FALSE(*endpoint == *Endpoint::Parse(c.v4 ? "::2" : "1.2.3.4", 8080)) << c.given;
  }
}

TEST(EndpointTest, AnyOtherTextIsNone) {
  for (const char* text :
       {"", "localhost", "127.0.0", "127.0.0.256", "127.0.0.1 ", "1.2.3.4.5", ":::", "::1%lo", "0x7f.1"})
    EXPECT_FALSE(Endpoint::Parse(text, 1)) << text;
  EXPECT_FALSE(Endpoint::Parse(std::string("1.2.3.4\0", 8), 1));
}

TEST(EndpointTest, KnowsBothEndsOfASocket) {
  const Kit::TcpPair pair;
  EXPECT_EQ(Endpoint::OwnOf(pair.Own()), Endpoint::PeerOf(pair.Peer()));
  EXPECT_EQ(Endpoint::PeerOf(pair.Own()), Endpoint::OwnOf(pair.Peer()));
  EXPECT_EQ(Endpoint::OwnOf(pair.Own())->IPv4(), htonl(INADDR_LOOPBACK));
  EXPECT_FALSE(Endpoint::OwnOf(-1));
  EXPECT_FALSE(Endpoint::PeerOf(0));
}

TEST(EndpointTest, IsAllAddressesWhenNothingIsSaid) {
  EXPECT_EQ(Endpoint(), *Endpoint::Parse("0.0.0.0", 0));
  sockaddr_storage other{};
  other.ss_family = AF_UNIX;
  EXPECT_FALSE(Endpoint::FromSystem(other));
}

}  // namespace
}  // namespace TesselServer
