#include "http/request_timeouts.h"

#include <gtest/gtest.h>

#include "core/exception.h"

namespace {

using Limits = RequestTimeouts::Limits;
using Platform = std::array<int, 4>;

TEST(RequestTimeoutsTest, SharesOfTheTotal) {
  RequestTimeouts timeouts;
  EXPECT_EQ(timeouts.total(), 150000U);
  EXPECT_EQ(timeouts.forPlatform(), (Platform{30000, 60000, 30000, 30000}));

  struct Row {
    std::uint32_t seconds, total;
    Platform limits;
  };
  const Row rows[] = {
      {0, 0, {0, 0, 0, 0}},
      {1, 1000, {200, 400, 200, 200}},
      {4294967, 4294967000U, {858993400, 1717986800, 858993400, 858993400}},
      {4294968, 4294967000U, {858993400, 1717986800, 858993400, 858993400}},
      {5000000, 4294967000U, {858993400, 1717986800, 858993400, 858993400}},
  };
  for (const Row& row : rows) {
    timeouts.setTotalSeconds(row.seconds);
    EXPECT_EQ(timeouts.total(), row.total) << row.seconds;
    EXPECT_EQ(timeouts.forPlatform(), row.limits) << row.seconds;
  }
}

TEST(RequestTimeoutsTest, ExplicitLimits) {
  RequestTimeouts timeouts;
  timeouts.setSeconds({1, 2, 3, 4});
  EXPECT_TRUE(timeouts.isExplicit());
  EXPECT_EQ(timeouts.total(), 10000U);
  EXPECT_EQ(timeouts.forPlatform(), (Platform{1000, 2000, 3000, 4000}));

  timeouts.setMilliseconds({1, 0, 7, 4294967287U});  // the sum just fits
  EXPECT_EQ(timeouts.total(), 0xFFFFFFFFU);
  EXPECT_EQ(timeouts.forPlatform(), (Platform{1, 0, 7, -9}));

  timeouts.setTotalSeconds(2);
  EXPECT_FALSE(timeouts.isExplicit());
  EXPECT_EQ(timeouts.forPlatform(), (Platform{400, 800, 400, 400}));
}

TEST(RequestTimeoutsTest, SumBeyond32BitsChangesNothing) {
  RequestTimeouts timeouts;
  timeouts.setMilliseconds({1, 2, 3, 4});
  EXPECT_THROW(timeouts.setMilliseconds({1, 0, 8, 4294967287U}), CORE::coreException);
  EXPECT_THROW(timeouts.setSeconds({4294967, 1, 0, 0}), CORE::coreException);
  EXPECT_EQ(timeouts.explicitLimits(), (Limits{1, 2, 3, 4}));
  EXPECT_EQ(timeouts.total(), 10U);
}

}  // namespace
