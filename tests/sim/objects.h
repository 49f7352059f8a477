#pragma once

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
  void addMutex(const std::wstring& name);
  /// Whether a mutex of that name exists (somebody has a handle to it).
  bool mutexExists(const std::wstring& name) const;
  /// Whether the mutex is taken by a thread of this process.
  bool mutexHeld(const std::wstring& name) const;
  /// Names given to CreateMutexW so far.
  std::vector<std::wstring> mutexNames() const;

  platform::Result<platform::KernelHandle> CreateEventW(bool manualReset, bool initialState) override;
  platform::Status SetEvent(platform::NativeHandle event) override;
  platform::Result<platform::KernelHandle> CreateMutexW(bool initialOwner, const std::wstring& name) override;
  platform::Status ReleaseMutex(platform::NativeHandle mutex) override;
  platform::Result<std::uint32_t> WaitForSingleObject(platform::NativeHandle handle,
                                                      std::uint32_t milliseconds) override;
  platform::Result<std::uint32_t> WaitForMultipleObjects(std::span<const platform::NativeHandle> handles, bool waitAll,
                                                         std::uint32_t milliseconds) override;
  platform::Status SetHandleInformation(platform::NativeHandle handle, std::uint32_t mask,
                                        std::uint32_t flags) override;
  platform::Status CloseHandle(platform::NativeHandle handle) override;

 private:
  struct Event;
  struct Mutex;
  platform::Result<std::uint32_t> wait(std::span<const platform::NativeHandle> handles, bool waitAll,
                                       std::uint32_t milliseconds, const char* operation);

  Kernel& kernel_;
  std::map<std::wstring, std::weak_ptr<Mutex>> mutexes_;
  std::vector<std::shared_ptr<Mutex>> foreign_;
  std::vector<std::wstring> names_;
};

}  // namespace sim
