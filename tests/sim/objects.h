#pragma once

#include "platform/objects.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Events, mutexes and waits. A wait with a limit for something that is never signalled takes about 20 ms of real time
/// and moves the clock to its end. A wait without limit that nothing ends aborts the test after a minute, with a
/// message.
class Objects : public platform::Objects {
 public:
  explicit Objects(Kernel& kernel) : kernel_(kernel) {}

  /// Adds a mutex that another process has made and owns.
  void addMutex(const std::wstring& name) {
    const Guard guard(kernel_.mutex);
    foreign_ = std::make_shared<Mutex>();
    foreign_->depth = 1;
    mutexes_[name] = foreign_;
  }
  /// Returns "none" when no handle to it is open, "held" when a thread of this process owns it, otherwise "free".
  std::string mutexState(const std::wstring& name) const {
    const Guard guard(kernel_.mutex);
    const auto mutex = findMutex(name);
    return mutex == nullptr ? "none" : mutex->depth != 0 && mutex->owner != std::thread::id() ? "held" : "free";
  }

  Result<KernelHandle> CreateEventW(bool manualReset, bool initialState) override {
    return kernel_.call(__func__, [&] { return kernel_.opened(std::make_shared<Event>(manualReset, initialState)); });
  }
  Status SetEvent(NativeHandle event) override {
    return kernel_.callOn<Event>(__func__, event, [&](Event& object) {
      object.set = true;
      kernel_.wake();
    });
  }
  Result<KernelHandle> CreateMutexW(bool initialOwner, const std::wstring& name) override {
    return kernel_.call(__func__, [&]() -> Result<KernelHandle> {
      auto mutex = findMutex(name);
      const bool existed = mutex != nullptr;
      if (!existed) {
        mutexes_[name] = mutex = std::make_shared<Mutex>();
      }
      if (initialOwner && !existed) {
        mutex->consume();
      }
      return {true, kernel_.opened(mutex), existed ? kErrorAlreadyExists : 0};
    });
  }
  Status ReleaseMutex(NativeHandle mutex) override {
    return kernel_.callOn<Mutex>(__func__, mutex, [&](Mutex& object) {
      refuseIf(object.depth == 0 || object.owner != std::this_thread::get_id(), kErrorNotOwner);
      if (--object.depth == 0) {
        object.owner = {};
      }
      kernel_.wake();
    });
  }
  Result<std::uint32_t> WaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) override {
    return wait({&handle, 1}, milliseconds, __func__);
  }
  /// Waits for any of the handles, never for all.
  Result<std::uint32_t> WaitForMultipleObjects(std::span<const NativeHandle> handles, bool,
                                               std::uint32_t milliseconds) override {
    return wait(handles, milliseconds, __func__);
  }
  /// Can only make a handle not inheritable.
  Status SetHandleInformation(NativeHandle handle, std::uint32_t mask, std::uint32_t flags) override {
    return kernel_.callOn<KernelObject>(__func__, handle, [&](KernelObject&) {
      refuseIf(mask != kHandleFlagInherit || flags != 0, kErrorInvalidParameter);
      kernel_.inheritable.erase(handle);
    });
  }
  Status CloseHandle(NativeHandle handle) override { return kernel_.close<KernelObject>(__func__, handle); }

 private:
  static constexpr ErrorCode kErrorNotOwner = 288;
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
  Result<std::uint32_t> wait(std::span<const NativeHandle> handles, std::uint32_t milliseconds, const char* operation) {
    auto result = kernel_.call(operation, [&](Guard& guard) {
      std::vector<std::shared_ptr<Waitable>> objects;
      std::string what = std::string(operation) + " on";
      for (const auto handle : handles) {
        objects.push_back(kernel_.need<Waitable>(handle, operation));
        what += std::string(" ") + objects.back()->kind();
      }
      auto first = objects.end();
      const bool ended = kernel_.waitUntil(guard, milliseconds, what, [&] {
        first = std::ranges::find_if(objects, [](const auto& object) { return object->isSignalled(); });
        return first != objects.end();
      });
      if (!ended) {
        return kWaitTimeout;
      }
      (*first)->consume();
      return kWaitObject0 + static_cast<std::uint32_t>(first - objects.begin());
    });
    result.value = result.ok ? result.value : platform::kWaitFailed;  // not the exit code
    return result;
  }

  Kernel& kernel_;
  std::map<std::wstring, std::weak_ptr<Mutex>> mutexes_;
  std::shared_ptr<Mutex> foreign_;
};

}  // namespace sim
