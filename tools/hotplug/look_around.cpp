// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/look_around.h"

#include <errno.h>
#include <unistd.h>

#include <string>

#include <android-base/file.h>

#include "tools/hotplug/uevents.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

namespace {

bool is_without_driver(const std::string& path) {
    return access((path + "/driver").c_str(), F_OK) != 0 && has_gone(errno);
}

// False if who is not among them may be there all the same.
bool find_present(const char* subsystem, Ask when, Tracker* tracker, Meter* meter,
                  Present* present) {
    const auto paths = present_devices(subsystem);
    if (!paths) return false;
    bool is_all = true;
    for (const std::string& path : *paths) {
        const auto number = try_usb_number(base::Basename(path));
        is_all &= number.has_value();
        // Without it a device would be another one, or gone.
        if (!number) continue;
        const Event device = {"", subsystem, path, *number};
        if (meter != nullptr) meter->found(device);
        const std::string key = tracker->found(device, when);
        if (key.empty()) continue;
        present->keys.insert(key);
        if (is_hid_name(key) && is_without_driver(path)) present->closed_hid.insert(key);
    }
    return is_all;
}

}  // namespace

void look_around(Ask when, Tracker* tracker, Reporter* reporter, Gate* gate, Meter* meter) {
    Present present;
    bool is_all = true;
    for (const char* subsystem : kReportedSubsystems) {
        is_all &= find_present(subsystem, when, tracker, meter, &present);
    }
    if (!is_all) return reporter->look_again_later();
    if (gate != nullptr) {
        // It knows why they have no driver.
        present.closed_hid.clear();
        for (const Subject& held : gate->keep_only(present.keys)) reporter->held_no_more(held);
        present.keys.merge(gate->held_keys());
    }
    if (meter != nullptr) meter->keep_only(present.keys);
    reporter->keep_only(present);
}

}  // namespace android::vus::hotplug
