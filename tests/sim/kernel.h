#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/clock.h"
#include "platform/handle.h"
#include "platform/objects.h"
#include "platform/result.h"
#include "tests/sim/faults.h"

namespace sim {

using Guard = std::unique_lock<std::mutex>;
// Each service of the simulation has the name of the one that it simulates; every other name is the platform's.
using namespace platform;

inline constexpr Status kDone{true, 0};

/// A failed call, whatever its output would be. The work of a call returns or throws it.
struct Failure {
  ErrorCode error;
  operator Status() const { return {false, error}; }
  template <class T>
  operator Result<T>() const {
    return {false, {}, error};
  }
};
inline void refuseIf(bool wrong, ErrorCode error) {
  if (wrong) {
    throw Failure{error};
  }
}

/// Anything that a handle refers to.
struct Object {
  virtual ~Object() = default;
  virtual const char* kind() const = 0;  ///< for openHandlesText: "event", "registry key"
  bool dependent = false;  ///< belongs to another object: not counted as open, and not closed by the program
};

/// What CloseHandle closes.
struct KernelObject : Object {};

/// What can be waited for. The kernel's mutex guards it.
struct Waitable : KernelObject {
  virtual bool isSignalled() const = 0;
  virtual void consume() {}  ///< a wait has ended by it: an auto-reset event is reset, a mutex is owned
};

/// What ReadFile and WriteFile take: files and ends of pipes. The lock is held, except while they wait. Both return a
/// number of bytes, or throw a Failure.
struct Stream : KernelObject {
  virtual std::uint32_t read(Guard& guard, std::span<std::byte> buffer) = 0;
  virtual std::uint32_t write(Guard& guard, std::span<const std::byte> data) = 0;
};

/// What the services share: the handle table, the time, the waits and the threads, under one mutex.
class Kernel {
  // The result of a call: what its work returns if that is a result, otherwise success with it.
  template <class T>
  static Result<T> success(T value) {
    return {true, std::move(value), 0};
  }
  template <class T>
  static Result<T> success(Result<T> result) {
    return result;
  }
  static Status success(Status status) { return status; }
  template <class Work, class... Objects>
  static auto invoke(const Work& work, Guard& guard, Objects&... objects) {
    if constexpr (std::is_invocable_v<Work, Objects&..., Guard&>) {
      return success(work(objects..., guard));
    } else if constexpr (std::is_void_v<std::invoke_result_t<Work, Objects&...>>) {
      work(objects...);
      return kDone;
    } else {
      return success(work(objects...));
    }
  }

 public:
  explicit Kernel(Faults& faultPoints) : faults(faultPoints) {}

  Faults& faults;
  mutable std::mutex mutex;  ///< never held while code of the program or a test runs

  // --- calls
  /// Makes a platform call: passes the fault point of its name, then runs `work` (with the guard, if it takes one)
  /// while the lock is held.
  template <class Work, class R = std::remove_const_t<decltype(invoke(std::declval<Work>(), std::declval<Guard&>()))>>
  R call(const char* name, const Work& work) {
    if (const auto error = faults.pass(name)) {
      return Failure{*error};
    }
    try {
      Guard guard(mutex);
      return invoke(work, guard);
    } catch (const Failure& failure) {
      return failure;
    }
  }
  /// Makes a platform call on an open handle, whose object is the first argument of `work`.
  template <class T, class Work>
  auto callOn(const char* name, NativeHandle handle, const Work& work) {
    return call(name, [&](Guard& guard) { return invoke(work, guard, *need<T>(handle, name)); });
  }
  /// Makes a call that closes a handle of that type. A test cannot make it fail.
  template <class T>
  Status close(const char* name, NativeHandle handle) {
    faults.note(name);
    const Guard guard(mutex);
    return take<T>(handle, name) != nullptr ? kDone : Failure{kErrorInvalidHandle};
  }
  /// Returns a copy of something that the mutex guards.
  template <class T>
  T copyOf(const T& value) const {
    const Guard guard(mutex);
    return value;
  }
  template <class T>
  void set(T& guarded, T value) {
    const Guard guard(mutex);
    guarded = std::move(value);
    wake();
  }

  std::set<NativeHandle> inheritable;  ///< open handles that children inherit; lock held
  /// What CreateFileW opens by a name that is not a file's ("CONOUT$"); lock held.
  std::map<std::wstring, std::shared_ptr<Object>> devices;

  // --- handles; lock held, except for openHandlesText
  /// Makes a handle. A value is never used twice, except one that the caller states (`at`, an address of memory).
  NativeHandle add(std::shared_ptr<Object> object, NativeHandle at = nullptr);
  /// Makes the owner that a successful opening call returns.
  template <class Handle = KernelHandle>
  Handle opened(std::shared_ptr<Object> object) {
    return Handle(add(std::move(object)));
  }
  std::shared_ptr<Object> find(NativeHandle handle) const;
  /// Returns the object of an open handle of that type, or null after recording a misuse.
  template <class T>
  std::shared_ptr<T> get(NativeHandle handle, const char* operation) {
    auto object = std::dynamic_pointer_cast<T>(find(handle));
    if (object == nullptr) {
      recordMisuse(handle, operation);
    }
    return object;
  }
  /// Returns the same object; without one the call fails with kErrorInvalidHandle.
  template <class T>
  std::shared_ptr<T> need(NativeHandle handle, const char* operation) {
    auto object = get<T>(handle, operation);
    refuseIf(object == nullptr, kErrorInvalidHandle);
    return object;
  }
  /// Returns the same object as get, and closes the handle.
  template <class T>
  std::shared_ptr<T> take(NativeHandle handle, const char* operation) {
    auto object = get<T>(handle, operation);
    if (object != nullptr && object->dependent) {
      misuse(std::string(operation) + ": the " + object->kind() + " belongs to another object");
      return nullptr;
    }
    if (object != nullptr) {
      remove(handle);
    }
    return object;
  }
  void remove(NativeHandle handle) {
    handles_.erase(handle);
    inheritable.erase(handle);
  }
  void misuse(std::string text) { misuse_.push_back(std::move(text)); }

  std::string openHandlesText() const;

  // --- time
  FileTime now() const { return copyOf(now_); }
  void setNow(FileTime time) { set(now_, time); }

  // --- waits
  /// Makes every wait check its condition again, because something has changed. Lock held.
  void wake();
  /// Waits until `done` (called with the lock) or, in simulated time, the limit; false at the limit. Lock held.
  bool waitUntil(Guard& guard, std::uint32_t milliseconds, const std::string& what, const std::function<bool()>& done);
  /// Waits until `done` without any limit, for the simulation itself. Lock held.
  void idle(Guard& guard, const std::function<bool()>& done);
  /// Sleeps in simulated time, which moves on as soon as no simulated thread has anything to do.
  void sleep(std::uint32_t milliseconds);

  // --- threads
  /// Runs `body` on a thread of the simulation, which is busy except while it waits in the kernel. Lock held.
  void startThread(std::function<void()> body);
  /// Waits for the end of every thread, which something else must have caused.
  void joinThreads();

 private:
  /// How long, in real time, nothing happens before the clock jumps to the end of the next wait with a limit.
  static constexpr std::chrono::milliseconds kGrace{20};
  /// How long, in real time, a wait without limit may last before it ends the test with a message.
  static constexpr std::chrono::milliseconds kHangLimit{60000};

  void recordMisuse(NativeHandle handle, const char* operation);
  void rest(Guard& guard);
  void jumpTo(FileTime time);

  std::condition_variable changed_;
  std::condition_variable quiet_;  ///< notified when no simulated thread is busy any more
  std::map<NativeHandle, std::shared_ptr<Object>> handles_;
  std::uintptr_t nextHandle_ = 0x10004;
  std::vector<std::string> misuse_;
  FileTime now_ = 0;
  std::multiset<FileTime> deadlines_;  ///< of the waits
  std::uint64_t generation_ = 0;       ///< counts the calls of wake()
  int busy_ = 0;     ///< simulated threads that do not wait, or have not yet checked after the last change
  int waiting_ = 0;  ///< the others
  std::vector<std::thread> threads_;
};

}  // namespace sim
