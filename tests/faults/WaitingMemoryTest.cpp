// What an answer takes that waits for its program: many may wait.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/kit/LivingMemory.h"
#include "tests/kit/Programs.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

constexpr std::size_t kWaiting = 100;

struct WaitingAnswer {
  const char* url;
  std::size_t most;  // bytes, from the end of its request on
};

class WaitingMemoryTest : public testing::TestWithParam<WaitingAnswer> {};

TEST_P(WaitingMemoryTest, IsBounded) {
  Kit::TestControl control;
  const Kit::Gate gate(control.tree);
  Kit::WriteProgram(control.tree, "held.exe", "read go < $here/gate; printf done");
  control.tree.Write("page.htm", "<p>" + std::string(150, 'a') + "</p><!--#exec cmd=\"held.exe\" --><p>end</p>");
  control.tessel.MaxConnections(kWaiting + 1);
  control.tessel.CGIEnable(true);
  control.tessel.SSIEnable(true);
  control.tessel.MaxPrograms(1);
  const std::int32_t port = control.Start();
  std::vector<std::unique_ptr<Kit::RawClient>> clients;
  for (std::size_t i = 0; i <= kWaiting; ++i) {
    clients.push_back(std::make_unique<Kit::RawClient>(port));
    clients.back()->Send(control.loop, std::string("POST ") + GetParam().url +
                                           " HTTP/1.0\r\nUser-Agent: Mozilla/5.0 (X11; Linux x86_64)\r\n"
                                           "Content-Length: 4\r\n\r\n");
  }
  clients.front()->Send(control.loop, "body");  // its program has the only place
  Kit::Settle(control.loop);
  std::size_t bytes = 0;
  {
    const Kit::LivingMemory memory;
    for (std::size_t i = 1; i <= kWaiting; ++i) clients[i]->Send(control.loop, "body");
    Kit::Settle(control.loop);
    bytes = memory.Bytes() / kWaiting;
  }
  RecordProperty("bytes", static_cast<int>(bytes));
  EXPECT_LE(bytes, GetParam().most);
  EXPECT_GT(bytes, 500u) << "they are waiting";
  clients.erase(clients.begin() + 1, clients.end());
  gate.Open();
  EXPECT_NE(clients.front()->ReceiveAll(control.loop).find("done"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Answers, WaitingMemoryTest,
                         testing::Values(WaitingAnswer{"/held.exe", 1792}, WaitingAnswer{"/page.htm", 3840}),
                         [](const auto& each) { return each.index == 0 ? "Program" : "PageWithAProgram"; });

}  // namespace
}  // namespace TesselServer
