// SPDX-License-Identifier: Apache-2.0

#include "tests/unit/tools/sysfs_kernel.h"

#include <stdio.h>

#include <filesystem>
#include <iterator>

#include <android-base/file.h>

#include "tests/support/world.h"
#include "tests/unit/tools/reports.h"
#include "tools/hotplug/sysfs_paths.h"

namespace android::vus::hotplug {

namespace {

constexpr char kReportFile[] = "report_descriptor";
constexpr char kHubFile[] = "gives_hub_descriptor";
constexpr char kInput[] = "/input/input7";
const std::map<int32_t, std::string> kDriverOfClass = {{1, "snd-usb-audio"},
                                                       {kHidClass, kHidDriver},
                                                       {8, "usb-storage"},
                                                       {9, kHubDriver}};

std::string BindFile(const std::string& driver) {
    return std::string(kUsbDriversDir) + "/" + driver + "/bind";
}

// What was written, once.
std::string Take(const std::string& file) {
    std::string text = ReadFile(file);
    if (!text.empty()) WriteFile(file, "");
    return text;
}

bool Exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

}  // namespace

SysfsKernel::SysfsKernel() {
    tree_.AddBus(1);
    for (const char* file : {kUsbProbeFile, kHidProbeFile}) WriteFile(file, "");
    for (const char* file : {kUsbAutoprobeFile, kHidAutoprobeFile}) WriteFile(file, "0\n");
    for (const auto& [code, driver] : kDriverOfClass) WriteFile(BindFile(driver), "");
    for (const char* directory : {kHidDevicesDir, kInputClassDir}) {
        RemoveTree(directory);
        MakeDir(directory);
    }
}

Subject SysfsKernel::Plug(const std::string& entry, const FakeDevice& device, bool was_there) {
    const std::lock_guard<std::mutex> lock(mutex_);
    FakeDevice without_drivers = device;
    for (FakeInterface& interface : without_drivers.interfaces) {
        interface.driver.clear();
        interface.functions.clear();
    }
    const int32_t id = tree_.AddDevice(entry, without_drivers);
    WriteFile(UsbPath(entry, kHubFile), device.ports > 0 ? "yes" : "no");
    for (size_t number = 0; number < device.interfaces.size(); ++number) {
        PlugInterface(entry + ":1." + std::to_string(number), device, number, was_there);
    }
    return {entry, id};
}

void SysfsKernel::PlugInterface(const std::string& interface, const FakeDevice& device,
                                size_t number, bool was_there) {
    const FakeInterface& plugged = device.interfaces[number];
    const bool is_hid = plugged.code == kHidClass;
    driver_of_[interface] =
            plugged.driver.empty() ? kDriverOfClass.at(plugged.code) : plugged.driver;
    WriteFile(UsbPath(interface, "authorized"), was_there ? "1\n" : "0\n");
    if (is_hid) {
        char name[32];
        snprintf(name, sizeof(name), "0003:%04X:%04X.%04X", static_cast<unsigned>(device.vendor),
                 static_cast<unsigned>(device.product), static_cast<unsigned>(number + 1));
        hid_of_[interface] = name;
        WriteFile(UsbPath(interface, kReportFile),
                  std::string(kBootKeyboard.begin(), kBootKeyboard.end()));
    }
    if (was_there) TryDrivers(interface);
    if (was_there && is_hid) BindHid(hid_of_[interface]);
}

void SysfsKernel::Unplug(const std::string& entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto at = driver_of_.begin(); at != driver_of_.end();) {
        const bool is_its = at->first.substr(0, at->first.find(':')) == entry;
        at = is_its ? driver_of_.erase(at) : std::next(at);
    }
    tree_.Remove(entry);
}

bool SysfsKernel::Follow() {
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock()) return false;
    for (const auto& [interface, driver] : driver_of_) {
        const bool is_off = ReadFile(UsbPath(interface, "authorized")).substr(0, 1) == "0";
        if (is_off && Exists(UsbPath(interface, "driver"))) Unbind(interface);
    }
    TryDrivers(Take(kUsbProbeFile));
    for (const auto& [code, driver] : kDriverOfClass) TryDrivers(Take(BindFile(driver)), driver);
    BindHid(Take(kHidProbeFile));
    for (const auto& [interface, name] : hid_of_) {
        const std::string hid_device = UsbPath(interface, name);
        if (Take(hid_device + "/driver/unbind").empty()) continue;
        RemoveTree(hid_device + "/driver");
        RemoveTree(hid_device + "/input");
        RemoveFile(std::string(kInputClassDir) + "/input7");
    }
    return true;
}

void SysfsKernel::TryDrivers(const std::string& interface, const std::string& only) {
    const auto found = driver_of_.find(interface);
    if (found == driver_of_.end() || (!only.empty() && only != found->second)) return;
    const bool is_on = ReadFile(UsbPath(interface, "authorized")).substr(0, 1) == "1";
    if (!is_on || Exists(UsbPath(interface, "driver"))) return;
    Bind(interface, found->second);
}

void SysfsKernel::Bind(const std::string& interface, const std::string& driver) {
    tree_.Bind(interface, driver);
    if (driver == kHidDriver) MakeHid(interface);
}

// It waits for a driver of its own.
void SysfsKernel::MakeHid(const std::string& interface) {
    const std::string& name = hid_of_.at(interface);
    MakeDir(UsbPath(interface, name));
    std::filesystem::create_symlink(std::filesystem::canonical(UsbPath(interface, name)),
                                    std::string(kHidDevicesDir) + "/" + name);
}

void SysfsKernel::BindHid(const std::string& hid_device) {
    const std::string path = std::string(kHidDevicesDir) + "/" + hid_device;
    if (hid_device.empty() || !Exists(path) || Exists(path + "/driver")) return;
    WriteFile(path + "/driver/unbind", "");
    WriteFile(path + kInput + "/inhibited", "0\n");
    const std::filesystem::path input = std::filesystem::canonical(path + kInput);
    std::filesystem::create_symlink(input.parent_path().parent_path(), input / "device");
    std::filesystem::create_symlink(input, std::string(kInputClassDir) + "/input7");
}

void SysfsKernel::Unbind(const std::string& interface) {
    RemoveFile(UsbPath(interface, "driver"));
    const auto hid_device = hid_of_.find(interface);
    if (hid_device == hid_of_.end()) return;
    RemoveFile(std::string(kHidDevicesDir) + "/" + hid_device->second);
    const std::string input = std::string(kInputClassDir) + "/input7";
    if (Exists(input)) RemoveFile(input);
    RemoveTree(UsbPath(interface, hid_device->second));
}

std::set<std::string> SysfsKernel::Bound() const {
    std::set<std::string> bound;
    for (const auto& [interface, driver] : driver_of_) {
        if (Exists(UsbPath(interface, "driver"))) bound.insert(interface);
    }
    return bound;
}

std::set<std::string> SysfsKernel::Inputs() const {
    std::set<std::string> inputs;
    for (const auto& [interface, name] : hid_of_) {
        if (Exists(UsbPath(interface, name) + kInput)) inputs.insert(interface);
    }
    return inputs;
}

std::set<std::string> SysfsKernel::Authorized() const {
    std::set<std::string> on;
    for (const auto& [interface, driver] : driver_of_) {
        if (ReadFile(UsbPath(interface, "authorized")).substr(0, 1) == "1") on.insert(interface);
    }
    return on;
}

std::optional<bool> SysfsGateOverFiles::tells_hub(const Subject& device) {
    std::string text;
    if (!base::ReadFileToString(UsbPath(device.name, kHubFile), &text)) return std::nullopt;
    return text == "yes";
}

std::optional<std::vector<uint8_t>> SysfsGateOverFiles::report_descriptor(
        const Subject& /*device*/, const UsbInterface& interface) {
    std::string text;
    if (!base::ReadFileToString(UsbPath(interface.name, kReportFile), &text)) return std::nullopt;
    return std::vector<uint8_t>(text.begin(), text.end());
}

}  // namespace android::vus::hotplug
