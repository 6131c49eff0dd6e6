// What stays in memory of a file of passwords once the control no longer needs its lines: nothing.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/kit/FreedText.h"
#include "tests/kit/TestControl.h"

namespace TesselServer {
namespace {

// Long enough that the texts lie in memory of their own, and short ones that lie within the table.
constexpr const char* kSecretLines = "realm: site\nanna:a-long-top-secret-word-of-hers\nbob:topsecret\n";

class PasswordTextTest : public testing::TestWithParam<const char*> {};

TEST_P(PasswordTextTest, IsGoneWhenAnotherFileIsNamedAndWhenTheControlIsDestroyed) {
  Kit::TemporaryTree tree;
  const std::string passwords = tree.Write("users.txt", kSecretLines);
  const std::string others = tree.Write("others.txt", "carl:else\n");
  Kit::FakeWorld world;
  EventLoop loop(world);
  const Kit::FreedText secret(GetParam());
  {
    Tessel tessel(loop);
    tessel.AuthenticationSourceFile(passwords);
    EXPECT_EQ(secret.Seen(), 0) << "read";
    tessel.AuthenticationSourceFile(passwords);
    EXPECT_EQ(secret.Seen(), 0) << "read again";
    tessel.AuthenticationSourceFile(others);
    EXPECT_EQ(secret.Seen(), 0) << "replaced";
    tessel.AuthenticationSourceFile(passwords);
    tessel.InitProperties();
    EXPECT_EQ(secret.Seen(), 0) << "every property at its default";
    tessel.AuthenticationSourceFile(passwords);
  }
  loop.RunOnce(0);
  EXPECT_EQ(secret.Seen(), 0) << "destroyed";
}

INSTANTIATE_TEST_SUITE_P(LongAndShort, PasswordTextTest,
                         testing::Values("a-long-top-secret-word-of-hers", "topsecret"));

TEST(FreedTextTest, SeesWhatIsGivenBack) {
  const std::string text = "a text that is long enough to have memory of its own";
  const Kit::FreedText watch(text);
  { const auto copy = std::make_unique<std::string>(text); }
  EXPECT_EQ(watch.Seen(), 1);
}

}  // namespace
}  // namespace TesselServer
