// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/settling.h"

#include <algorithm>

namespace android::vus::hotplug {

void Settling::added(const std::string& device, Clock::time_point now) {
    waits_[device] = {now + bind_limit_, now + bind_limit_, /*for_bind=*/true};
}

void Settling::interface_added(const std::string& device, Clock::time_point now) {
    const Wait quiet = {now + quiet_time_, now + 2 * quiet_time_, /*for_bind=*/false};
    const auto [at, fresh] = waits_.try_emplace(device, quiet);
    Wait& wait = at->second;
    if (!fresh && !wait.for_bind) wait.deadline = std::min(quiet.deadline, wait.limit);
}

void Settling::interface_bound(const std::string& device, Clock::time_point now) {
    if (waits_for(device)) interface_added(device, now);
}

std::vector<std::string> Settling::overdue(Clock::time_point now) {
    std::vector<std::string> devices;
    for (auto at = waits_.begin(); at != waits_.end();) {
        if (at->second.deadline > now) {
            ++at;
            continue;
        }
        devices.push_back(at->first);
        at = waits_.erase(at);
    }
    return devices;
}

std::optional<Settling::Clock::time_point> Settling::next_deadline() const {
    const auto next =
            std::min_element(waits_.begin(), waits_.end(), [](const auto& one, const auto& other) {
                return one.second.deadline < other.second.deadline;
            });
    if (next == waits_.end()) return std::nullopt;
    return next->second.deadline;
}

}  // namespace android::vus::hotplug
