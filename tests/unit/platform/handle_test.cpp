#include "platform/handle.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int*> closed;

void closeIt(int* handle) { closed.push_back(handle); }

TEST(UniqueHandle, ClosesEachValidHandleOnce) {
  using Owner = platform::UniqueHandle<platform::NullHandleTraits<int*, closeIt>>;
  int a = 0, b = 0;
  {
    Owner none, one(&a);
    Owner& same = one;
    one = std::move(same);
    EXPECT_TRUE(!none && one && closed.empty()) << "not by a move to itself";
    one = Owner(&b);
    EXPECT_EQ(one.release(), &b);
    EXPECT_FALSE(one);
    one.reset(&a);
    one.reset(&b);
  }
  EXPECT_EQ(closed, (std::vector<int*>{&a, &a, &b}));
}

}  // namespace
