// SPDX-License-Identifier: Apache-2.0
//
// Where events come from: the kernel's own, by libcutils' socket, as Android has it and platform/
// supplies it on a Linux host. No udev daemon is needed, and none is believed: what another process
// sends is no event, whoever it is.
//
// UeventSocket owns its descriptor; one thread uses it. The functions are stateless.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/unique_fd.h>

#include "tools/hotplug/tracker.h"

namespace android::vus::hotplug {

// The subsystems whose devices are reported. HID devices before input devices: a record of the
// latter goes with the former.
inline constexpr const char* kReportedSubsystems[] = {"usb", "hid", "input"};
// Only heard of, by who holds back what a driver may have come for.
inline constexpr char kDriversSubsystem[] = "drivers";

// A message of the kernel: "ACTION@PATH" and variables, each ended by a zero byte. Nothing if it is
// of a subsystem that is not heard, or is no such message. The number is 0 where the kernel does
// not say it: it does for USB devices, not for their interfaces.
std::optional<Event> parse_uevent(std::string_view message);

// Where the subsystem's devices are in sysfs, in the order of their paths, parents first. Goes by
// the links alone: more would mean to read files that the kernel keeps from us as long as it is
// busy with a device. Nothing if one of them cannot be told from one that has gone.
std::optional<std::vector<std::string>> present_devices(const std::string& subsystem);

class UeventSocket {
  public:
    // A burst of events (a hub with everything on it) should not be lost.
    static constexpr int kWishedBytes = 4 << 20;

    enum class Heard {
        kEvent,
        kOther,    // something that is none of our events
        kLost,     // an event that there was no room for
        kNothing,  // there is no more
        kFailed,   // what comes next cannot be read now (errno says why)
    };

    // Hears everything from here on; false if the kernel does not allow that (errno says why).
    bool open();
    int fd() const { return socket_.get(); }
    // How much the kernel keeps for us: less than was wished for, where this process may not have
    // more than everybody. Some events are lost sooner then.
    int room_bytes() const;
    // Does not wait.
    Heard hear(Event* event);

  private:
    base::unique_fd socket_;
};

}  // namespace android::vus::hotplug
