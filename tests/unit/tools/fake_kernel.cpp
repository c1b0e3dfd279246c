// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/tools/fake_kernel.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <utility>

#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {

namespace {

std::string device_part(const std::string& name) {
    return name.substr(0, name.find(':'));
}

std::string interface_name(const std::string& device, int32_t number) {
    return device + ":1." + std::to_string(number);
}

}  // namespace

bool FakeKernel::set_autoprobe(const char* file, bool on) {
    if (std::string(file) == kHidAutoprobeFile && !has_hid_bus) {
        errno = ENOENT;
        return false;
    }
    switched.push_back(std::string(file) + (on ? " on" : " off"));
    return true;
}

bool FakeKernel::set_interface_default(const std::string& root_hub, bool on) {
    if (!has_interface_default || !is_there(root_hub)) {
        errno = ENOENT;
        return false;
    }
    switched.push_back(root_hub + " default" + (on ? " on" : " off"));
    interfaces_on = on;
    return true;
}

std::vector<Subject> FakeKernel::usb_devices() {
    std::vector<Subject> subjects;
    for (const auto& [name, device] : devices) subjects.push_back({name, device.number});
    return subjects;
}

std::vector<std::string> FakeKernel::hid_devices() {
    std::vector<std::string> names;
    for (const auto& [name, has_driver] : other_hid) names.push_back(name);
    for (const auto& [entry, device] : devices) {
        for (const auto& [number, interface] : device.interfaces) {
            if (interface.hid) names.push_back(interface.hid->name);
        }
    }
    return names;
}

std::string FakeKernel::driver_of(const std::string& entry) {
    const auto root = bound.find(entry);
    if (root != bound.end()) return root->second ? "usb" : "";
    if (entry.find(':') == std::string::npos) {
        return devices.count(entry) != 0 ? devices[entry].driver : "";
    }
    const Interface* const interface = find(entry);
    return interface != nullptr ? interface->driver : "";
}

bool FakeKernel::probe(const std::string& entry) {
    if (bound.count(entry) != 0) {
        switched.push_back(entry + " probed");
        bound[entry] = true;
        return true;
    }
    if (entry.find(':') != std::string::npos) {
        if (has_driver(entry)) return true;
        for (const std::string& driver : drivers) {
            const Interface* const interface = find(entry);
            const bool matches =
                    interface != nullptr &&
                    std::count(interface->takers.begin(), interface->takers.end(), driver) != 0;
            if (matches && attempt(driver, entry)) return true;
        }
        return true;
    }
    const auto device = devices.find(entry);
    if (device == devices.end() || !device->second.driver.empty()) return true;
    const std::string own_driver = device->second.own_driver;
    if (own_driver.empty()) {
        give(&device->second, "usb");
        return true;
    }
    tried.push_back(own_driver + " " + entry);
    if (device->second.is_declined) {
        device->second.own_driver.clear();
    } else {
        give(&device->second, own_driver);
    }
    return true;
}

// It is configured by that.
void FakeKernel::give(Device* device, const std::string& driver) {
    device->driver = driver;
    for (auto& [number, interface] : device->interfaces) {
        interface.authorized = interfaces_on;
        interface.driver.clear();
        interface.hid.reset();
    }
}

void FakeKernel::rebind(const std::string& interface, const std::string& driver) {
    find(interface)->driver.clear();
    find(interface)->hid.reset();
    attempt(driver, interface);
}

void FakeKernel::load_for_devices(const std::string& driver, const std::string& device) {
    devices[device].own_driver = driver;
    if (devices[device].driver != "usb") return;
    tried.push_back(driver + " " + device);
    give(&devices[device], driver);
}

void FakeKernel::unbind(const std::string& driver, const Subject& device) {
    if (identity(device) && devices[device.name].driver == driver) {
        devices[device.name].driver.clear();
    }
}

GateSystem::Bound FakeKernel::bind(const std::string& driver, const std::string& interface) {
    if (driver == "usb") {
        const auto device = devices.find(interface);
        if (device == devices.end() || device->second.own_driver.empty()) probe(interface);
        return has_driver(interface) ? Bound::kYes : Bound::kNo;
    }
    if (std::find(drivers.begin(), drivers.end(), driver) == drivers.end()) {
        return Bound::kNoSuchDriver;
    }
    if (bound.count(interface) != 0) {
        tried.push_back(driver + " " + interface);
        bound[interface] = true;
        return Bound::kYes;
    }
    return attempt(driver, interface) ? Bound::kYes : Bound::kNo;
}

bool FakeKernel::attempt(const std::string& driver, const std::string& name) {
    Interface* const interface = find(name);
    if (interface == nullptr || !interface->driver.empty() || !interface->authorized) return false;
    tried.push_back(driver + " " + name);
    const std::vector<std::string>& takers = interface->takers;
    const bool takes = std::find(takers.begin(), takers.end(), driver) != takers.end();
    if (takes) interface->driver = driver;
    if (takes && driver == kHidDriver) interface->hid = HidDevice{next_hid(name), false, false};
    if (after_attempt) std::exchange(after_attempt, nullptr)();
    return takes;
}

std::string FakeKernel::next_hid(const std::string& name) {
    char hid[32];
    const Identity& identity = devices[device_part(name)].identity;
    snprintf(hid, sizeof(hid), "0003:%04X:%04X.%04X", static_cast<unsigned>(identity.vendorId),
             static_cast<unsigned>(identity.productId), static_cast<unsigned>(next_hid_++));
    return hid;
}

void FakeKernel::load_pushing(const std::string& driver) {
    drivers.push_back(driver);
    for (const auto& [name, device] : devices) {
        for (const auto& [number, interface] : device.interfaces) {
            const std::vector<std::string>& takers = interface.takers;
            if (std::find(takers.begin(), takers.end(), driver) == takers.end()) continue;
            attempt(driver, interface_name(name, number));
        }
    }
}

std::optional<Identity> FakeKernel::identity(const Subject& device) {
    const auto found = devices.find(device.name);
    if (found == devices.end() || found->second.number != device.number) return std::nullopt;
    return found->second.identity;
}

std::optional<uint64_t> FakeKernel::incarnation(const Subject& device) {
    return identity(device) ? devices[device.name].incarnation : 0;
}

std::optional<std::vector<UsbInterface>> FakeKernel::interfaces(const Subject& device) {
    when_listed();
    std::vector<UsbInterface> found;
    const auto at = devices.find(device.name);
    if (at != devices.end() && at->second.is_unread) return std::nullopt;
    if (at == devices.end() || at->second.number != device.number || at->second.driver.empty()) {
        return found;
    }
    for (const auto& [number, interface] : at->second.interfaces) {
        UsbInterface seen = {interface_name(device.name, number),
                             number,
                             interface.class_code,
                             interface.driver,
                             interface.authorized,
                             {}};
        if (interface.hid) seen.hid_devices.push_back(*interface.hid);
        found.push_back(seen);
    }
    return found;
}

std::optional<int32_t> FakeKernel::class_of(const std::string& interface) {
    const Interface* const found = find(interface);
    if (found == nullptr) return std::nullopt;
    return found->class_code;
}

bool FakeKernel::authorize(const Subject& device, uint64_t of, const std::string& name, bool on) {
    if (!identity(device) || (of != 0 && of != incarnation(device))) return false;
    Interface* const interface = find(name);
    if (interface == nullptr || stuck.count(name) != 0) return false;
    switched.push_back(name + (on ? " on" : " off"));
    interface->authorized = on;
    if (on) return true;
    interface->driver.clear();
    interface->hid.reset();
    return true;
}

void FakeKernel::authorize_root(const std::string& /*root_hub*/, const std::string& interface) {
    switched.push_back(interface + " on");
}

std::optional<std::vector<uint8_t>> FakeKernel::report_descriptor(const Subject& device,
                                                                  const UsbInterface& seen) {
    meanwhile();
    const Interface* const interface = find(seen.name);
    if (!identity(device) || interface == nullptr || !interface->authorized ||
        !interface->driver.empty()) {
        return std::nullopt;
    }
    return interface->report;
}

bool FakeKernel::hid_has_driver(const std::string& hid_device) {
    if (other_hid.count(hid_device) != 0) return other_hid[hid_device];
    const Interface* const interface = find_hid(hid_device);
    return interface != nullptr && interface->hid->has_driver;
}

bool FakeKernel::probe_hid(const std::string& hid_device) {
    tried.push_back("hid " + hid_device);
    if (other_hid.count(hid_device) != 0) {
        other_hid[hid_device] = true;
    } else if (Interface* const interface = find_hid(hid_device)) {
        interface->hid->has_driver = true;
        interface->hid->has_input_device = interface->has_input;
    }
    return true;
}

FakeKernel::Interface* FakeKernel::find(const std::string& name) {
    const auto device = devices.find(device_part(name));
    if (device == devices.end()) return nullptr;
    for (auto& [number, interface] : device->second.interfaces) {
        if (interface_name(device->first, number) == name) return &interface;
    }
    return nullptr;
}

FakeKernel::Interface* FakeKernel::find_hid(const std::string& hid_device) {
    for (auto& [name, device] : devices) {
        for (auto& [number, interface] : device.interfaces) {
            if (interface.hid && interface.hid->name == hid_device) return &interface;
        }
    }
    return nullptr;
}

}  // namespace android::vus::hotplug
