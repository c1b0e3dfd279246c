// SPDX-License-Identifier: Apache-2.0
//
// Tracker: what the kernel's events mean, and which of them lead to a report.
//
// Pure logic between the two ends that do the work: events go in with their time, decisions come
// out as calls of the actions. Devices are known by their names in sysfs: "1-2.4.1" a USB device,
// "1-2.4.1:1.0" one of its interfaces, "input5" an input device, "event3" its event node.
//
// Not thread-safe.

#pragma once

#include <functional>
#include <string>

#include "tools/hotplug/settling.h"

namespace android::vus::hotplug {

// A kernel event.
struct Event {
    std::string action;     // "add", "bind", "remove", ...
    std::string subsystem;  // "usb" or "input"; of others nothing is heard
    std::string path;       // where the device is, or was, in sysfs
};

class Tracker {
  public:
    using Clock = Settling::Clock;

    struct Actions {
        std::function<void(const std::string& device)> judge_usb;
        std::function<void(const std::string& input, const std::string& event)> judge_input;
        std::function<void(const std::string& device_or_input)> removed;
    };

    explicit Tracker(Actions actions);

    void handle(const Event& event, Clock::time_point now);
    // A device that was found, not announced. Answers the name under which it is judged; empty if
    // it is no device that is reported.
    std::string found(const std::string& subsystem, const std::string& path);
    // Judges the devices that have been waited for long enough.
    void judge_overdue(Clock::time_point now);
    std::optional<Clock::time_point> next_deadline() const { return settling_.next_deadline(); }

  private:
    void handle_usb(const Event& event, Clock::time_point now);
    void handle_device(const std::string& action, const std::string& device, Clock::time_point now);
    void handle_interface(const std::string& action, const std::string& device,
                          Clock::time_point now);
    void handle_input(const Event& event);

    const Actions actions_;
    Settling settling_;
};

}  // namespace android::vus::hotplug
