// SPDX-License-Identifier: Apache-2.0
//
// What a gate asks of the kernel, by sysfs and by the nodes of USB devices. Stateless; any thread.

#pragma once

#include <string>
#include <vector>

#include "tools/hotplug/gate_system.h"

namespace android::vus::hotplug {

class SysfsGate : public GateSystem {
  public:
    bool set_autoprobe(const char* file, bool on) override;
    bool set_interface_default(const std::string& root_hub, bool on) override;
    std::vector<std::string> root_hubs() override;
    bool is_there(const std::string& root_hub) override;
    std::vector<Subject> usb_devices() override;
    std::vector<std::string> hid_devices() override;
    std::string driver_of(const std::string& entry) override;
    bool probe(const std::string& entry) override;
    Bound bind(const std::string& driver, const std::string& entry) override;
    void unbind(const std::string& driver, const Subject& device) override;
    std::optional<Identity> identity(const Subject& device) override;
    std::optional<uint64_t> incarnation(const Subject& device) override;
    std::optional<std::vector<UsbInterface>> interfaces(const Subject& device) override;
    std::optional<int32_t> class_of(const std::string& interface) override;
    bool authorize(const Subject& device, uint64_t incarnation, const std::string& interface,
                   bool on) override;
    void authorize_root(const std::string& root_hub, const std::string& interface) override;
    std::optional<bool> tells_hub(const Subject& device) override;
    std::optional<std::vector<uint8_t>> report_descriptor(const Subject& device,
                                                          const UsbInterface& interface) override;
    bool hid_has_driver(const std::string& hid_device) override;
    bool probe_hid(const std::string& hid_device) override;
    std::string hid_label(const std::string& hid_device) override;
    std::vector<uint8_t> hid_report_descriptor(const std::string& hid_device) override;
    bool is_of_a_bus(const std::string& input) override;
    std::vector<std::string> silent_inputs() override;
};

}  // namespace android::vus::hotplug
