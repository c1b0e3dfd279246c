// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/session.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// What was not taken of the list is still to be.
std::shared_ptr<Session> Session::under_another_policy() {
    auto next = std::make_shared<Session>(service_);
    const MutexLock lock(mutex_);
    const MutexLock of_next(next->mutex_);
    next->asked_ = asked_;
    next->listed_ = std::move(listed_);
    listed_.clear();
    return next;
}

std::optional<DeviceInfo> Session::take_listed(const std::string& key) {
    const MutexLock lock(mutex_);
    ensure_list();
    const auto found = listed_.find(key);
    if (found == listed_.end()) return std::nullopt;
    std::optional<DeviceInfo> record = std::move(found->second);
    listed_.erase(found);
    return record;
}

std::optional<DeviceInfo> Session::listed(const std::string& key) {
    const MutexLock lock(mutex_);
    ensure_list();
    const auto found = listed_.find(key);
    return found == listed_.end() ? std::nullopt : std::make_optional(found->second);
}

std::set<std::string> Session::listed() {
    const MutexLock lock(mutex_);
    ensure_list();
    std::set<std::string> keys;
    for (const auto& [key, record] : listed_) keys.insert(key);
    return keys;
}

bool Session::lists(const DeviceInfo& device) {
    std::vector<DeviceInfo> records;
    // No answer: refusal is what is left.
    if (!service_->getDeviceList(&records).isOk()) return true;
    return std::any_of(records.begin(), records.end(), [&](const DeviceInfo& record) {
        return record.deviceType == device.deviceType && record.deviceId == device.deviceId;
    });
}

void Session::ensure_list() {
    if (asked_) return;
    asked_ = true;
    std::vector<DeviceInfo> records;
    if (!service_->getDeviceList(&records).isOk()) return;
    for (const DeviceInfo& record : records) {
        const Subject subject = record.deviceType == kUsbType
                                        ? Subject{"", record.deviceId}
                                        : Subject{"input" + std::to_string(record.deviceId)};
        listed_[subject.key()] = record;
    }
}

}  // namespace android::vus::hotplug
