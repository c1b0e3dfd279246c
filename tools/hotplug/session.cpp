// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/session.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// What was not taken of the list is still to be, by whichever session comes to it first.
std::shared_ptr<Session> Session::under_another_policy() {
    return std::shared_ptr<Session>(new Session(service_, list_));
}

std::optional<DeviceInfo> Session::take_listed(const std::string& key) {
    ensure_list();
    const MutexLock lock(list_->mutex);
    const auto found = list_->records.find(key);
    if (found == list_->records.end()) return std::nullopt;
    std::optional<DeviceInfo> record = std::move(found->second);
    list_->records.erase(found);
    return record;
}

std::optional<DeviceInfo> Session::listed(const std::string& key) {
    ensure_list();
    const MutexLock lock(list_->mutex);
    const auto found = list_->records.find(key);
    return found == list_->records.end() ? std::nullopt : std::make_optional(found->second);
}

std::set<std::string> Session::listed() {
    ensure_list();
    const MutexLock lock(list_->mutex);
    std::set<std::string> keys;
    for (const auto& [key, record] : list_->records) keys.insert(key);
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

// Nobody waits for this but who needs the list.
void Session::ensure_list() {
    const MutexLock asking(list_->asking);
    if (list_->asked) return;
    list_->asked = true;
    std::vector<DeviceInfo> records;
    if (!service_->getDeviceList(&records).isOk()) return;
    const MutexLock lock(list_->mutex);
    for (const DeviceInfo& record : records) {
        const Subject subject = record.deviceType == kUsbType
                                        ? Subject{"", record.deviceId}
                                        : Subject{"input" + std::to_string(record.deviceId)};
        list_->records[subject.key()] = record;
    }
}

}  // namespace android::vus::hotplug
