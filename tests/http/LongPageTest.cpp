#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "http/PageRewriter.h"
#include "http/TagNormaliser.h"
#include "http/TagReplacement.h"
#include "platform/loop/EventLoop.h"
#include "platform/tasks/Turns.h"
#include "tests/kit/PageSite.h"

namespace TesselServer {
namespace {

// A world in which each look at the clock takes a while.
class SlowClock : public Kit::FakeWorld {
 public:
  mutable std::int64_t looks = 0;

  std::int64_t MonotonicMicroseconds() const override { return 50 * ++looks; }
};

class LongPageTest : public testing::Test {
 protected:
  LongPageTest() {
    site_.AllSwitchesOn();
    site_.record.ServerPort("8080");
    site_.host.answer = [](const Kit::FunctionHost::Call& call) { return "{" + call.params + "}"; };
    site_.tree.Write("part.htm", "<p><%= SERVER_PORT %></p>");
    site_.request.QueryString = "a=1&b=2";
  }
  ~LongPageTest() override { EXPECT_EQ(TaskPromise::living, 0) << "a frame has outlived its owner"; }

  Task<void> Make() {
    const std::string path = site_.record.VirtualPath() + "/page.htm";
    auto search = site_.record.FindFile(site_.record.VirtualPath(), "page.htm");
    FoundEntry found = co_await search;
    auto making = site_.record.ProcessFile(std::move(found), path, "200", false, "", site_.request, "");
    answer_ = Kit::BodyText(co_await making);
  }
  RunningTask Begin() {
    answer_.reset();
    site_.record.Turns(&turns_);
    turns_.Begin();
    return RunningTask::Start(Make());
  }
  // How many turns it takes until the answer is there.
  int TurnsOf(const RunningTask& task) {
    int count = 1;
    for (; !task.IsDone(); ++count) EXPECT_TRUE(loop_.RunOnce(0));
    return count;
  }
  // What becomes of the page in one go.
  std::string AtOnce(std::string_view page) {
    site_.record.Turns(nullptr);
    return site_.Page(page);
  }

  Kit::PageSite site_;
  SlowClock clock_;
  EventLoop loop_{clock_};
  Workers workers_{loop_};
  Turns turns_{loop_, workers_};
  std::optional<std::string> answer_;
};

std::string TextWithTags(std::size_t size, int tags) {
  const char* const kinds[] = {
      "<!--#echo var=\"SERVER_PORT\" -->", "<%= Request.QueryString(b) %>", "<!--#include file=\"part.htm\" -->",
      "<!--#exec cmd=\"a.exe\" -->",       "<%= Function F(N) %>",          "<%= NONE_N %>"};
  std::string page;
  for (int i = 0; i < tags; ++i) {
    std::string tag = kinds[i % 6];
    const std::size_t number = tag.find('N');
    if (i % 6 > 3 && number != std::string::npos) tag.replace(tag.rfind('N'), 1, std::to_string(i));
    page.append(size / static_cast<std::size_t>(tags) - 32, 'x').append(tag);
  }
  return page;
}

TEST_F(LongPageTest, BecomesTheSameInManyTurnsAsAtOnce) {
  site_.tree.Write("a.exe", "");
  const std::string page = TextWithTags(1024 * 1024, 10'000);
  const std::string expected = AtOnce(page);
  ASSERT_NE(expected.find("output"), std::string::npos);
  site_.host.calls.clear();
  clock_.looks = 0;
  const int count = TurnsOf(Begin());
  EXPECT_TRUE(answer_ == expected);
  EXPECT_GT(count, 500);
  EXPECT_EQ(site_.host.calls.size(), 1'666u) << "each once, whatever the turns";
  // copied, normalised twice, searched for nine kinds of tag, joined
  EXPECT_GT(clock_.looks, static_cast<std::int64_t>(13 * page.size() / 8192));
}

TEST_F(LongPageTest, WithoutATagItIsOnlyLookedThrough) {
  const std::string page(300'000, '%');
  EXPECT_TRUE(AtOnce(page) == page);
  EXPECT_GT(TurnsOf(Begin()), 10);
  EXPECT_TRUE(answer_ == page);
}

TEST_F(LongPageTest, AShortPageIsMadeInItsFirstTurnWithoutALookAtTheClock) {
  const std::string expected = AtOnce("<%= SERVER_PORT %><!--#include file=\"part.htm\" --><%= Function F(1) %>");
  turns_.Begin();
  const std::int64_t before = clock_.looks;
  EXPECT_EQ(TurnsOf(Begin()), 1);
  EXPECT_EQ(answer_, expected);
  EXPECT_LE(clock_.looks - before, 4) << "for its beginning, the include and the function";
}

TEST_F(LongPageTest, AfterEachSearchOfALongQueryTheClockIsLookedAt) {
  std::string page;
  for (const char* name : {"name", "number", "note", "nation", "nick", "news", "night", "north"}) {
    page += std::string("<%=Request.QueryString(") + name + ")%>|";
  }
  const auto looksWith = [&](const std::string& query) {
    site_.request.QueryString = query;
    const std::string expected = AtOnce(page);
    clock_.looks = 0;
    TurnsOf(Begin());
    EXPECT_EQ(answer_, expected);
    return clock_.looks;
  };
  const auto usual = looksWith("name=n&north=s");
  EXPECT_GE(looksWith(std::string(63'000, 'n')), usual + 8);
}

TEST_F(LongPageTest, TheRecordServesTheNextRequestWhereverOneWasLeft) {
  site_.tree.Write("a.exe", "");
  const std::string page = TextWithTags(100'000, 120);
  const std::string expected = AtOnce(page);
  int left = 0;
  for (bool isDone = false; !isDone; ++left) {
    {
      const RunningTask task = Begin();
      for (int i = 0; i < left && !task.IsDone(); ++i) loop_.RunOnce(0);
      isDone = task.IsDone();
    }
    ASSERT_EQ(TaskPromise::living, 0) << left;
    ASSERT_FALSE(site_.record.TakeIncludeRoom(1)) << left << ": no page is under way";
    ASSERT_FALSE(loop_.RunOnce(0)) << left << ": nothing is left in the loop";
    ASSERT_TRUE(AtOnce(page) == expected) << left;
  }
  EXPECT_GT(left, 20);
}

// Pages that are hard to search: none of their steps does more than it should.
TEST_F(LongPageTest, NoStepIsLongWhateverThePage) {
  constexpr std::size_t kWindow = 8192;
  const auto repeated = [](std::string_view text) {
    std::string all;
    while (all.size() < 400'000) all += text;
    return all;
  };
  for (const char* text : {"%", "<%=", "<%=a%>", "<!--#", "-", "<!--#a-->", "<%=a", "%>", "<%= \" >", "x"}) {
    std::string page = repeated(text);
    std::size_t longest = 0;
    TagNormaliser normaliser(page);
    while (const std::size_t work = normaliser.Step()) longest = std::max(longest, work);
    EXPECT_LE(longest, kWindow + 1) << text;

    longest = 0;
    const auto value = std::make_shared<const std::string>("v");
    Page rewritten(page);
    for (const auto& tag : {std::pair("<%=a", "%>"), std::pair("<%", ">"), std::pair("<!--#", "-->")}) {
      PageRewriter pass(rewritten);
      for (auto found = pass.Search(tag.first, tag.second); found != PageRewriter::Found::kNone;
           found = pass.Search(tag.first, tag.second)) {
        if (found == PageRewriter::Found::kTag) pass.Replace(value);
        longest = std::max(longest, pass.TakeWork());
      }
      longest = std::max(longest, pass.TakeWork());
    }
    EXPECT_LE(longest, 3 * kWindow) << text << ": the opener, the end, and what is taken over";
  }
}

// One whose author has forgotten to end a tag: what it says is read, and compared, in steps.
TEST_F(LongPageTest, NoStepIsLongWhateverOneTagSays) {
  constexpr std::size_t kWindow = 8192;
  const std::string half(30'000, 'X');
  Page page("<%=v%><%=Function" + half + "<%=v%>" + half + "%><%=FUNCTION" + half + "<%=v%>" + half + "%>");
  {
    PageRewriter pass(page);
    while (pass.Find("<%=v", "%>")) pass.Replace(std::make_shared<const std::string>("!"));
  }
  TagReplacement tags(page, {"<%=", "Function", "%"});
  std::vector<bool> known;
  std::size_t longest = 0;
  for (auto found = tags.Search(); found != PageRewriter::Found::kNone; found = tags.Search()) {
    longest = std::max(longest, tags.TakeWork());
    if (found != PageRewriter::Found::kTag) continue;
    EXPECT_TRUE(tags.Content() == half + "!" + half);
    known.push_back(tags.IsKnown());
    if (!tags.IsKnown()) tags.Value(std::string("value"));
    tags.TakeWork();
    tags.Replace();
  }
  EXPECT_EQ(known, (std::vector<bool>{false, true}));
  EXPECT_LE(longest, 3 * kWindow);
}

// The same result whatever the size of a step.
TEST_F(LongPageTest, TheSizeOfAStepDoesNotMatter) {
  constexpr std::string_view kParts[] = {"<!--#", "<%", "<%=", "-->", "%>", ">", " ", "\"", "<", "%", "--", "x", "y z"};
  std::mt19937 random(5);
  for (int round = 0; round < 3'000; ++round) {
    std::string text;
    for (std::size_t parts = random() % 24; parts > 0; --parts) text += kParts[random() % std::size(kParts)];
    const std::string expected = NormaliseTags(text);
    const auto rewritten = [&](std::size_t window) {
      Page page(text);
      for (const auto& tag : {std::pair("<%=", "%>"), std::pair("<!--#", ">"), std::pair("<", ">")}) {
        PageRewriter pass(page, window);
        while (pass.Find(tag.first, tag.second)) {
          pass.Replace(std::make_shared<const std::string>(std::string(pass.Content()) + "<>"));
        }
      }
      return page.Text();
    };
    for (std::size_t window = 1; window < 9; ++window) {
      std::string normalised = text;
      TagNormaliser normaliser(normalised, window);
      while (normaliser.Step() > 0) continue;
      ASSERT_EQ(normalised, expected) << text << " by " << window;
      ASSERT_EQ(rewritten(window), rewritten(8192)) << text << " by " << window;
    }
  }
}

// More pieces than a chunk holds, put in, kept and left early.
TEST_F(LongPageTest, ManyPiecesKeepTheirOrder) {
  constexpr int kTags = 5'000;
  std::string text;
  for (int i = 0; i < kTags; ++i) text += "t<" + std::to_string(i) + ">";
  Page page(text);
  std::vector<std::string> model(kTags);
  for (int i = 0; i < kTags; ++i) model[static_cast<std::size_t>(i)] = "<" + std::to_string(i) + ">";
  std::mt19937 random(7);
  for (int walk = 0; walk < 12; ++walk) {
    const std::size_t leave = random() % (2 * kTags);
    PageRewriter pass(page);
    for (std::size_t n = 0; n < leave && pass.Find("<", ">"); ++n) {
      const std::size_t tag = static_cast<std::size_t>(std::stoi(std::string(pass.Content())));
      if (random() % 4 != 0) {
        pass.Keep();
        continue;
      }
      model[tag] = "(" + std::to_string(walk) + ")";
      pass.Replace(std::make_shared<const std::string>(model[tag]));
    }
  }
  std::string expected;
  for (const std::string& tag : model) expected += "t" + tag;
  EXPECT_EQ(page.Text(), expected);
  std::size_t count = 0;
  for ([[maybe_unused]] const Page::Piece& piece : page.Pieces()) ++count;
  EXPECT_EQ(count, page.Pieces().size());
}

}  // namespace
}  // namespace TesselServer
