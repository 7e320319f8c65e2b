#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Locks that Clang's thread-safety analysis checks (-Wthread-safety, an error in every build with Clang): a
// member that names its mutex with ZELOR_GUARDED_BY cannot be used without holding it.
#if defined(__clang__)
/// An attribute of the analysis.
#define ZELOR_THREAD_ANNOTATION(x) __attribute__((x))
#else
/// Nothing: other compilers have no such analysis.
#define ZELOR_THREAD_ANNOTATION(x)
#endif
/// Marks a data member that is used only while `mutex` is held.
#define ZELOR_GUARDED_BY(mutex) ZELOR_THREAD_ANNOTATION(guarded_by(mutex))
/// Marks a function that is called with these mutexes held.
#define ZELOR_REQUIRES(...) ZELOR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

namespace zelor::base {

/// std::mutex, known to the analysis. Take it with a MutexLock.
class ZELOR_THREAD_ANNOTATION(capability("mutex")) Mutex {
  public:
    /// Blocks until no other thread holds the mutex; a thread must not lock it twice.
    void lock() ZELOR_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
    void unlock() ZELOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }

  private:
    friend class Condition;
    std::mutex mutex_;
};

/// Holds a Mutex for its life.
class ZELOR_THREAD_ANNOTATION(scoped_lockable) MutexLock {
  public:
    /// Locks `mutex`, which must outlive the object.
    explicit MutexLock(Mutex& mutex) ZELOR_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
        mutex_.lock();
    }
    ~MutexLock() ZELOR_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

/// A condition variable for a Mutex. Waiting releases the mutex, which the caller holds, and takes it again
/// before it returns. Test the condition in a loop: a wait may end early.
class Condition {
  public:
    /// Waits for `notifyAll`.
    void wait(Mutex& mutex) ZELOR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
        condition_.wait(held);
        held.release();
    }
    /// The same until `time` at most; false when the wait ended because of it.
    bool waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point time) ZELOR_REQUIRES(mutex) {
        std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
        const bool notified = condition_.wait_until(held, time) == std::cv_status::no_timeout;
        held.release();
        return notified;
    }
    /// Ends the wait of every thread that waits now. Any thread, with or without the mutex.
    void notifyAll() { condition_.notify_all(); }

  private:
    std::condition_variable condition_;
};

}  // namespace zelor::base
