// SPDX-License-Identifier: Apache-2.0
//
// What is present, compared with what is known here, and with what the daemon has listed.

#include <string.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "tools/hotplug/reporter.h"

namespace android::vus::hotplug {

namespace {

using Ids = std::pair<int32_t, int32_t>;

Ids ids_of(const DeviceInfo& info) {
    return {info.vendorId, info.productId};
}

// The four hexadecimal digits of a name from `at` on; 0 if it has none there.
int32_t hexadecimal_at(const std::string& name, size_t at) {
    constexpr size_t kDigits = 4;
    uint32_t number = 0;
    if (name.size() >= at + kDigits) {
        std::from_chars(name.data() + at, name.data() + at + kDigits, number, 16);
    }
    return static_cast<int32_t>(number);
}

// A HID device's name is its bus, vendor, product and a number, such as 0003:046D:C31C.0001.
Ids hid_ids(const std::string& name) {
    return {hexadecimal_at(name, strlen("0003:")), hexadecimal_at(name, strlen("0003:046D:"))};
}

}  // namespace

void Reporter::keep_only(const Present& present) {
    if (manner_.closings != nullptr) manner_.closings->keep_only(present.keys);
    const SharedSession told = session();
    std::map<std::string, Record> records;
    {
        const MutexLock lock(mutex_);
        records = records_;
    }
    for (const auto& [key, record] : records) {
        if (present.keys.count(key) != 0) continue;
        const std::string& hid_device = record.seen.hid_device;
        if (!hid_device.empty() && present.keys.count(hid_device) == 0) hid_removed(hid_device);
        if (!record.gone) {
            removed(record.subject);
        } else if (record.told != told) {
            // A new daemon may let it have its driver again.
            judge(record.subject, [seen = record.seen] { return seen; });
        }
    }
    if (told == nullptr) return;
    // By what was known before anything was asked again: a record whose HID device gets its driver
    // back is forgotten, and that device must not be probed for having been without one.
    Present unknown = present;
    for (const auto& [key, record] : records) unknown.closed_hid.erase(record.seen.hid_device);
    lanes_.add(
            "", [this, told, unknown] { compare_list(told, unknown); }, Lanes::Job::kJudgement);
}

// What the daemon lists and nobody has seen has gone, unless an earlier reporter closed it.
void Reporter::compare_list(const SharedSession& session, const Present& present) {
    std::set<std::string> closed_hid = present.closed_hid;
    {
        const MutexLock lock(mutex_);
        for (const auto& [key, record] : records_) closed_hid.erase(record.seen.hid_device);
    }
    for (const std::string& key : session->listed()) {
        if (present.keys.count(key) != 0 || adopt(session, key, &closed_hid)) continue;
        lanes_.add(key, [this, session, key] {
            if (const auto record = session->take_listed(key)) {
                const bool is_usb = record->deviceType == kUsbType;
                Record gone;
                gone.subject = {is_usb ? "-" : key, is_usb ? record->deviceId : 0};
                gone.told = session;
                gone.seen.info = record;
                if (!knows(session, record_of(gone.subject))) tell_removed(session, gone);
            }
        });
    }
    // Nobody knows why those have none.
    for (const std::string& hid_device : closed_hid) switches_->probe_hid(hid_device);
}

// Whether the record is that of a refused input device whose HID device has no driver since.
bool Reporter::adopt(const SharedSession& session, const std::string& key,
                     std::set<std::string>* closed_hid) {
    const auto listed = session->listed(key);
    if (!listed || listed->deviceType == kUsbType || listed->status != 0) return false;
    const auto hid_device =
            std::find_if(closed_hid->begin(), closed_hid->end(),
                         [&](const std::string& name) { return hid_ids(name) == ids_of(*listed); });
    if (hid_device == closed_hid->end()) return false;
    session->take_listed(key);
    Record record;
    record.subject = {key};
    record.told = session;
    record.seen.info = listed;
    record.seen.hid_device = *hid_device;
    record.verdict = Verdict::kRefused;
    record.wanted = record.done = Hold::kRefusal;
    record.gone = record.unbound = true;
    closed_hid->erase(hid_device);
    const MutexLock lock(mutex_);
    records_[key] = record;
    return true;
}

}  // namespace android::vus::hotplug
