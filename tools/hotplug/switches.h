// SPDX-License-Identifier: Apache-2.0
//
// Switches: what the kernel lets a reporter switch off and on.
//
// Every method may wait for the device, which can take as long as the device keeps the kernel
// waiting: not for a thread that others wait for. Thread-safe.

#pragma once

#include <string>

#include "tools/hotplug/subject.h"

namespace android::vus::hotplug {

class Switches {
  public:
    virtual ~Switches() = default;

    // What closes or opens answers false where something is still as it was though the device is
    // there: it can work the next time.
    //
    // Takes the driver from every interface of a USB device and keeps drivers off. Leaves a hub
    // alone, and a device that has become another.
    virtual bool close_interfaces(const Subject& device) = 0;
    // Lets the interfaces that are off have drivers again, and has the kernel look for them.
    virtual bool open_interfaces(const Subject& device) = 0;

    // The same with the device as a whole: it loses its configuration, and nobody can give it
    // another.
    virtual bool close_device(const Subject& device) = 0;
    virtual bool open_device(const Subject& device) = 0;

    // Makes an input device send nothing, or send again, for which the kernel opens it.
    virtual bool hush_input(const std::string& input) = 0;
    virtual bool unhush_input(const std::string& input) = 0;

    // Takes the driver from a HID device: the kernel hands out its input as hidraw, too, where
    // nothing can be hushed. All its input devices go. False if that cannot be done.
    virtual bool unbind_hid(const std::string& hid_device) = 0;
    // Has the kernel look for a driver again.
    virtual void probe_hid(const std::string& hid_device) = 0;

    // Lets an input device in that was held back before it was one (see gate.h): behind it is
    // `what`, an interface of the USB device, or a HID device of no USB device's.
    virtual bool open_held(const Subject& usb_device, const std::string& what) = 0;
};

}  // namespace android::vus::hotplug
