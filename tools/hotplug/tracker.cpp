// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/tracker.h"

#include <utility>

#include <android-base/file.h>
#include <android-base/strings.h>

namespace android::vus::hotplug {

namespace {

// The kernel binds a device within a tenth of a second, but gives one that does not answer 20 s and
// more. Judging earlier would gain nothing: the kernel keeps all others from the device meanwhile.
constexpr std::chrono::seconds kBindLimit(30);
constexpr std::chrono::milliseconds kQuietTime(500);

// A USB device's name is its bus and ports. Root hubs are the controllers', not plugged in; they
// are called "usb1", and their interfaces "1-0:1.0".
bool is_device_name(const std::string& name) {
    return !name.empty() && isdigit(static_cast<unsigned char>(name[0])) &&
           !base::EndsWith(name, "-0");
}

bool is_event_node(const std::string& name) {
    return base::StartsWith(name, "event");
}

// The event node's directory is in the input device's.
std::string input_of(const std::string& path) {
    return base::Basename(base::Dirname(path));
}

}  // namespace

Tracker::Tracker(Actions actions)
      : actions_(std::move(actions)), settling_(kBindLimit, kQuietTime) {}

void Tracker::handle(const Event& event, Clock::time_point now) {
    if (event.subsystem == "usb") handle_usb(event, now);
    if (event.subsystem == "input") handle_input(event);
}

void Tracker::handle_usb(const Event& event, Clock::time_point now) {
    const std::string name = base::Basename(event.path);
    const size_t colon = name.find(':');
    const std::string device = name.substr(0, colon);
    if (!is_device_name(device)) return;
    if (colon == std::string::npos) {
        handle_device(event.action, device, now);
    } else {
        handle_interface(event.action, device, now);
    }
}

void Tracker::handle_device(const std::string& action, const std::string& device,
                            Clock::time_point now) {
    if (action == "add") {
        settling_.added(device, now);
    } else if (action == "bind") {
        // Also if it was judged already: it had none of its interfaces then, or has new ones.
        settling_.forget(device);
        actions_.judge_usb(device);
    } else if (action == "remove") {
        settling_.forget(device);
        actions_.removed(device);
    }
}

void Tracker::handle_interface(const std::string& action, const std::string& device,
                               Clock::time_point now) {
    if (action == "add") settling_.interface_added(device, now);
    if (action == "bind") settling_.interface_bound(device, now);
}

void Tracker::handle_input(const Event& event) {
    const std::string name = base::Basename(event.path);
    if (!is_event_node(name)) return;
    if (event.action == "add") actions_.judge_input(input_of(event.path), name);
    if (event.action == "remove") actions_.removed(input_of(event.path));
}

std::string Tracker::found(const std::string& subsystem, const std::string& path) {
    std::string name = base::Basename(path);
    if (subsystem == "usb" && is_device_name(name) && name.find(':') == std::string::npos) {
        // One that is still waited for is judged when it has settled.
        if (!settling_.waits_for(name)) actions_.judge_usb(name);
        return name;
    }
    if (subsystem == "input" && is_event_node(name)) {
        actions_.judge_input(input_of(path), name);
        return input_of(path);
    }
    return "";
}

void Tracker::judge_overdue(Clock::time_point now) {
    for (const std::string& device : settling_.overdue(now)) actions_.judge_usb(device);
}

}  // namespace android::vus::hotplug
