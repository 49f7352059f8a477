#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/handle.h"
#include "platform/result.h"
#include "tests/sim/faults.h"

namespace sim {

using Guard = std::unique_lock<std::mutex>;

/// Anything a handle leads to.
class Object {
 public:
  virtual ~Object() = default;
  virtual const char* kind() const = 0;  ///< for openHandlesText: "event", "registry key"
  virtual bool isKernelHandle() const { return false; }
};

/// What CloseHandle closes. Waitable ones say when they are signalled. All under the kernel's mutex.
class KernelObject : public Object {
 public:
  bool isKernelHandle() const override { return true; }
  virtual bool isWaitable() const { return false; }
  virtual bool isSignalled() const { return false; }
  virtual void consume() {}  ///< a wait has been satisfied: an auto-reset event falls, a mutex is taken
};

/// What the services share: the handle table, the time, the waits and the threads, under one mutex.
class Kernel {
 public:
  explicit Kernel(Faults& faultPoints) : faults(faultPoints) {}

  Faults& faults;
  mutable std::mutex mutex;  ///< never held while code of the program or of a test runs

  /// How long, in real time, a wait with a limit stays before the clock jumps to its end.
  std::chrono::milliseconds grace{20};
  /// How long, in real time, a wait without limit may last before the test is ended with a message.
  std::chrono::milliseconds hangLimit{10000};

  // --- handles
  /// A handle value is never used twice, except where `at` gives it (memory). Lock held.
  platform::NativeHandle add(std::shared_ptr<Object> object, platform::NativeHandle at = nullptr);
  /// The object of an open handle of that type, or null and a record of misuse. Lock held.
  template <class T>
  std::shared_ptr<T> get(platform::NativeHandle handle, const char* operation) {
    auto object = std::dynamic_pointer_cast<T>(find(handle));
    if (object == nullptr) {
      recordMisuse(handle, operation);
    }
    return object;
  }
  std::shared_ptr<Object> find(platform::NativeHandle handle) const;
  /// Takes an open handle of that type out of the table, or null and a record of misuse. Lock held.
  template <class T>
  std::shared_ptr<T> take(platform::NativeHandle handle, const char* operation) {
    auto object = get<T>(handle, operation);
    if (object != nullptr) {
      forget(handle);
    }
    return object;
  }
  void setInherit(platform::NativeHandle handle, bool inherit);
  std::vector<platform::NativeHandle> inheritable() const;
  void misuse(std::string text);  ///< lock held

  std::size_t openHandles() const;
  std::string openHandlesText() const;
  std::vector<std::string> misuseTexts() const;

  // --- time
  platform::FileTime now() const;
  void setNow(platform::FileTime time);
  void advance(std::uint64_t milliseconds);

  // --- waits
  /// Something a wait may look for has changed. Lock held.
  void wake();
  /// Waits until `done` (called with the lock) or, in simulated time, the limit; false at the limit. Lock held.
  bool waitUntil(Guard& guard, std::uint32_t milliseconds, const std::string& what, const std::function<bool()>& done);
  /// As waitUntil, without any limit, for what the simulation itself waits for. Lock held.
  void idle(Guard& guard, const std::function<bool()>& done);
  /// Rests: the clock goes on as soon as no simulated thread has anything to do.
  void sleep(std::uint32_t milliseconds);

  // --- threads
  /// Runs `body` on a thread of the simulation, which counts as busy unless it waits in the kernel. Lock held.
  void startThread(std::function<void()> body);
  /// Joins every thread; they must have been told to end.
  void joinThreads();

 private:
  static constexpr std::uintptr_t kFirstHandle = 0x10004;
  struct Entry {
    std::shared_ptr<Object> object;
    bool inherit = false;
  };

  class WaitScope;

  void forget(platform::NativeHandle handle) { handles_.erase(handle); }
  void recordMisuse(platform::NativeHandle handle, const char* operation);
  bool isQuiet() const { return busy_ == 0 && unsettled_ == 0; }
  void jumpTo(platform::FileTime time);

  std::condition_variable changed_;
  std::map<platform::NativeHandle, Entry> handles_;
  std::uintptr_t nextHandle_ = kFirstHandle;
  std::vector<std::string> misuse_;
  platform::FileTime now_ = 0;
  std::multiset<platform::FileTime> deadlines_;  ///< of the waits with a limit
  std::uint64_t generation_ = 0;                 ///< counts wake()
  int busy_ = 0;                                 ///< simulated threads outside any wait
  int waiting_ = 0;                              ///< simulated threads in a wait
  int unsettled_ = 0;                            ///< those that have not yet looked at the last change
  std::vector<std::thread> threads_;
};

/// A small number for the calling thread, as GetCurrentThreadId gives it.
std::uint32_t currentThreadNumber();

}  // namespace sim
