#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Locks that Clang's thread-safety analysis checks (-Wthread-safety, an error in every build with Clang): a
// member that names its mutex with ZELOR_GUARDED_BY cannot be used without it. Other compilers see plain
// standard locks.
#if defined(__clang__)
#define ZELOR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZELOR_THREAD_ANNOTATION(x)
#endif
/// A data member that is used under the mutex alone.
#define ZELOR_GUARDED_BY(mutex) ZELOR_THREAD_ANNOTATION(guarded_by(mutex))
/// A function that is called with the mutex held.
#define ZELOR_REQUIRES(...) ZELOR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

namespace zelor::base {

/// std::mutex, known to the analysis. Take it with a MutexLock.
class ZELOR_THREAD_ANNOTATION(capability("mutex")) Mutex {
  public:
    void lock() ZELOR_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() ZELOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

  private:
    friend class Condition;
    std::mutex mutex_;
};

/// Holds a Mutex for its life.
class ZELOR_THREAD_ANNOTATION(scoped_lockable) MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ZELOR_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
        mutex_.lock();
    }
    ~MutexLock() ZELOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

/// Waits with a Mutex held, which is released meanwhile. As with any condition, test what is waited for in a
/// loop: a wait may end early.
class Condition {
  public:
    void wait(Mutex& mutex) ZELOR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
        condition_.wait(held);
        held.release();
    }
    /// False when it is `time`.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point time) ZELOR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
        const bool notified = condition_.wait_until(held, time) == std::cv_status::no_timeout;
        held.release();
        return notified;
    }
    void notifyAll() { condition_.notify_all(); }

  private:
    std::condition_variable condition_;
};

}  // namespace zelor::base
