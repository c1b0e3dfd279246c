// SPDX-License-Identifier: Apache-2.0
//
// What a gate asks of the kernel, answered by one that keeps devices in memory and does with them
// what the real one does: interfaces appear with a device's configuration, drivers are tried one
// after the other, HID's driver makes HID devices that wait for a driver of their own.
//
// It remembers which driver was tried on what: a refused device is one on which none was.

#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/unit/tools/reports.h"
#include "tools/hotplug/gate_system.h"

namespace android::vus::hotplug {

class FakeKernel : public GateSystem {
  public:
    struct Interface {
        int32_t class_code = 0;
        std::vector<std::string> takers =
                {};  // the drivers that would take it, the first to try first
        std::optional<std::vector<uint8_t>> report = {};  // a HID interface's
        bool has_input = false;                           // what its HID device becomes
        bool authorized = false;
        std::string driver = {};
        std::optional<HidDevice> hid = {};
    };
    struct Device {
        int32_t number = 0;
        uint64_t incarnation = 1;
        Identity identity = {};
        std::map<int32_t, Interface> interfaces = {};
        std::string driver = {};
        std::string own_driver = {};  // for the device as a whole, before the kernel's own
        bool is_declined = false;     // by that one, once it has looked
        bool is_unread = false;       // its interfaces cannot be read
        std::optional<bool> hub_descriptor = true;  // whether it gives one; nothing: it has no node
    };

    // What was tried, such as "usb-storage 1-1:1.0"; what was switched, such as "1-1:1.0 on".
    std::vector<std::string> tried;
    std::vector<std::string> switched;
    std::map<std::string, Device> devices;
    std::map<std::string, bool> other_hid;              // of other buses: whether it has a driver
    std::vector<uint8_t> other_report = kBootKeyboard;  // of those
    // Called when a descriptor is read, which takes its time.
    std::function<void()> meanwhile = [] {};
    // Called when a device's interfaces are listed.
    std::function<void()> when_listed = [] {};
    // Called once, when a driver has been tried on an interface, if it is set.
    std::function<void()> after_attempt = nullptr;
    std::vector<std::string> hubs;
    std::map<std::string, bool> bound;  // root hubs, and their interfaces
    std::vector<std::string> drivers = {"hub", "usbhid", "usb-storage", "ftdi_sio", "cdc_acm"};
    std::set<std::string> own_inputs;  // the board's
    std::vector<std::string> silent;   // input devices
    bool has_hid_bus = true;
    bool has_interface_default = true;
    bool interfaces_on = false;   // as an interface appears
    std::set<std::string> stuck;  // interfaces that cannot be switched

    // Loads a driver of the kind that is tried at once on whatever is on and has none, whether the
    // kernel looks for drivers or not: those of serial adapters.
    void load_pushing(const std::string& driver);
    // What the kernel does to an interface that comes of a reset as another: it loses its driver,
    // and gets this one.
    void rebind(const std::string& interface, const std::string& driver);
    // Loads one for whole devices, which the kernel gives those that its own has.
    void load_for_devices(const std::string& driver, const std::string& device);

    bool set_autoprobe(const char* file, bool on) override;
    bool set_interface_default(const std::string& root_hub, bool on) override;
    std::vector<std::string> root_hubs() override { return hubs; }
    bool is_there(const std::string& root_hub) override {
        return std::find(hubs.begin(), hubs.end(), root_hub) != hubs.end();
    }
    std::vector<Subject> usb_devices() override;
    std::vector<std::string> hid_devices() override;
    std::string driver_of(const std::string& entry) override;
    bool probe(const std::string& entry) override;
    Bound bind(const std::string& driver, const std::string& interface) override;
    void unbind(const std::string& driver, const Subject& device) override;
    std::optional<Identity> identity(const Subject& device) override;
    std::optional<uint64_t> incarnation(const Subject& device) override;
    std::optional<std::vector<UsbInterface>> interfaces(const Subject& device) override;
    std::optional<int32_t> class_of(const std::string& interface) override;
    bool authorize(const Subject& device, uint64_t of, const std::string& interface,
                   bool on) override;
    void authorize_root(const std::string& root_hub, const std::string& interface) override;
    std::optional<bool> tells_hub(const Subject& device) override {
        return devices[device.name].hub_descriptor;
    }
    std::optional<std::vector<uint8_t>> report_descriptor(const Subject& device,
                                                          const UsbInterface& interface) override;
    bool hid_has_driver(const std::string& hid_device) override;
    bool probe_hid(const std::string& hid_device) override;
    std::string hid_label(const std::string& hid_device) override { return "HID " + hid_device; }
    std::vector<uint8_t> hid_report_descriptor(const std::string& /*hid_device*/) override {
        return other_report;
    }
    bool is_of_a_bus(const std::string& input) override { return own_inputs.count(input) == 0; }
    std::vector<std::string> silent_inputs() override { return silent; }

  private:
    void give(Device* device, const std::string& driver);
    Interface* find(const std::string& name);
    Interface* find_hid(const std::string& hid_device);
    bool attempt(const std::string& driver, const std::string& name);
    std::string next_hid(const std::string& interface);

    int next_hid_ = 1;
};

}  // namespace android::vus::hotplug
