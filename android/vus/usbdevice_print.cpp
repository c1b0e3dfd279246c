// SPDX-License-Identifier: Apache-2.0

// The linked USB tree as text, for the diagnostic dump.

#include <stdio.h>

#include <string>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

thread_local int32_t UsbDevice::tree_indent = 0;
int32_t UsbDevice::print_verbosity = 2;

namespace {

constexpr uint32_t kHubClass = 9;

// Raises the indentation counter for the time of a scope.
class Indent {
  public:
    explicit Indent(int32_t by) : by_(by) { UsbDevice::tree_indent += by_; }
    ~Indent() { UsbDevice::tree_indent -= by_; }
    Indent(const Indent&) = delete;
    Indent& operator=(const Indent&) = delete;

  private:
    const int32_t by_;
};

// A hub's line ends with a line of two blanks (kept: oddity 26): readers of the dump tell hubs
// by it.
void print_interface_line(const usbdevice& device, const usbinterface& interface, int32_t fd) {
    const bool is_hub = interface.bInterfaceClass == kHubClass;
    const std::string line = "Port : " + std::to_string(device.portnum) +
                             ", DevNum : " + std::to_string(device.devnum) +
                             ", If : " + std::to_string(interface.ifnum) +
                             ", Class : " + std::to_string(interface.bInterfaceClass) +
                             ", Driver : " + interface.driver + (is_hub ? "\n  " : " \n");
    dprintf(fd, is_hub ? " %s\n" : " %s", line.c_str());
}

void print_identity(const usbdevice& device, int32_t fd) {
    dprintf(fd, "       Vendor:Product ID %04x:%04x ", device.idVendor, device.idProduct);
    LOG(INFO) << "ID " << device.idVendor << ":" << device.idProduct;
}

void print_paths(const usbdevice& device, int32_t fd) {
    dprintf(fd, "\n%s/%s  /dev/bus/usb/%03d/%03d\n", kUsbDevicesDir, device.name,
            static_cast<int>(device.busnum), static_cast<int>(device.devnum));
    dprintf(fd, "printing interfaces for device device:%s and first_interface:%s \n", device.name,
            device.first_interface->name);
    if (device.parent != nullptr) dprintf(fd, "parent name :%s\n", device.parent->name);
    dprintf(fd, "parent_portnum:%d\n", static_cast<int>(device.parent_portnum));
    dprintf(fd, "************************\n");
}

void print_interfaces_of(usbdevice* device, int32_t fd) {
    const Indent indent(3);
    for (usbinterface* interface = device->first_interface; interface != nullptr;
         interface = interface->next) {
        dprintf(fd, "   |__ ");
        UsbDevice::print_usbdevice(device, interface, fd);
    }
}

// The ids are printed in decimal here and in hexadecimal in the tree; kept: oddity 27.
void print_owner(const usbdevice& owner, const usbinterface& interface, int32_t fd) {
    const std::string text = "\t parent vendorid : " + std::to_string(owner.idVendor) +
                             ", productid: " + std::to_string(owner.idProduct) +
                             ",parent path: " + owner.name +
                             ",manufacturer: " + owner.manufacturer + ",product: " + owner.product +
                             ",deviceId:" + std::to_string(usb::device_id(owner)) +
                             " devCategory: " + std::to_string(interface.category);
    dprintf(fd, "\n%s", text.c_str());
}

}  // namespace

void UsbDevice::print_tree(int32_t fd) {
    LOG(INFO) << "print_tree entered";
    for (const usbbusnode* bus = bus_list; bus != nullptr; bus = bus->next) {
        if (bus->first_child != nullptr) print_tree_dev_children(bus->first_child, fd);
    }
}

void UsbDevice::print_tree_dev_children(usbdevice* first, int32_t fd) {
    LOG(INFO) << "print_tree_dev_children entered";
    const Indent indent(4);
    for (usbdevice* device = first; device != nullptr; device = device->next) {
        print_interfaces_of(device, fd);
        print_tree_dev_children(device->first_child, fd);
    }
}

void UsbDevice::print_usbdevice(usbdevice* device, usbinterface* interface, int32_t fd) {
    print_interface_line(*device, *interface, fd);
    if (print_verbosity != 0) print_identity(*device, fd);
    if (print_verbosity >= 2) print_paths(*device, fd);
}

void UsbDevice::print_interfacelist(int32_t fd) {
    for (usbinterface* interface : usb::interfaces()) {
        char path[kSysfsValueSize];
        usb::format_path(path, interface->name, "");
        dprintf(fd, "\nprint_interfacelist  usbinterface:%s and class:%d", path,
                static_cast<int>(interface->bInterfaceClass));
        if (interface->parent == nullptr) continue;
        populate_category_device(interface);
        print_owner(*interface->parent, *interface, fd);
    }
}

}  // namespace android::vus
