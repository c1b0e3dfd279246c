// SPDX-License-Identifier: Apache-2.0
//
// Lanes: jobs one after the other within a lane, and beside those of every other lane.
//
// What is done with a device can take as long as the device keeps the kernel waiting, so each
// device has a lane of its own, and while that holds something a thread. The object owns the
// threads and waits for them when it is destroyed. Thread-safe; jobs may add jobs.

#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <string>

#include "android/vus/mutex.h"

namespace android::vus::hotplug {

class Lanes {
  public:
    Lanes() = default;
    ~Lanes() { drain(); }
    Lanes(const Lanes&) = delete;
    Lanes& operator=(const Lanes&) = delete;

    void add(const std::string& lane, std::function<void()> job);
    // Waits until every job is done.
    void drain();

  private:
    void work(const std::string& lane);

    Mutex mutex_;
    std::condition_variable_any idle_;
    // Each has a thread at work.
    std::map<std::string, std::deque<std::function<void()>>> lanes_ GUARDED_BY(mutex_);
};

}  // namespace android::vus::hotplug
