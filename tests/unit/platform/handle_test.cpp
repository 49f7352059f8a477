#include "platform/handle.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int*> closed;

void closeIt(int* handle) { closed.push_back(handle); }

using Owner = platform::UniqueHandle<platform::NullHandleTraits<int*, closeIt>>;

class UniqueHandle : public testing::Test {
 protected:
  void SetUp() override { closed.clear(); }
  int a_ = 0;
  int b_ = 0;
};

TEST_F(UniqueHandle, ClosesOnceAndNeverAnInvalidOne) {
  {
    Owner none;
    Owner one(&a_);
    EXPECT_FALSE(none);
    EXPECT_TRUE(one);
  }
  EXPECT_EQ(closed, (std::vector<int*>{&a_}));
}

TEST_F(UniqueHandle, AssignmentOverALiveHandleClosesTheOldOne) {
  Owner first(&a_);
  Owner second(&b_);
  first = std::move(second);
  EXPECT_EQ(first.get(), &b_);
  EXPECT_EQ(closed, (std::vector<int*>{&a_}));
}

TEST_F(UniqueHandle, SelfMoveKeepsTheHandle) {
  Owner owner(&a_);
  Owner& same = owner;
  owner = std::move(same);
  EXPECT_EQ(owner.get(), &a_);
  EXPECT_TRUE(closed.empty());
}

TEST_F(UniqueHandle, ReleaseGivesUpAndResetReplaces) {
  Owner owner(&a_);
  EXPECT_EQ(owner.release(), &a_);
  EXPECT_FALSE(owner);
  owner.reset(&b_);
  owner.reset();
  EXPECT_EQ(closed, (std::vector<int*>{&b_}));
}

TEST(KernelHandle, BothInvalidValuesAreNoHandle) {
  using Traits = platform::KernelHandleTraits;
  EXPECT_FALSE(Traits::isValid(nullptr));
  EXPECT_FALSE(Traits::isValid(platform::invalidHandleValue()));
  int object = 0;
  EXPECT_TRUE(Traits::isValid(&object));
}

}  // namespace
