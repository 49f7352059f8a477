#include "platform/handle.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int*> closed;

void closeIt(int* handle) { closed.push_back(handle); }

using Owner = platform::UniqueHandle<platform::NullHandleTraits<int*, closeIt>>;

TEST(UniqueHandle, ClosesEachValidHandleOnce) {
  int a = 0, b = 0;
  closed.clear();
  {
    const Owner none;
    Owner one(&a);
    Owner& same = one;
    one = std::move(same);
    EXPECT_TRUE(!none && one && closed.empty()) << "not by a move to itself";
    one = Owner(&b);
    EXPECT_EQ(one.get(), &b);
    EXPECT_EQ(closed, (std::vector<int*>{&a})) << "over a live one";
    EXPECT_EQ(one.release(), &b);
    EXPECT_FALSE(one);
    one.reset(&a);
    one.reset();
    one.reset(&b);
  }
  EXPECT_EQ(closed, (std::vector<int*>{&a, &a, &b}));
}

TEST(KernelHandle, BothInvalidValuesAreNoHandle) {
  using Traits = platform::KernelHandleTraits;
  EXPECT_FALSE(Traits::isValid(nullptr));
  EXPECT_FALSE(Traits::isValid(platform::invalidHandleValue()));
  int object = 0;
  EXPECT_TRUE(Traits::isValid(&object));
}

}  // namespace
