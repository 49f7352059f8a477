#pragma once

#include <mutex>

// Labels that say which lock guards what. Clang checks them when it compiles (-Wthread-safety); other compilers ignore
// them. Source: the Clang documentation, "Thread Safety Analysis".
#if defined(__clang__)
#define MDDCT_THREAD_LABEL(label) __attribute__((label))
#else
#define MDDCT_THREAD_LABEL(label)
#endif

/// On a member: it is read and written only while that mutex is held.
#define GUARDED_BY(mutex) MDDCT_THREAD_LABEL(guarded_by(mutex))
/// On a function: the caller holds that mutex.
#define REQUIRES(mutex) MDDCT_THREAD_LABEL(requires_capability(mutex))
/// On a function: the caller does not hold that mutex.
#define EXCLUDES(mutex) MDDCT_THREAD_LABEL(locks_excluded(mutex))
/// On a function whose locking the analysis cannot follow; a comment says why it is right.
#define NO_THREAD_SAFETY_ANALYSIS MDDCT_THREAD_LABEL(no_thread_safety_analysis)

namespace CORE {

/// A std::mutex that the labels can refer to.
class MDDCT_THREAD_LABEL(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() MDDCT_THREAD_LABEL(acquire_capability()) { mutex_.lock(); }
  void unlock() MDDCT_THREAD_LABEL(release_capability()) { mutex_.unlock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// Holds a Mutex until the end of its scope, except between unlock() and lock(). One thread uses it.
class MDDCT_THREAD_LABEL(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) MDDCT_THREAD_LABEL(acquire_capability(mutex)) : lock_(mutex.mutex_) {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  ~MutexLock() MDDCT_THREAD_LABEL(release_capability()) = default;

  void lock() MDDCT_THREAD_LABEL(acquire_capability()) { lock_.lock(); }
  void unlock() MDDCT_THREAD_LABEL(release_capability()) { lock_.unlock(); }

  /// Returns the lock that a std::condition_variable needs: its waits release the mutex and take it again.
  std::unique_lock<std::mutex>& native() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace CORE
