#include "transcoder/demand.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "support.h"

namespace orvo::transcoder {
namespace {

bool HasNews(const Demand& demand) {
  pollfd wait{demand.Descriptor(), POLLIN, 0};
  return poll(&wait, 1, 0) > 0;
}

TEST(Demand, HoldsNothingBackWhileNobodySaysWhatIsWanted) {
  const test::TempDir dir;
  EXPECT_TRUE(Demand(dir.Path(""), 0).Wants(1000));
}

TEST(Demand, WantsTheNewestRequestAndTheLeadBeyond) {
  const test::TempDir dir;
  test::WriteText(dir.Path("requested"), "20");
  const Demand demand(dir.Path(""), 3);
  EXPECT_TRUE(demand.Wants(20 + kLead));
  EXPECT_FALSE(demand.Wants(20 + kLead + 1));
}

TEST(Demand, TakesTheFirstSegmentForRequested) {
  const test::TempDir dir;
  for (const char* text : {"2", "", "x", "-7", "99999999999999999999"}) {
    test::WriteText(dir.Path("requested"), text);
    const Demand demand(dir.Path(""), 30);
    EXPECT_TRUE(demand.Wants(30 + kLead)) << text;
    EXPECT_FALSE(demand.Wants(30 + kLead + 1)) << text;
  }
}

TEST(Demand, TellsOfNewRequests) {
  const test::TempDir dir;
  Demand demand(dir.Path(""), 0);
  EXPECT_FALSE(HasNews(demand));
  test::WriteText(dir.Path("requested"), "5");
  EXPECT_TRUE(HasNews(demand));
  demand.Refresh();
  EXPECT_FALSE(HasNews(demand));
  EXPECT_FALSE(demand.Wants(5 + kLead + 1));
}

TEST(Demand, HoldsNothingBackWhereItCannotSeeRequests) {
  EXPECT_TRUE(Demand("/nonexistent", 0).Wants(1000));
}

}  // namespace
}  // namespace orvo::transcoder
