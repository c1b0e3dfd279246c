// SPDX-License-Identifier: Apache-2.0

// The mutexes of the daemon, annotated for clang's thread safety analysis, which is an error in the
// clang builds: what is GUARDED_BY a mutex cannot be touched without it.
//
// They are the standard library's own, with names for what they do: std::lock_guard and
// std::condition_variable take them, too, but the analysis sees only the locks of this header.

#pragma once

#include <chrono>
#include <mutex>
#include <shared_mutex>

#include <utils/Mutex.h>  // the annotations, for clang and for compilers that have none

namespace android::vus {

class CAPABILITY("mutex") Mutex : public std::mutex {
  public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
};

class CAPABILITY("mutex") RecursiveTimedMutex : public std::recursive_timed_mutex {
  public:
    void lock() ACQUIRE() { std::recursive_timed_mutex::lock(); }
    void unlock() RELEASE() { std::recursive_timed_mutex::unlock(); }
    bool try_lock_for(std::chrono::milliseconds time) TRY_ACQUIRE(true) {
        return std::recursive_timed_mutex::try_lock_for(time);
    }
};

class CAPABILITY("mutex") SharedMutex : public std::shared_mutex {
  public:
    void lock() ACQUIRE() { std::shared_mutex::lock(); }
    void unlock() RELEASE() { std::shared_mutex::unlock(); }
    void lock_shared() ACQUIRE_SHARED() { std::shared_mutex::lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { std::shared_mutex::unlock_shared(); }
    // Tells the analysis that the caller of the calling function holds it.
    void assert_held() const ASSERT_SHARED_CAPABILITY(this) {}
};

// Holds a mutex for the time of a scope.
template <typename MutexType = Mutex>
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(MutexType& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    MutexType& mutex_;
};

}  // namespace android::vus
