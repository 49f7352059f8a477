#pragma once

#include <algorithm>
#include <map>

#include "platform/objects.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Events, mutexes and waits. A wait with a limit on something that is never signalled costs about the kernel's grace
/// in real time and moves the clock to its end; a wait without limit that nothing ends aborts the test after ten
/// seconds, naming itself.
class Objects : public platform::Objects {
 public:
  explicit Objects(Kernel& kernel) : kernel_(kernel) {}

  /// A mutex that another process has made and holds.
  void addMutex(const std::wstring& name) {
    const Guard guard(kernel_.mutex);
    const auto mutex = foreign_.emplace_back(std::make_shared<Mutex>());
    mutex->depth = 1;
    mutexes_[name] = mutex;
  }
  /// Whether a mutex of that name exists (somebody has a handle to it).
  bool mutexExists(const std::wstring& name) const {
    const Guard guard(kernel_.mutex);
    return findMutex(name) != nullptr;
  }
  /// Whether the mutex is taken by a thread of this process.
  bool mutexHeld(const std::wstring& name) const {
    const Guard guard(kernel_.mutex);
    const auto mutex = findMutex(name);
    return mutex != nullptr && mutex->depth != 0 && mutex->owner != std::thread::id();
  }

  Result<KernelHandle> CreateEventW(bool manualReset, bool initialState) override {
    return kernel_.call("CreateEventW",
                        [&] { return kernel_.opened(std::make_shared<Event>(manualReset, initialState)); });
  }
  Status SetEvent(NativeHandle event) override {
    return kernel_.callOn<Event>("SetEvent", event, [&](Event& object) {
      object.set = true;
      kernel_.wake();
      return kDone;
    });
  }
  Result<KernelHandle> CreateMutexW(bool initialOwner, const std::wstring& name) override {
    return kernel_.call("CreateMutexW", [&] {
      auto mutex = name.empty() ? nullptr : findMutex(name);
      if (mutex != nullptr) {
        return kernel_.opened(mutex, platform::kErrorAlreadyExists);
      }
      mutex = std::make_shared<Mutex>();
      if (initialOwner) {
        mutex->consume();
      }
      mutexes_[name] = mutex;
      return kernel_.opened(mutex);
    });
  }
  Status ReleaseMutex(NativeHandle mutex) override {
    return kernel_.callOn<Mutex>("ReleaseMutex", mutex, [&](Mutex& object) -> Status {
      if (object.depth == 0 || object.owner != std::this_thread::get_id()) {
        return Failure{kErrorNotOwner};
      }
      if (--object.depth == 0) {
        object.owner = {};
      }
      kernel_.wake();
      return kDone;
    });
  }
  Result<std::uint32_t> WaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) override {
    return wait({&handle, 1}, false, milliseconds, "WaitForSingleObject");
  }
  Result<std::uint32_t> WaitForMultipleObjects(std::span<const NativeHandle> handles, bool waitAll,
                                               std::uint32_t milliseconds) override {
    return wait(handles, waitAll, milliseconds, "WaitForMultipleObjects");
  }
  /// Only to take the inheriting away.
  Status SetHandleInformation(NativeHandle handle, std::uint32_t mask, std::uint32_t flags) override {
    return kernel_.callOn<KernelObject>("SetHandleInformation", handle, [&](KernelObject&) -> Status {
      if (mask != platform::kHandleFlagInherit || flags != 0) {
        return Failure{platform::kErrorInvalidParameter};
      }
      kernel_.inheritable.erase(handle);
      return kDone;
    });
  }
  Status CloseHandle(NativeHandle handle) override {
    if (handle == platform::invalidHandleValue()) {  // also the value of GetCurrentProcess: closed without effect
      kernel_.faults.note("CloseHandle");
      return kDone;
    }
    return kernel_.close<KernelObject>("CloseHandle", handle);
  }

 private:
  static constexpr platform::ErrorCode kErrorNotOwner = 288;
  struct Event : Waitable {
    Event(bool manual, bool initial) : manualReset(manual), set(initial) {}
    const char* kind() const override { return "event"; }
    bool isSignalled() const override { return set; }
    void consume() override { set = manualReset; }
    const bool manualReset;
    bool set;
  };

  struct Mutex : Waitable {
    const char* kind() const override { return "mutex"; }
    bool isSignalled() const override { return depth == 0 || owner == std::this_thread::get_id(); }
    void consume() override {
      owner = std::this_thread::get_id();
      ++depth;
    }
    std::thread::id owner;
    int depth = 0;
  };

  std::shared_ptr<Mutex> findMutex(const std::wstring& name) const {
    const auto found = mutexes_.find(name);
    return found == mutexes_.end() ? nullptr : found->second.lock();
  }
  Result<std::uint32_t> wait(std::span<const NativeHandle> handles, bool waitAll, std::uint32_t milliseconds,
                             const char* operation) {
    auto result = kernel_.call(operation, [&](Guard& guard) -> Result<std::uint32_t> {
      std::vector<std::shared_ptr<Waitable>> objects;
      std::string what = std::string(operation) + " on";
      for (const auto handle : handles) {
        objects.push_back(kernel_.get<Waitable>(handle, operation));
        if (objects.back() == nullptr) {
          return Failure{platform::kErrorInvalidHandle};
        }
        what += std::string(" ") + objects.back()->kind();
      }
      auto first = objects.end();
      const auto isSignalled = [](const auto& object) { return object->isSignalled(); };
      const bool ended = kernel_.waitUntil(guard, milliseconds, what, [&] {
        first = std::find_if(objects.begin(), objects.end(), isSignalled);
        return waitAll ? std::all_of(objects.begin(), objects.end(), isSignalled) : first != objects.end();
      });
      if (!ended) {
        return {true, platform::kWaitTimeout, 0};
      }
      std::for_each(first, waitAll ? objects.end() : first + 1, [](const auto& object) { object->consume(); });
      return {true, platform::kWaitObject0 + static_cast<std::uint32_t>(first - objects.begin()), 0};
    });
    result.value = result.ok ? result.value : platform::kWaitFailed;
    return result;
  }

  Kernel& kernel_;
  std::map<std::wstring, std::weak_ptr<Mutex>> mutexes_;
  std::vector<std::shared_ptr<Mutex>> foreign_;
};

}  // namespace sim
