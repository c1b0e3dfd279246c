// SPDX-License-Identifier: Apache-2.0
//
// Tracker: what the kernel's events mean, and which of them lead to a report.
//
// Pure logic between the two ends that do the work: events go in with their time, decisions come
// out as calls of the actions. Devices are known by their names in sysfs: "1-2.4.1" a USB device,
// "1-2.4.1:1.0" one of its interfaces, "0003:0627:0001.0001" a HID device, "input5" an input
// device, "event3" its event node.
//
// Not thread-safe.

#pragma once

#include <functional>
#include <map>
#include <string>

#include "tools/hotplug/reporter.h"
#include "tools/hotplug/settling.h"
#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

// A kernel event, or a device that was found.
struct Event {
    std::string action;       // "add", "bind", "remove", ...
    std::string subsystem;    // "usb", "hid", "input" or "drivers"; of others nothing is heard
    std::string path;         // where the device is, or was, in sysfs
    int32_t number = 0;       // of a USB device, if it is known (see Subject)
    std::string driver = {};  // that the device has got, of a "bind"
};

class Tracker {
  public:
    using Clock = Settling::Clock;

    struct Actions {
        std::function<void(const Subject& device, Ask when)> judge_usb;
        std::function<void(const std::string& input, const std::string& event, Ask when)>
                judge_input;
        std::function<void(const Subject& device)> removed;
        // An interface has appeared by itself, its device having been there before.
        std::function<void(const Subject& device)> interface_back;
        std::function<void(const std::string& hid_device)> hid_removed;

        // Where devices are held back (see gate.h), and only there. Nothing settles by itself then:
        // a device is judged as soon as it appears, and again whenever something of it changes.
        std::function<void(const std::string& root_hub)> root_hub = nullptr;
        // One that is not a USB interface's own.
        std::function<void(const std::string& hid_device)> hid_appeared = nullptr;
        std::function<void(const std::string& input, const std::string& hid_device)>
                input_appeared = nullptr;
        std::function<void()> driver_came = nullptr;
    };

    explicit Tracker(Actions actions);

    void handle(const Event& event, Clock::time_point now);
    // A device that was found, not announced. Answers the key (see Subject) under which it is
    // judged, or a HID device's name; empty if it is neither.
    std::string found(const Event& device, Ask when);
    // Judges the devices that have been waited for long enough.
    void judge_overdue(Clock::time_point now);
    std::optional<Clock::time_point> next_deadline() const { return settling_.next_deadline(); }

  private:
    bool holds() const { return actions_.root_hub != nullptr; }
    void handle_usb(const Event& event, Clock::time_point now);
    void handle_device(const Event& event, const std::string& device, Clock::time_point now);
    void handle_interface(const std::string& action, const std::string& device,
                          Clock::time_point now);
    void handle_held_device(const Event& event, const std::string& device);
    void handle_hid(const Event& event);
    void hid_is_there(const std::string& path);
    void handle_driver(const Event& event);
    void handle_input(const Event& event);

    Subject subject(const std::string& device) const;
    // Whether it is that one that is known, as far as can be told. A predecessor's removal may be
    // heard when the successor has been found already.
    bool is_known(const std::string& device, int32_t number) const;
    void has_gone(const std::string& device);
    // The device is there under that number. If another one was, it has gone.
    void note_number(const std::string& device, int32_t number);

    const Actions actions_;
    Settling settling_;
    std::map<std::string, int32_t> numbers_;  // of the USB devices
};

}  // namespace android::vus::hotplug
