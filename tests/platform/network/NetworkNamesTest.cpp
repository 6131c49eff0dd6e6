#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/syscall.h>

#include <cerrno>
#include <string>

#include "platform/network/NetworkNames.h"
#include "tests/kit/Child.h"
#include "tests/kit/SystemCallFilter.h"

namespace TesselServer {
namespace {

TEST(NetworkNamesTest, WhatEverybodyKnowsIsKnown) {
  EXPECT_EQ(ProtocolNumber("icmp"), 1);
  EXPECT_EQ(ProtocolNumber("tcp"), 6);
  EXPECT_EQ(ProtocolNumber("udp"), 17);
  EXPECT_EQ(ServicePort("http", "tcp"), 80);
  EXPECT_EQ(ServicePort("https", "tcp"), 443);
  EXPECT_EQ(ServicePort("domain", "udp"), 53);
  EXPECT_EQ(ServicePort("http", ""), 80);
}

TEST(NetworkNamesTest, TheSystemsTablesAreAsked) {
  int services = 0;
  while (const servent* each = getservent()) {
    const servent known = *each;
    const std::string name = known.s_name;
    const std::string protocol = known.s_proto;
    if (protocol != "tcp" && protocol != "udp") continue;
    EXPECT_TRUE(ServicePort(name, protocol)) << name;
    EXPECT_TRUE(ServicePort(name, "")) << name;
    ++services;
  }
  endservent();
  int protocols = 0;
  while (const protoent* each = getprotoent()) {
    EXPECT_EQ(ProtocolNumber(each->p_name), each->p_proto) << each->p_name;
    ++protocols;
  }
  endprotoent();
  if (services + protocols == 0) GTEST_SKIP() << "this machine has no tables of services and protocols";
}

TEST(NetworkNamesTest, AMachineWithoutTablesKnowsAFew) {
  const int status = Kit::InChild([] {
    if (!Kit::RefuseSystemCall(SYS_openat, ENOENT)) return 200;
    if (ProtocolNumber("icmp") != 1 || ProtocolNumber("tcp") != 6 || ProtocolNumber("udp") != 17) return 1;
    if (ServicePort("http", "tcp") != 80 || ServicePort("https", "") != 443 || ServicePort("smtp", "tcp") != 25)
      return 2;
    return ServicePort("no-such-service", "tcp") || ProtocolNumber("no-such-protocol") ? 3 : 0;
  });
  if (status == 200) GTEST_SKIP() << "this kernel takes no system call filter";
  EXPECT_EQ(status, 0);
}

TEST(NetworkNamesTest, TheRestIsNotKnown) {
  using namespace std::string_literals;
  for (const std::string& name :
       {""s, " "s, "no such name"s, "http "s, "HTTP/1.0"s, "80"s, "tcp\0"s, "http\0x"s, std::string(255, 'a'),
        std::string(256, 'a'), std::string(1 << 20, 'a'), "\xFF\xFE"s}) {
    EXPECT_FALSE(ProtocolNumber(name)) << name.substr(0, 20);
    EXPECT_FALSE(ServicePort(name, "tcp")) << name.substr(0, 20);
  }
  for (const std::string& protocol : {"icmp"s, "TCP"s, " "s, "tcp\0"s, std::string(70000, 't')}) {
    EXPECT_FALSE(ServicePort("http", protocol)) << protocol.substr(0, 20);
  }
}

}  // namespace
}  // namespace TesselServer
