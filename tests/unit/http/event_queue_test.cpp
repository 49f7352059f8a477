#include "http/event_queue.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/winhttp.h"

namespace {

TEST(EventQueueTest, OneDrainsAndClosingComesLast) {
  EventQueue queue;
  EXPECT_TRUE(queue.push({1, 10, 0}));
  EXPECT_FALSE(queue.pushClosing()) << "somebody drains already";
  EXPECT_FALSE(queue.push({2, 20, 7}));
  CallbackEvent event;
  std::vector<std::uint32_t> order;
  while (queue.pop(event)) {
    order.push_back(event.status);
  }
  EXPECT_EQ(order, std::vector<std::uint32_t>({1, 2, platform::kStatusHandleClosing}));
  EXPECT_TRUE(queue.push({3, 0, 0})) << "the drain has ended";
}

TEST(EventQueueTest, NothingIsLostAndStepsNeverOverlap) {
  constexpr int kThreads = 4;
  constexpr int kEvents = 2000;
  EventQueue queue;
  int handled = 0;  // not atomic: two drains at a time would lose updates
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kEvents; ++i) {
        CallbackEvent event;
        for (bool more = queue.push({1, 0, 0}) && queue.pop(event); more; more = queue.pop(event)) {
          const int before = handled;
          std::this_thread::yield();
          handled = before + 1;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(handled, kThreads * kEvents);
}

}  // namespace
