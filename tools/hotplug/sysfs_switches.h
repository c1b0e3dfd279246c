// SPDX-License-Identifier: Apache-2.0
//
// The kernel's own switches, in sysfs. Stateless; any thread.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/hotplug/device_directory.h"
#include "tools/hotplug/switches.h"
#include "tools/hotplug/usb_entry.h"

namespace android::vus::hotplug {

class SysfsSwitches : public Switches {
  public:
    // `complain` gets a line for each switch that could not be set, of a device that is still
    // there. `silenced` is told of each input device that is silent from now on, or no longer.
    explicit SysfsSwitches(
            std::function<void(const std::string&)> complain,
            std::function<void(const std::string& input, bool silent)> silenced = nullptr)
          : complain_(std::move(complain)), silenced_(std::move(silenced)) {}

    bool close_interfaces(const Subject& device) override;
    bool open_interfaces(const Subject& device) override;
    bool close_device(const Subject& device) override;
    bool open_device(const Subject& device) override;
    bool hush_input(const std::string& input) override;
    bool unhush_input(const std::string& input) override;
    bool unbind_hid(const std::string& hid_device) override;
    void probe_hid(const std::string& hid_device) override;
    bool open_held(const Subject& usb_device, const std::string& what) override;

  private:
    DeviceDirectory::Presence presence_in(const DeviceDirectory& directory, const Subject& device);
    std::optional<std::vector<std::string>> to_be_switched(
            const Subject& device, const DeviceDirectory& directory,
            const std::optional<std::vector<UsbInterface>>& interfaces, bool are_on);
    bool set_device(const Subject& device, char value);
    bool inhibit(const std::string& input, char value);
    // Answers whether it is there.
    bool complain(const std::string& path);

    const std::function<void(const std::string&)> complain_;
    const std::function<void(const std::string& input, bool silent)> silenced_;
};

}  // namespace android::vus::hotplug
