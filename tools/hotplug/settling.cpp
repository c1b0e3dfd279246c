// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/settling.h"

#include <algorithm>

namespace android::vus::hotplug {

void Settling::added(const std::string& device, Clock::time_point now) {
    deadlines_[device] = now + limit_;
}

bool Settling::bound(const std::string& device) {
    return deadlines_.erase(device) != 0;
}

bool Settling::removed(const std::string& device) {
    return deadlines_.erase(device) != 0;
}

std::vector<std::string> Settling::overdue(Clock::time_point now) {
    std::vector<std::string> devices;
    for (auto at = deadlines_.begin(); at != deadlines_.end();) {
        if (at->second > now) {
            ++at;
            continue;
        }
        devices.push_back(at->first);
        at = deadlines_.erase(at);
    }
    return devices;
}

std::optional<Settling::Clock::time_point> Settling::next_deadline() const {
    const auto next = std::min_element(deadlines_.begin(), deadlines_.end(),
                                       [](const auto& one, const auto& other) {
                                           return one.second < other.second;
                                       });
    if (next == deadlines_.end()) return std::nullopt;
    return next->second;
}

}  // namespace android::vus::hotplug
