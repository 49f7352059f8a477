#include "core/string.h"

#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <new>

namespace {

using CORE::mstr;
using CORE::wstr;

TEST(CoreString, MarksSurviveCopyMoveAndSwap) {
  wstr binary = wstr::fromBytes("\1\2\3", 3);
  binary.markSecret();
  const wstr copy = binary;
  wstr moved = std::move(binary);
  wstr assigned;
  assigned = copy;
  wstr plain(L"plain");
  plain.swap(moved);
  for (const wstr* text : std::initializer_list<const wstr*>{&copy, &assigned, &plain}) {
    EXPECT_TRUE(text->isBinary());
    EXPECT_TRUE(text->isSecret());
    EXPECT_EQ(text->storedLength(), 0x80000003U);
    EXPECT_EQ(text->byteLength(), 3U);
  }
  EXPECT_FALSE(moved.isBinary() || moved.isSecret());
  EXPECT_EQ(moved.str(), L"plain");
  wstr& self = plain;
  plain = std::move(self);
  EXPECT_EQ(plain.byteLength(), 3U);
  plain = wstr(L"new");
  EXPECT_FALSE(plain.isBinary() || plain.isSecret());
  EXPECT_EQ(plain.storedLength(), 3 * sizeof(wchar_t));
}

TEST(CoreString, MovedFromIsEmpty) {
  wstr text = wstr::fromBytes("ab", 2);
  const wstr taken = std::move(text);
  EXPECT_TRUE(text.empty());  // NOLINT(bugprone-use-after-move): what is left is part of the contract
  EXPECT_EQ(text.storedLength(), 0U);
}

TEST(CoreString, SecretsAreWipedWhereTheyStood) {
  alignas(mstr) std::array<unsigned char, sizeof(mstr)> place{};
  auto* secret = new (place.data()) mstr("hunter2");  // short enough to live inside the object
  secret->markSecret();
  const mstr taken = std::move(*secret);
  const auto holds = [&](std::string_view text) {
    return std::string_view(reinterpret_cast<const char*>(place.data()), place.size()).find(text) !=
           std::string_view::npos;
  };
  EXPECT_FALSE(holds("unter"));
  *secret = taken;
  EXPECT_TRUE(holds("unter"));
  *secret = mstr();
  EXPECT_FALSE(holds("unter"));
  secret->~mstr();
  EXPECT_EQ(taken.str(), "hunter2");
}

}  // namespace
