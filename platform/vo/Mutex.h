#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

/// @file
/// Lock types that clang's thread-safety analysis understands.
///
/// They add nothing to the standard types but the attributes, so that "which mutex guards this
/// member" and "this helper needs that lock" are checked by the compiler instead of by readers.

#if defined(__clang__)
#define VO_ATTRIBUTE(x) __attribute__((x))
#else
#define VO_ATTRIBUTE(x)
#endif

#define VO_CAPABILITY(name) VO_ATTRIBUTE(capability(name))
#define VO_SCOPED_CAPABILITY VO_ATTRIBUTE(scoped_lockable)
#define VO_GUARDED_BY(mutex) VO_ATTRIBUTE(guarded_by(mutex))
#define VO_REQUIRES(...) VO_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VO_REQUIRES_SHARED(...) VO_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define VO_EXCLUDES(...) VO_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define VO_ACQUIRE(...) VO_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VO_ACQUIRE_SHARED(...) VO_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define VO_RELEASE(...) VO_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VO_RELEASE_GENERIC(...) VO_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define VO_TRY_ACQUIRE(...) VO_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VO_RETURN_CAPABILITY(mutex) VO_ATTRIBUTE(lock_returned(mutex))
#define VO_ACQUIRED_BEFORE(...) VO_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define VO_NO_THREAD_SAFETY_ANALYSIS VO_ATTRIBUTE(no_thread_safety_analysis)

namespace vo {

/// A non-recursive mutex. Meets the standard's Lockable requirements.
class VO_CAPABILITY("mutex") Mutex {
public:
    void lock() VO_ACQUIRE() { mutex_.lock(); }
    void unlock() VO_RELEASE() { mutex_.unlock(); }
    bool try_lock() VO_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    friend class Condition;

    std::mutex mutex_;
};

/// What threads wait for that hold a Mutex: std::condition_variable, which costs neither the memory
/// nor the second lock of std::condition_variable_any. A wait may end for no reason.
class Condition {
public:
    void wait(Mutex& mutex) VO_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        woken_.wait(lock);
        lock.release();
    }
    void waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point end) VO_REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        woken_.wait_until(lock, end);
        lock.release();
    }
    void notifyOne() { woken_.notify_one(); }
    void notifyAll() { woken_.notify_all(); }

private:
    std::condition_variable woken_;
};

/// A reader/writer mutex.
class VO_CAPABILITY("shared mutex") SharedMutex {
public:
    void lock() VO_ACQUIRE() { mutex_.lock(); }
    void unlock() VO_RELEASE() { mutex_.unlock(); }
    void lock_shared() VO_ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlock_shared() VO_RELEASE() { mutex_.unlock_shared(); }

private:
    std::shared_mutex mutex_;
};

/// Holds a Mutex, or a SharedMutex exclusively, for a scope.
template <class M>
class VO_SCOPED_CAPABILITY Lock {
public:
    explicit Lock(M& mutex) VO_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() VO_RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    M& mutex_;
};

/// Holds a SharedMutex shared for a scope.
class VO_SCOPED_CAPABILITY SharedLock {
public:
    explicit SharedLock(SharedMutex& mutex) VO_ACQUIRE_SHARED(mutex) : mutex_(mutex)
    {
        mutex_.lock_shared();
    }
    ~SharedLock() VO_RELEASE_GENERIC() { mutex_.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

private:
    SharedMutex& mutex_;
};

}  // namespace vo
