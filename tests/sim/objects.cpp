#include "tests/sim/objects.h"

#include <algorithm>
#include <thread>

namespace sim {

namespace {
constexpr platform::ErrorCode kErrorNotOwner = 288;
}  // namespace

struct Objects::Event : KernelObject {
  Event(bool manual, bool initial) : manualReset(manual), set(initial) {}
  const char* kind() const override { return "event"; }
  bool isWaitable() const override { return true; }
  bool isSignalled() const override { return set; }
  void consume() override { set = manualReset; }
  const bool manualReset;
  bool set;
};

struct Objects::Mutex : KernelObject {
  const char* kind() const override { return "mutex"; }
  bool isWaitable() const override { return true; }
  bool isSignalled() const override { return depth == 0 || owner == std::this_thread::get_id(); }
  void consume() override {
    owner = std::this_thread::get_id();
    ++depth;
  }
  std::thread::id owner;
  int depth = 0;
};

void Objects::addMutex(const std::wstring& name) {
  const Guard guard(kernel_.mutex);
  auto mutex = std::make_shared<Mutex>();
  mutex->depth = 1;
  mutexes_[name] = mutex;
  foreign_.push_back(std::move(mutex));
}

bool Objects::mutexExists(const std::wstring& name) const {
  const Guard guard(kernel_.mutex);
  const auto found = mutexes_.find(name);
  return found != mutexes_.end() && !found->second.expired();
}

bool Objects::mutexHeld(const std::wstring& name) const {
  const Guard guard(kernel_.mutex);
  const auto found = mutexes_.find(name);
  const auto mutex = found == mutexes_.end() ? nullptr : found->second.lock();
  return mutex != nullptr && mutex->depth != 0 && mutex->owner != std::thread::id();
}

std::vector<std::wstring> Objects::mutexNames() const {
  const Guard guard(kernel_.mutex);
  return names_;
}

platform::Result<platform::KernelHandle> Objects::CreateEventW(bool manualReset, bool initialState) {
  if (const auto error = kernel_.faults.pass("CreateEventW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  return {true, platform::KernelHandle(kernel_.add(std::make_shared<Event>(manualReset, initialState))), 0};
}

platform::Status Objects::SetEvent(platform::NativeHandle event) {
  if (const auto error = kernel_.faults.pass("SetEvent")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Event>(event, "SetEvent");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  object->set = true;
  kernel_.wake();
  return {true, 0};
}

platform::Result<platform::KernelHandle> Objects::CreateMutexW(bool initialOwner, const std::wstring& name) {
  if (const auto error = kernel_.faults.pass("CreateMutexW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  names_.push_back(name);
  auto mutex = name.empty() ? nullptr : mutexes_[name].lock();
  const bool existed = mutex != nullptr;
  if (!existed) {
    mutex = std::make_shared<Mutex>();
    if (initialOwner) {
      mutex->consume();
    }
    mutexes_[name] = mutex;
  }
  return {true, platform::KernelHandle(kernel_.add(mutex)), existed ? platform::kErrorAlreadyExists : 0};
}

platform::Status Objects::ReleaseMutex(platform::NativeHandle mutex) {
  if (const auto error = kernel_.faults.pass("ReleaseMutex")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Mutex>(mutex, "ReleaseMutex");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  if (object->depth == 0 || object->owner != std::this_thread::get_id()) {
    return {false, kErrorNotOwner};
  }
  if (--object->depth == 0) {
    object->owner = {};
  }
  kernel_.wake();
  return {true, 0};
}

platform::Result<std::uint32_t> Objects::wait(std::span<const platform::NativeHandle> handles, bool waitAll,
                                              std::uint32_t milliseconds, const char* operation) {
  if (const auto error = kernel_.faults.pass(operation)) {
    return {false, platform::kWaitFailed, *error};
  }
  Guard guard(kernel_.mutex);
  std::vector<std::shared_ptr<KernelObject>> objects;
  std::string what = std::string(operation) + " on";
  for (const auto handle : handles) {
    objects.push_back(kernel_.get<KernelObject>(handle, operation));
    if (objects.back() == nullptr || !objects.back()->isWaitable()) {
      return {false, platform::kWaitFailed, platform::kErrorInvalidHandle};
    }
    what += std::string(" ") + objects.back()->kind();
  }
  std::uint32_t index = 0;
  const auto isSignalled = [](const auto& object) { return object->isSignalled(); };
  const bool ended = kernel_.waitUntil(guard, milliseconds, what, [&] {
    const auto first = std::find_if(objects.begin(), objects.end(), isSignalled);
    index = static_cast<std::uint32_t>(first - objects.begin());
    return waitAll ? std::all_of(objects.begin(), objects.end(), isSignalled) : first != objects.end();
  });
  if (!ended) {
    return {true, platform::kWaitTimeout, 0};
  }
  if (waitAll) {
    std::for_each(objects.begin(), objects.end(), [](const auto& object) { object->consume(); });
    return {true, platform::kWaitObject0, 0};
  }
  objects[index]->consume();
  return {true, platform::kWaitObject0 + index, 0};
}

platform::Result<std::uint32_t> Objects::WaitForSingleObject(platform::NativeHandle handle,
                                                             std::uint32_t milliseconds) {
  return wait({&handle, 1}, false, milliseconds, "WaitForSingleObject");
}

platform::Result<std::uint32_t> Objects::WaitForMultipleObjects(std::span<const platform::NativeHandle> handles,
                                                                bool waitAll, std::uint32_t milliseconds) {
  return wait(handles, waitAll, milliseconds, "WaitForMultipleObjects");
}

platform::Status Objects::SetHandleInformation(platform::NativeHandle handle, std::uint32_t mask, std::uint32_t flags) {
  if (const auto error = kernel_.faults.pass("SetHandleInformation")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  if (kernel_.get<KernelObject>(handle, "SetHandleInformation") == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  if ((mask & platform::kHandleFlagInherit) != 0) {
    kernel_.setInherit(handle, (flags & platform::kHandleFlagInherit) != 0);
  }
  return {true, 0};
}

platform::Status Objects::CloseHandle(platform::NativeHandle handle) {
  kernel_.faults.note("CloseHandle");
  if (handle == platform::invalidHandleValue()) {
    return {true, 0};  // also the value of GetCurrentProcess, which may be closed without effect
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.take<KernelObject>(handle, "CloseHandle");
  return {object != nullptr, object != nullptr ? 0 : platform::kErrorInvalidHandle};
}

}  // namespace sim
