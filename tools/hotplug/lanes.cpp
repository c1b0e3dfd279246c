// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/lanes.h"

#include <thread>
#include <utility>

namespace android::vus::hotplug {

void Lanes::add(const std::string& lane, std::function<void()> job) {
    const MutexLock lock(mutex_);
    const auto [jobs, fresh] = lanes_.try_emplace(lane);
    jobs->second.push_back(std::move(job));
    // Detached, because nobody waits for one of them; drain() waits for all.
    if (fresh) std::thread(&Lanes::work, this, lane).detach();
}

void Lanes::drain() {
    const MutexLock lock(mutex_);
    while (!lanes_.empty()) idle_.wait(mutex_);
}

void Lanes::work(const std::string& lane) {
    const MutexLock lock(mutex_);
    const auto jobs = lanes_.find(lane);
    while (!jobs->second.empty()) {
        auto job = std::move(jobs->second.front());
        jobs->second.pop_front();
        mutex_.unlock();
        job();
        job = nullptr;  // what it holds may take its time to go
        mutex_.lock();
    }
    lanes_.erase(jobs);
    // Under the lock: the object may be gone as soon as it is free.
    idle_.notify_all();
}

}  // namespace android::vus::hotplug
