#include "platform/handle.h"

#include <gtest/gtest.h>

namespace {

void closeIt(int* closings) { ++*closings; }

TEST(UniqueHandle, ClosesEachValidHandleOnce) {
  using Owner = platform::UniqueHandle<platform::NullHandleTraits<int*, closeIt>>;
  int a = 0, b = 0;  // how often each was closed
  {
    Owner none, one(&a);
    Owner& same = one;
    one = std::move(same);
    EXPECT_TRUE(!none && one && a == 0) << "not by a move to itself";
    one = Owner(&b);
    EXPECT_TRUE(a == 1 && one.release() == &b && !one);
    one.reset(&a);
    one.reset(&b);
    EXPECT_TRUE(a == 2 && b == 0);
  }
  EXPECT_EQ(b, 1);
}

}  // namespace
