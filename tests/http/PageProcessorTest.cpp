#include <gtest/gtest.h>

#include <stdexcept>

#include "http/PageProcessor.h"
#include "http/cls_HTTP.h"
#include "tests/kit/FakeWorld.h"

namespace TesselServer {
namespace {

// Adds its text to a page when the record's SSI switch is on, then fails if it is told to.
class Adder : public PageProcessor {
 public:
  explicit Adder(std::string text, bool fails = false) : text_(std::move(text)), fails_(fails) {}
  bool Wants(const cls_HTTP& record) const override { return record.SSIEnable(); }
  void Run(cls_HTTP&, Page& page) override {
    page.AppendInserted(text_);
    if (fails_) throw std::runtime_error("told to fail");
  }

 private:
  std::string text_;
  bool fails_;
};

// Wants every page.
class AlwaysAdder : public Adder {
 public:
  using Adder::Adder;
  bool Wants(const cls_HTTP&) const override { return true; }
};

class PageProcessorTest : public testing::Test {
 protected:
  Kit::FakeWorld world_;
  cls_HTTP record_{world_};
  PagePipeline pipeline_;
};

TEST_F(PageProcessorTest, AnEmptyPipelineWantsNothingAndChangesNothing) {
  record_.SSIEnable(true);
  EXPECT_FALSE(pipeline_.Wants(record_));
  Page page("text");
  pipeline_.Run(record_, page);
  EXPECT_EQ(page.Text(), "text");
}

TEST_F(PageProcessorTest, WantsAPageWhenOneProcessorDoes) {
  pipeline_.Add(std::make_unique<Adder>("1"));
  EXPECT_FALSE(pipeline_.Wants(record_));
  record_.SSIEnable(true);
  EXPECT_TRUE(pipeline_.Wants(record_));
  record_.SSIEnable(false);
  pipeline_.Add(std::make_unique<AlwaysAdder>("2"));
  EXPECT_TRUE(pipeline_.Wants(record_));
}

TEST_F(PageProcessorTest, RunsInOrderAndOnlyThoseThatWantThePage) {
  pipeline_.Add(std::make_unique<AlwaysAdder>("1"));
  pipeline_.Add(std::make_unique<Adder>("2"));
  pipeline_.Add(std::make_unique<AlwaysAdder>("3"));
  Page without("p");
  pipeline_.Run(record_, without);
  EXPECT_EQ(without.Text(), "p13");
  record_.SSIEnable(true);
  Page with("p");
  pipeline_.Run(record_, with);
  EXPECT_EQ(with.Text(), "p123");
}

TEST_F(PageProcessorTest, AFailingProcessorKeepsItsWorkAndStopsNobodyElse) {
  pipeline_.Add(std::make_unique<AlwaysAdder>("1", true));
  pipeline_.Add(std::make_unique<AlwaysAdder>("2"));
  Page page("p");
  EXPECT_NO_THROW(pipeline_.Run(record_, page));
  EXPECT_EQ(page.Text(), "p12");
}

}  // namespace
}  // namespace TesselServer
