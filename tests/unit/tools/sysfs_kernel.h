// SPDX-License-Identifier: Apache-2.0
//
// The kernel behind a tree of USB devices that is made of files: it follows what is written to its
// switches, and drivers come and go as with the real one, for whoever reads and writes sysfs.
//
// It has to be told when to look, on any thread while nobody else is in these files. Who plugs and
// unplugs is not disturbed.

#pragma once

#include <stdint.h>

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "tests/support/usb_tree.h"
#include "tools/hotplug/subject.h"
#include "tools/hotplug/sysfs_gate.h"

namespace android::vus::hotplug {

class SysfsKernel {
  public:
    // One bus, and no policy about it.
    SysfsKernel();

    // A device that has come while the door is shut, or was there before and has its drivers. Its
    // HID interfaces are keyboards.
    Subject Plug(const std::string& entry, const FakeDevice& device, bool was_there = false);

    // The device, which has no others behind it, unheard.
    void Unplug(const std::string& entry);

    // Does what was asked for since the last time. False, without a look, while somebody plugs.
    bool Follow();

    // Which interfaces have a driver, and which of them have become input devices.
    std::set<std::string> Bound() const;
    std::set<std::string> Inputs() const;
    // Of these, what is on.
    std::set<std::string> Authorized() const;

  private:
    void PlugInterface(const std::string& interface, const FakeDevice& device, size_t number,
                       bool was_there);
    void TryDrivers(const std::string& interface, const std::string& only = "");
    void Bind(const std::string& interface, const std::string& driver);
    void Unbind(const std::string& interface);
    void BindHid(const std::string& hid_device);
    void MakeHid(const std::string& interface);

    std::mutex mutex_;  // what follows
    UsbTree tree_;
    std::map<std::string, std::string> driver_of_;  // by interface: the one that takes it
    std::map<std::string, std::string> hid_of_;     // by interface: the name of its HID device
};

// sysfs as it is. Only that there is no node that a device could be asked through: what it would
// tell is a file.
class SysfsGateOverFiles : public SysfsGate {
  public:
    std::optional<bool> tells_hub(const Subject& device) override;
    std::optional<std::vector<uint8_t>> report_descriptor(const Subject& device,
                                                          const UsbInterface& interface) override;
};

}  // namespace android::vus::hotplug
