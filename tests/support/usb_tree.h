// SPDX-License-Identifier: Apache-2.0
//
// The one builder of USB trees: devices as the kernel shows them, below the private root.
//
// Each device is a directory below that of the hub it hangs on (without one, below the
// controller's), its interfaces are below it, and bus/usb/devices holds nothing but links to them.
// Values are in the kernel's format: newlines at their ends, hexadecimal where it writes
// hexadecimal, leading blanks where it writes these. What a device lacks (a serial number, say) has
// no file. A test that wants a value to be another one writes the file; a tree that no kernel makes
// is made of single entries, AddUsbEntry().
//
// Note on order: the file system of the private root lists the newest entry first.

#pragma once

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

namespace android::vus {

struct FakeInterface {
    int32_t code;  // bInterfaceClass
    int32_t subclass = 0;
    int32_t protocol = 0;
    std::string driver{};                  // none: no driver is bound
    std::vector<std::string> functions{};  // directories that it made, such as "tty/ttyACM0"
};

struct FakeDevice {
    int32_t vendor;
    int32_t product;
    std::string manufacturer;
    std::string name;
    std::vector<FakeInterface> interfaces{};
    int32_t code = 0;      // bDeviceClass
    std::string serial{};  // none: the device has no such string
    int32_t ports = 0;     // of a hub
    int32_t speed = 480;   // Mbit/s
};

// Values by the names of their files.
using Attributes = std::map<std::string, std::string>;

// What is in the directory of a device with that number on its bus, and in that of an interface.
Attributes AttributesOf(const FakeDevice& device, int32_t number);
Attributes AttributesOf(const FakeInterface& interface, int32_t number);

// Things that people plug in.
FakeDevice Hub();
FakeDevice Keyboard();
FakeDevice FlashDrive();
FakeDevice SerialAdapter();
FakeDevice DisplayLinkDock();  // display, audio, and a network interface
FakeDevice VendorHidDongle();  // an HID interface that the input subsystem does not serve
FakeDevice CompositeDock();    // network, serial, storage, a keyboard and a vendor's HID

class UsbTree {
  public:
    // Starts from an empty directory of USB devices.
    explicit UsbTree(std::string sysfs = "/sys");

    // The root hub of a bus, with its own device entry's interface: usb1, 1-0:1.0.
    void AddBus(int32_t bus);
    // A device on a port: "1-2" on a root hub, "1-2.4" on the hub 1-2. Its number is the next one
    // of its kind, if it has none. Returns its id.
    int32_t AddDevice(const std::string& entry, const FakeDevice& device, int32_t number = 0);
    // One more interface of a device.
    void AddInterface(const std::string& device, int32_t number, const FakeInterface& interface);
    // Binds a driver to an entry, in the place of the one that it had.
    void Bind(const std::string& entry, const std::string& driver);
    // The device and all that hangs on it.
    void Remove(const std::string& entry);

    // One bus with that many devices besides its root hub, hubs among them: every eighth is a hub
    // that carries the seven after it, and those are of every kind there is here.
    static UsbTree Office(int32_t devices);

    const std::vector<std::string>& devices() const { return devices_; }
    int32_t IdOf(const std::string& entry) const;
    bool Has(const std::string& entry) const;
    // Where an entry is, and one of its files.
    std::string Path(const std::string& entry, const std::string& file = "") const;

  private:
    std::string DirectoryFor(const std::string& entry) const;
    void BindDriver(const std::string& directory, const std::string& driver) const;
    void Link(const std::string& entry, const std::string& directory) const;

    std::string sysfs_;
    std::vector<std::string> devices_;  // entries, in order of arrival
    int32_t next_number_ = 2;           // the kernel gives 1 to the root hub
};

// Where the kernel has an entry, and one of its files, among the USB devices.
std::string UsbPath(const std::string& entry, const std::string& file = "");
// An entry with just these attributes, whatever its name, as a directory of its own. One that is
// there gets them as well.
void AddUsbEntry(const std::string& entry, const Attributes& attributes);

}  // namespace android::vus
