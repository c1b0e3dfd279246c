// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/patience.h"

namespace android::vus::hotplug {

void Patience::begin(const Subject& device, Clock::time_point now) {
    const MutexLock lock(mutex_);
    const auto [at, fresh] = waits_.try_emplace(device.key(), Wait{device, now + limit_, 0, false});
    Wait& wait = at->second;
    ++wait.answers;
    if (!wait.lost) return;
    wait.deadline = now + limit_;
    wait.lost = false;
}

void Patience::end(const Subject& device) {
    const MutexLock lock(mutex_);
    const auto wait = waits_.find(device.key());
    if (wait != waits_.end() && --wait->second.answers == 0) waits_.erase(wait);
}

std::vector<Subject> Patience::lost(Clock::time_point now) {
    const MutexLock lock(mutex_);
    std::vector<Subject> devices;
    for (auto& [key, wait] : waits_) {
        if (wait.lost || wait.deadline > now) continue;
        wait.lost = true;
        devices.push_back(wait.device);
    }
    return devices;
}

std::optional<Patience::Clock::time_point> Patience::next_deadline() const {
    const MutexLock lock(mutex_);
    std::optional<Clock::time_point> next;
    for (const auto& [key, wait] : waits_) {
        if (!wait.lost && (!next || wait.deadline < *next)) next = wait.deadline;
    }
    return next;
}

}  // namespace android::vus::hotplug
