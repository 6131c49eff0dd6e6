// What stays in memory of a file of passwords once the control no longer needs its lines: nothing.

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "control/life/Settings.h"
#include "tests/kit/FailNthMemory.h"
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

TEST_P(PasswordTextTest, IsGoneAfterEachRequestThatItWasReadFor) {
  Kit::TestControl control;
  control.tree.Write("a.txt", "text");
  control.tree.Write("folder/a.txt", "text");
  control.tree.Write("folder/htaccess.txt", kSecretLines);
  const Kit::TemporaryTree elsewhere;
  control.tessel.AuthenticationSourceFile(elsewhere.Write("users.txt", kSecretLines));
  control.Start();
  const Kit::FreedText secret(GetParam());
  const std::string wrong = " HTTP/1.0\r\nAuthorization: Basic YW5uYTp3cm9uZw==\r\n\r\n";  // anna:wrong
  EXPECT_TRUE(control.Ask("GET /a.txt" + wrong).starts_with("HTTP/1.0 401"));
  EXPECT_EQ(secret.Seen(), 0) << "the file of the site";
  control.tessel.AuthenticationSource(e_AuthSource::DirectoryFile);
  EXPECT_TRUE(control.Ask("GET /folder/a.txt" + wrong).starts_with("HTTP/1.0 401"));
  EXPECT_EQ(secret.Seen(), 0) << "the file of the folder";
}

TEST_P(PasswordTextTest, IsGoneWhereverMemoryForItRunsOut) {
  const Kit::TemporaryTree tree;
  const std::string passwords = tree.Write("users.txt", kSecretLines);
  const Kit::FreedText secret(GetParam());
  int nth = 0;
  for (bool happened = true; happened && nth < 100;) {
    ++nth;
    const Kit::FailNthMemory fault(nth);
    try {
      SecretLines::Load(passwords);
    } catch (const std::bad_alloc&) {
    }
    happened = fault.Happened();
    EXPECT_EQ(secret.Seen(), 0) << "request for memory number " << nth;
  }
  EXPECT_GT(nth, 3);
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
