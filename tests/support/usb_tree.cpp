// SPDX-License-Identifier: Apache-2.0

#include "tests/support/usb_tree.h"

#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "tests/support/world.h"

namespace android::vus {

namespace fs = std::filesystem;

namespace {

// Below the root of sysfs.
constexpr char kDevices[] = "/bus/usb/devices";
constexpr char kDrivers[] = "/bus/usb/drivers/";
constexpr char kController[] = "/devices/platform/soc/a800000.ssusb/xhci-hcd.1.auto";
constexpr char kControllerDriver[] = "/bus/platform/drivers/xhci-hcd";

std::string Hex(int32_t value, int width) {
    char text[16];
    snprintf(text, sizeof(text), "%0*x\n", width, static_cast<unsigned>(value));
    return text;
}

std::string Number(int32_t value) {
    return std::to_string(value) + "\n";
}

void WriteAttributes(const std::string& directory, const Attributes& attributes) {
    for (const auto& [name, value] : attributes) WriteFile(directory + "/" + name, value);
}

// The kernel's links are relative.
void LinkTo(const std::string& directory, const std::string& link) {
    fs::create_directory_symlink(fs::path(directory).lexically_relative(
                                         fs::path(link).parent_path()),
                                 link);
}

const FakeInterface kKeyboardInterface = {3, 1, 1, "usbhid", {"0003:046D:C31C.0001/input/input1"}};
const FakeInterface kVendorHidInterface = {3, 0, 0, "usbhid", {"0003:1050:0407.0002/hidraw"}};
const FakeInterface kStorageInterface = {8, 6, 0x50, "usb-storage", {"host0"}};
const FakeInterface kSerialInterface = {2, 2, 1, "cdc_acm", {"tty/ttyACM0"}};
const FakeInterface kSerialDataInterface = {10, 0, 0, "cdc_acm", {}};
const FakeInterface kNetworkInterface = {2, 6, 0, "cdc_ether", {"net/usb0"}};
const FakeInterface kNetworkDataInterface = {10, 0, 0, "cdc_ether", {}};

// The entry of the hub that a device hangs on: usb1 for 1-2, 1-2 for 1-2.4.
std::string HubOf(const std::string& entry) {
    const size_t dot = entry.rfind('.');
    return dot != std::string::npos ? entry.substr(0, dot)
                                    : "usb" + entry.substr(0, entry.find('-'));
}

// The attributes of a root hub are those of a device.
const FakeDevice kRootHub = {0x1d6b, 3, "Linux 6.1 xhci-hcd", "xHCI Host Controller",
                             {},     9, "xhci-hcd.1.auto",    8,
                             5000};

}  // namespace

Attributes AttributesOf(const FakeDevice& device, int32_t number) {
    Attributes attributes = {
            {"authorized", "1\n"},
            {"bConfigurationValue", "1\n"},
            {"bDeviceClass", Hex(device.code, 2)},
            {"bDeviceProtocol", "00\n"},
            {"bDeviceSubClass", "00\n"},
            {"bMaxPacketSize0", "64\n"},
            {"bMaxPower", "100mA\n"},
            {"bNumConfigurations", "1\n"},
            {"bNumInterfaces", " " + Hex(static_cast<int32_t>(device.interfaces.size()), 1)},
            {"bcdDevice", "0100\n"},
            {"bmAttributes", "a0\n"},
            {"configuration", ""},
            {"devnum", Number(number)},
            {"idProduct", Hex(device.product, 4)},
            {"idVendor", Hex(device.vendor, 4)},
            {"manufacturer", device.manufacturer + "\n"},
            {"maxchild", Number(device.ports)},
            {"product", device.name + "\n"},
            {"rx_lanes", "1\n"},
            {"speed", Number(device.speed)},
            {"tx_lanes", "1\n"},
            {"version", " 2.00\n"},
    };
    if (!device.serial.empty()) attributes["serial"] = device.serial + "\n";
    return attributes;
}

Attributes AttributesOf(const FakeInterface& interface, int32_t number) {
    return {
            {"authorized", "1\n"},
            {"bAlternateSetting", " 0\n"},
            {"bInterfaceClass", Hex(interface.code, 2)},
            {"bInterfaceNumber", Hex(number, 2)},
            {"bInterfaceProtocol", Hex(interface.protocol, 2)},
            {"bInterfaceSubClass", Hex(interface.subclass, 2)},
            {"bNumEndpoints", "02\n"},
    };
}

FakeDevice Hub() {
    return {0x05e3, 0x0610, "GenesysLogic", "USB2.1 Hub", {{9, 0, 0, "hub", {}}}, 9, "", 7};
}

FakeDevice Keyboard() {
    return {0x046d, 0xc31c, "Logitech", "USB Keyboard", {kKeyboardInterface}, 0, "", 0, 12};
}

FakeDevice FlashDrive() {
    return {0x0781, 0x5583, "SanDisk", "Ultra Fit", {kStorageInterface}, 0, "4C5300011"};
}

FakeDevice SerialAdapter() {
    return {0x2341, 0x0043, "Arduino", "Uno", {kSerialInterface, kSerialDataInterface},
            2,      "7533", 0,         12};
}

FakeDevice DisplayLinkDock() {
    const FakeInterface display = {0xff, 0, 0, "", {}};
    const FakeInterface audio = {1, 1, 0, "snd-usb-audio", {"sound/card0"}};
    return {0x17e9,
            0x6006,
            "DisplayLink",
            "USB3.0 Dock",
            {display, audio, kNetworkInterface, kNetworkDataInterface},
            0xef,
            "DL1234567"};
}

FakeDevice VendorHidDongle() {
    return {0x1050, 0x0407, "Yubico", "YubiKey OTP+FIDO+CCID", {kVendorHidInterface}, 0, "", 0, 12};
}

FakeDevice CompositeDock() {
    return {0x0bda,
            0x8153,
            "Realtek",
            "Dock",
            {kNetworkInterface, kNetworkDataInterface, kSerialInterface, kSerialDataInterface,
             kStorageInterface, kKeyboardInterface, kVendorHidInterface},
            0xef,
            "000001"};
}

std::string UsbPath(const std::string& entry, const std::string& file) {
    const std::string path = std::string(kUsbDevicesDir) + "/" + entry;
    return file.empty() ? path : path + "/" + file;
}

void AddUsbEntry(const std::string& entry, const Attributes& attributes) {
    MakeDir(UsbPath(entry));
    WriteAttributes(UsbPath(entry), attributes);
}

UsbTree::UsbTree(std::string sysfs) : sysfs_(std::move(sysfs)) {
    RemoveTree(sysfs_ + kDevices);
    RemoveTree(sysfs_ + kController);
    MakeDir(sysfs_ + kDevices);
    MakeDir(sysfs_ + kController);
    MakeDir(sysfs_ + kControllerDriver);
    LinkTo(sysfs_ + kControllerDriver, sysfs_ + kController + "/driver");
}

std::string UsbTree::Path(const std::string& entry, const std::string& file) const {
    const std::string path = sysfs_ + kDevices + "/" + entry;
    return file.empty() ? path : path + "/" + file;
}

bool UsbTree::Has(const std::string& entry) const {
    return fs::exists(Path(entry));
}

// Of a new device.
std::string UsbTree::DirectoryFor(const std::string& entry) const {
    const std::string hub = HubOf(entry);
    const std::string above = Has(hub) ? fs::canonical(Path(hub)).string() : sysfs_ + kController;
    return above + "/" + entry;
}

void UsbTree::BindDriver(const std::string& directory, const std::string& driver) const {
    MakeDir(sysfs_ + kDrivers + driver);
    LinkTo(sysfs_ + kDrivers + driver, directory + "/driver");
}

void UsbTree::Bind(const std::string& entry, const std::string& driver) {
    const std::string directory = fs::canonical(Path(entry));
    fs::remove(directory + "/driver");
    BindDriver(directory, driver);
}

void UsbTree::Link(const std::string& entry, const std::string& directory) const {
    LinkTo(directory, Path(entry));
}

void UsbTree::AddBus(int32_t bus) {
    const std::string entry = "usb" + std::to_string(bus);
    const std::string directory = sysfs_ + kController + "/" + entry;
    WriteAttributes(directory, AttributesOf(kRootHub, 1));
    WriteFile(directory + "/busnum", Number(bus));
    BindDriver(directory, "usb");
    Link(entry, directory);
    const std::string interface = std::to_string(bus) + "-0:1.0";
    WriteAttributes(directory + "/" + interface, AttributesOf(FakeInterface{9}, 0));
    BindDriver(directory + "/" + interface, "hub");
    Link(interface, directory + "/" + interface);
}

int32_t UsbTree::AddDevice(const std::string& entry, const FakeDevice& device, int32_t number) {
    const std::string directory = DirectoryFor(entry);
    WriteAttributes(directory, AttributesOf(device, number != 0 ? number : next_number_++));
    WriteFile(directory + "/busnum", Number(std::stoi(entry)));
    BindDriver(directory, "usb");
    Link(entry, directory);
    for (size_t i = 0; i < device.interfaces.size(); ++i) {
        AddInterface(entry, static_cast<int32_t>(i), device.interfaces[i]);
    }
    devices_.push_back(entry);
    return IdOf(entry);
}

void UsbTree::AddInterface(const std::string& device, int32_t number,
                           const FakeInterface& interface) {
    const std::string entry = device + ":1." + std::to_string(number);
    const std::string directory = fs::canonical(Path(device)).string() + "/" + entry;
    WriteAttributes(directory, AttributesOf(interface, number));
    if (!interface.driver.empty()) BindDriver(directory, interface.driver);
    MakeDir(directory + "/power");
    for (const std::string& function : interface.functions) MakeDir(directory + "/" + function);
    Link(entry, directory);
}

void UsbTree::Remove(const std::string& entry) {
    const auto is_gone = [&entry](const std::string& other) {
        if (other.compare(0, entry.size(), entry) != 0) return false;
        return other.size() == entry.size() || other[entry.size()] == '.' ||
               other[entry.size()] == ':';
    };
    const std::string directory = fs::canonical(Path(entry));
    // The links first, as the kernel does it.
    std::vector<fs::path> links;
    for (const auto& link : fs::directory_iterator(sysfs_ + kDevices)) {
        if (is_gone(link.path().filename())) links.push_back(link.path());
    }
    for (const fs::path& link : links) RemoveFile(link);
    RemoveTree(directory);
    devices_.erase(std::remove_if(devices_.begin(), devices_.end(), is_gone), devices_.end());
}

UsbTree UsbTree::Office(int32_t devices) {
    constexpr int32_t kPerHub = 8;  // itself and what hangs on it
    const FakeDevice leaves[] = {Keyboard(),        FlashDrive(),      SerialAdapter(),
                                 DisplayLinkDock(), VendorHidDongle(), FlashDrive(),
                                 CompositeDock()};
    UsbTree tree;
    tree.AddBus(1);
    for (int32_t i = 0; i < devices; ++i) {
        const std::string hub = "1-" + std::to_string(i / kPerHub + 1);
        const int32_t port = i % kPerHub;
        if (port == 0) {
            tree.AddDevice(hub, Hub());
        } else {
            tree.AddDevice(hub + "." + std::to_string(port), leaves[port - 1]);
        }
    }
    return tree;
}

int32_t UsbTree::IdOf(const std::string& entry) const {
    const int32_t bus = std::stoi(entry);
    return bus * 1000 + std::stoi(ReadFile(Path(entry, "devnum")));
}

}  // namespace android::vus
