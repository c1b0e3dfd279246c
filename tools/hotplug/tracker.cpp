// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/tracker.h"

#include <utility>

#include <android-base/file.h>

#include "tools/hotplug/entry_names.h"

namespace android::vus::hotplug {

namespace {

// The kernel binds a device within a tenth of a second, but gives one that does not answer 20 s and
// more. Judging earlier would gain nothing: the kernel keeps all others from the device meanwhile.
constexpr std::chrono::seconds kBindLimit(30);
constexpr std::chrono::milliseconds kQuietTime(500);

}  // namespace

Tracker::Tracker(Actions actions)
      : actions_(std::move(actions)), settling_(kBindLimit, kQuietTime) {}

void Tracker::handle(const Event& event, Clock::time_point now) {
    if (event.subsystem == "usb") handle_usb(event, now);
    if (event.subsystem == "hid") handle_hid(event);
    if (event.subsystem == "input") handle_input(event);
    if (event.subsystem == "drivers" && holds()) handle_driver(event);
}

void Tracker::handle_usb(const Event& event, Clock::time_point now) {
    const std::string name = base::Basename(event.path);
    const std::string device = device_of(name);
    if (holds() && event.action == "add" && is_root_hub(name)) actions_.root_hub(name);
    if (!is_device_name(device)) return;
    if (device == name && holds()) {
        handle_held_device(event, device);
    } else if (device == name) {
        handle_device(event, device, now);
    } else {
        handle_interface(event.action, device, now);
    }
}

void Tracker::handle_device(const Event& event, const std::string& device, Clock::time_point now) {
    if (event.action == "add") {
        note_number(device, event.number);
        settling_.added(device, now);
    } else if (event.action == "bind") {
        note_number(device, event.number);
        // Also if it was judged already: it had none of its interfaces then, or has new ones.
        settling_.forget(device);
        actions_.judge_usb(subject(device), Ask::kAlways);
    } else if (event.action == "remove" && is_known(device, event.number)) {
        settling_.forget(device);
        has_gone(device);
    }
}

// It is configured, and bound, by whoever lets it in.
void Tracker::handle_held_device(const Event& event, const std::string& device) {
    if (event.action == "remove") {
        if (is_known(device, event.number)) has_gone(device);
    } else if (event.action == "add" || event.action == "bind") {
        note_number(device, event.number);
        actions_.judge_usb(subject(device), event.action == "add" ? Ask::kAlways : Ask::kIfChanged);
    }
}

void Tracker::handle_interface(const std::string& action, const std::string& device,
                               Clock::time_point now) {
    if (holds()) {
        if (action == "add" || action == "bind")
            actions_.judge_usb(subject(device), Ask::kIfChanged);
        return;
    }
    const bool settles = settling_.waits_for(device);
    if (action == "add") {
        // Before its first verdict a device has nothing to come back to.
        if (!settling_.waits_for_bind(device)) actions_.interface_back(subject(device));
        settling_.interface_added(device, now);
    } else if (action == "bind") {
        settling_.interface_bound(device, now);
        // A driver that was not there when the device came.
        if (!settles) actions_.judge_usb(subject(device), Ask::kIfChanged);
    }
}

void Tracker::handle_hid(const Event& event) {
    if (event.action == "remove") actions_.hid_removed(base::Basename(event.path));
    if (event.action == "add" && holds()) hid_is_there(event.path);
    if (event.action != "bind") return;
    const std::string device = device_of(parent_of(event.path));
    // Late, too. The devices of other buses are judged by their input devices alone.
    if (numbers_.count(device) != 0 && !settling_.waits_for(device)) {
        actions_.judge_usb(subject(device), Ask::kIfChanged);
    }
}

void Tracker::hid_is_there(const std::string& path) {
    const std::string parent = parent_of(path);
    if (is_interface_name(parent)) {
        actions_.judge_usb(subject(device_of(parent)), Ask::kIfChanged);
    } else {
        actions_.hid_appeared(base::Basename(path));
    }
}

void Tracker::handle_driver(const Event& event) {
    const bool matters = event.path.find("/bus/usb/drivers/") != std::string::npos ||
                         event.path.find("/bus/hid/drivers/") != std::string::npos;
    if (event.action == "add" && matters) actions_.driver_came();
}

void Tracker::handle_input(const Event& event) {
    const std::string name = base::Basename(event.path);
    if (holds() && event.action == "add" && is_input_device(name)) {
        actions_.input_appeared(name, bearer_of(event.path));
    }
    if (!is_event_node(name)) return;
    if (event.action == "add") actions_.judge_input(parent_of(event.path), name, Ask::kAlways);
    if (event.action == "remove") actions_.removed({parent_of(event.path)});
}

std::string Tracker::found(const Event& device, Ask when) {
    std::string name = base::Basename(device.path);
    // Nobody but who holds back binds it, and it may have come unheard.
    if (holds() && device.subsystem == "usb" && is_root_hub(name)) actions_.root_hub(name);
    if (device.subsystem == "usb" && is_device_name(name) && device_of(name) == name) {
        note_number(name, device.number);
        // One that is still waited for is judged when it has settled.
        if (!settling_.waits_for(name)) actions_.judge_usb(subject(name), when);
        return subject(name).key();
    }
    if (device.subsystem == "input" && is_event_node(name)) {
        actions_.judge_input(parent_of(device.path), name, when);
        return parent_of(device.path);
    }
    if (device.subsystem != "hid") return "";
    if (holds()) hid_is_there(device.path);
    return name;
}

void Tracker::judge_overdue(Clock::time_point now) {
    for (const std::string& device : settling_.overdue(now)) {
        actions_.judge_usb(subject(device), Ask::kAlways);
    }
}

Subject Tracker::subject(const std::string& device) const {
    const auto number = numbers_.find(device);
    return {device, number == numbers_.end() ? 0 : number->second};
}

bool Tracker::is_known(const std::string& device, int32_t number) const {
    const int32_t known = subject(device).number;
    return number == 0 || known == 0 || number == known;
}

void Tracker::has_gone(const std::string& device) {
    actions_.removed(subject(device));
    numbers_.erase(device);
}

void Tracker::note_number(const std::string& device, int32_t number) {
    const auto [known, fresh] = numbers_.try_emplace(device, number);
    if (fresh || known->second == number || number == 0) return;
    actions_.removed(subject(device));
    known->second = number;
}

}  // namespace android::vus::hotplug
