#include "http/exchange_handles.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/sim/windows.h"

namespace {

using Outcome = ExchangeHandles::Outcome;

class ExchangeHandlesTest : public ::testing::Test {
 protected:
  ~ExchangeHandlesTest() override { EXPECT_EQ(windows.misuse(), std::vector<std::string>()); }

  void openAll() {
    ASSERT_TRUE(handles.begin());
    ASSERT_TRUE(handles.setSession(std::move(windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 0x10000000).value)));
    ASSERT_TRUE(handles.setConnection(
        std::move(windows.winHttp.WinHttpConnect(handles.useSession().handle(), L"host", 443).value)));
    ASSERT_TRUE(handles.setRequest(
        std::move(windows.winHttp.WinHttpOpenRequest(handles.useConnection().handle(), L"GET", L"/", 0).value)));
  }
  std::size_t closes() const { return windows.faults.callCount("WinHttpCloseHandle"); }

  sim::Windows windows;
  ExchangeHandles handles;
};

TEST_F(ExchangeHandlesTest, FirstCloseDecidesAndCloses) {
  EXPECT_FALSE(handles.close(Outcome::kCancelled)) << "not started";
  openAll();
  EXPECT_FALSE(handles.begin()) << "one exchange only";
  EXPECT_TRUE(handles.isOpen());
  bool decided = false;
  EXPECT_TRUE(handles.close(Outcome::kFinished, [&] { decided = true; }));
  EXPECT_TRUE(decided);
  EXPECT_FALSE(handles.close(Outcome::kCancelled, [] { FAIL(); }));
  EXPECT_EQ(handles.outcome(), Outcome::kFinished);
  EXPECT_EQ(closes(), 3U);
  EXPECT_FALSE(handles.useRequest());
  EXPECT_EQ(handles.settle(), Outcome::kFinished);
  EXPECT_EQ(handles.settle(), std::nullopt) << "settled once";
}

TEST_F(ExchangeHandlesTest, LastCallInProgressCloses) {
  openAll();
  {
    const auto outer = handles.useRequest();
    {
      auto inner = handles.useSession();
      const auto moved = std::move(inner);
      EXPECT_TRUE(handles.close(Outcome::kCancelled));
      EXPECT_FALSE(handles.useRequest()) << "no new call on a handle that is being closed";
    }
    EXPECT_EQ(closes(), 0U);
    EXPECT_TRUE(windows.winHttp.WinHttpSetOption(outer.handle(), 31, 0x100U)) << "still usable by the call";
  }
  EXPECT_EQ(closes(), 3U);
  EXPECT_EQ(windows.openHandlesText(), "");
}

TEST_F(ExchangeHandlesTest, CloseNowDoesNotWaitForCalls) {
  openAll();
  const auto call = handles.useRequest();
  EXPECT_TRUE(handles.close(Outcome::kCancelled));
  EXPECT_EQ(closes(), 0U);
  handles.closeNow(Outcome::kFinished);
  EXPECT_EQ(closes(), 3U);
  EXPECT_EQ(handles.outcome(), Outcome::kCancelled) << "decided before";
}

TEST_F(ExchangeHandlesTest, HandleThatComesTooLateIsClosed) {
  ASSERT_TRUE(handles.begin());
  EXPECT_EQ(handles.settle(), std::nullopt) << "nothing to settle while open";
  EXPECT_TRUE(handles.close(Outcome::kCancelled));
  EXPECT_FALSE(handles.setSession(std::move(windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 0x10000000).value)));
  EXPECT_EQ(windows.openHandlesText(), "");
}

TEST_F(ExchangeHandlesTest, ConcurrentCallsAndClosesNeverUseAClosedHandle) {
  openAll();
  std::atomic<int> decisions{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int n = 0; n < 50; ++n) {
        if (const auto call = handles.useRequest()) {
          windows.winHttp.WinHttpSetOption(call.handle(), 31, 0x100U);
        }
      }
      decisions += handles.close(i % 2 == 0 ? Outcome::kFinished : Outcome::kCancelled) ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(decisions, 1);
  EXPECT_EQ(closes(), 3U);
}

}  // namespace
