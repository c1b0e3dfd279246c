// SPDX-License-Identifier: Apache-2.0

// Discovery of the USB tree: a node for each entry of the USB devices directory, and the links that
// make a tree of them.

#include <errno.h>
#include <stdio.h>

#include <charconv>
#include <memory>
#include <new>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using usb::SysfsEntry;
using usb::trace;

thread_local usbbusnode* UsbDevice::bus_list = nullptr;
thread_local listlinks UsbDevice::device_list = {&device_list, &device_list};
thread_local listlinks UsbDevice::interface_list = {&interface_list, &interface_list};

namespace {

// An attribute and the field it is read into: a number in the base that the kernel writes it in, or
// a text bounded by its field.
template <typename Node, size_t kTextSize = kDeviceTextSize>
struct Attribute {
    using Number = uint32_t Node::*;
    using Text = char (Node::*)[kTextSize];

    constexpr Attribute(const char* file, Number field, int32_t number_base)
          : name(file), number(field), base(number_base) {}
    constexpr Attribute(const char* file, Text field) : name(file), text(field) {}

    const char* name;
    Number number = nullptr;
    int32_t base = 0;
    Text text = nullptr;
};

// The tables are in reading order, which is the order of the messages about what is missing.
constexpr Attribute<usbbusnode, kBusSpeedSize> kBusAttributes[] = {
        // clang-format off
        {"devnum", &usbbusnode::devnum, 10},
        {"bDeviceClass", &usbbusnode::bDeviceClass, 16},
        {"idProduct", &usbbusnode::idProduct, 16},
        {"idVendor", &usbbusnode::idVendor, 16},
        {"maxchild", &usbbusnode::maxchild, 10},
        {"speed", &usbbusnode::speed},
        {"rx_lanes", &usbbusnode::rx_lanes, 10},
        {"tx_lanes", &usbbusnode::tx_lanes, 10},
        // clang-format on
};

constexpr Attribute<usbdevice> kDeviceAttributes[] = {
        {"bDeviceClass", &usbdevice::bDeviceClass, 16},
        {"bDeviceProtocol", &usbdevice::bDeviceProtocol, 16},
        {"bDeviceSubClass", &usbdevice::bDeviceSubClass, 16},
        {"bMaxPacketSize0", &usbdevice::bMaxPacketSize0, 16},
        {"bMaxPower", &usbdevice::bMaxPower},
        {"bNumConfigurations", &usbdevice::bNumConfigurations, 10},
        {"bNumInterfaces", &usbdevice::bNumInterfaces, 16},
        {"bcdDevice", &usbdevice::bcdDevice, 16},
        {"bmAttributes", &usbdevice::bmAttributes, 16},
        {"configuration", &usbdevice::configuration, 10},
        {"devnum", &usbdevice::devnum, 10},
        {"idProduct", &usbdevice::idProduct, 16},
        {"idVendor", &usbdevice::idVendor, 16},
        {"maxchild", &usbdevice::maxchild, 10},
        {"manufacturer", &usbdevice::manufacturer},
        {"product", &usbdevice::product},
        {"serial", &usbdevice::serial},
        {"version", &usbdevice::version},
        {"speed", &usbdevice::speed},
        {"rx_lanes", &usbdevice::rx_lanes, 10},
        {"tx_lanes", &usbdevice::tx_lanes, 10},
};

constexpr Attribute<usbinterface> kInterfaceAttributes[] = {
        {"bAlternateSetting", &usbinterface::bAlternateSetting, 10},
        {"bInterfaceClass", &usbinterface::bInterfaceClass, 16},
        {"bInterfaceNumber", &usbinterface::bInterfaceNumber, 16},
        {"bInterfaceProtocol", &usbinterface::bInterfaceProtocol, 16},
        {"bInterfaceSubClass", &usbinterface::bInterfaceSubClass, 16},
        {"bNumEndpoints", &usbinterface::bNumEndpoints, 16},
};

template <typename Node, size_t kTextSize, size_t kCount>
void read_attributes(const SysfsEntry& entry,
                     const Attribute<Node, kTextSize> (&attributes)[kCount], Node* node) {
    for (const auto& attribute : attributes) {
        if (attribute.text != nullptr) {
            entry.read_string(attribute.name, node->*attribute.text, kTextSize);
        } else {
            node->*attribute.number =
                    static_cast<uint32_t>(entry.read_int(attribute.name, attribute.base));
        }
    }
}

// A zero-filled node, or null without memory for it.
template <typename Node>
std::unique_ptr<Node> new_node() {
    return std::unique_ptr<Node>(new (std::nothrow) Node());
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Parses the decimal number at `text`, cut to 32 bits. Returns the position after it, which is
// `text` itself if there is no digit.
const char* parse_number(const char* text, uint32_t* value) {
    unsigned long long number = 0;
    const auto result = std::from_chars(text, text + strlen(text), number);
    if (result.ec == std::errc::result_out_of_range) number = ~0ULL;
    if (result.ptr != text) *value = static_cast<uint32_t>(number);
    return result.ptr;
}

// Parses what follows the bus number, such as "-2.4.1": the last port and the one before it. Any
// one character may stand before a port.
void parse_ports(const char* text, usbdevice* device) {
    while (*text != '\0') {
        uint32_t port = 0;
        const char* const start = text + 1;
        text = parse_number(start, &port);
        if (text == start) return;
        device->parent_portnum = device->portnum;
        device->portnum = port;
    }
}

// Copies the entry into the node's name, and says on standard output if it did not fit.
void store_name(const char* entry, char (&name)[kSysfsNameSize]) {
    if (!usb::copy_text(name, entry)) printf("warning: '%s' truncated to '%s'\n", entry, name);
}

// Whether `child` is an entry on a port of the hub `parent`: 1-2.4 is one of 1-2.
bool hangs_on(const usbdevice& child, const usbdevice& parent) {
    if (parent.busnum != child.busnum || parent.portnum != child.parent_portnum) return false;
    const char* const dot = strrchr(child.name, '.');
    if (dot == nullptr) return false;
    return std::string_view(child.name, static_cast<size_t>(dot - child.name)) == parent.name;
}

void attach_to_root_hub(usbdevice* device) {
    for (usbbusnode* bus = UsbDevice::bus_list; bus != nullptr; bus = bus->next) {
        if (bus->busnum == device->busnum) usb::append_to_chain(&bus->first_child, device);
    }
}

void attach_to_bus(uint32_t busnum, usbinterface* interface) {
    for (usbbusnode* bus = UsbDevice::bus_list; bus != nullptr; bus = bus->next) {
        if (bus->busnum == busnum) {
            return usb::append_to_chain(&bus->first_interface, interface);
        }
    }
}

void link_nodes() {
    for (usbdevice* device : usb::devices()) {
        if (device->parent_portnum != 0) {
            UsbDevice::assign_dev_to_parent(device);
        } else {
            attach_to_root_hub(device);
        }
        // An interface on a bus keeps a null parent and is offered again to each later device; the
        // bus takes it only once.
        for (usbinterface* interface : usb::interfaces()) {
            if (interface->parent == nullptr) {
                UsbDevice::assign_interface_to_parent(device, interface);
            }
        }
    }
}

usbinterface_custom make_record(const usbinterface& interface) {
    const usbdevice& parent = *interface.parent;
    usbinterface_custom record = {};
    record.bInterfaceClass = interface.bInterfaceClass;
    record.bInterfaceNumber = interface.bInterfaceNumber;
    record.bInterfaceProtocol = interface.bInterfaceProtocol;
    record.bInterfaceSubClass = interface.bInterfaceSubClass;
    usb::copy_text(record.name, interface.name);
    record.busnum = static_cast<int32_t>(parent.busnum);
    record.devnum = static_cast<int32_t>(parent.devnum);
    record.idVendor = parent.idVendor;
    record.idProduct = parent.idProduct;
    usb::copy_text(record.manufacturer, parent.manufacturer);
    usb::copy_text(record.product, parent.product);
    record.category = interface.category;
    usb::copy_text(record.category_path, interface.category_path);
    return record;
}

// The blanks of these texts, doubled here and missing there, are on purpose: they are kept as they
// have always been.
void trace_record(int32_t id, const usbinterface& interface) {
    const usbdevice& parent = *interface.parent;
    trace("creating object and populating map  usbinterface:", interface.name,
          " and class: ", interface.bInterfaceClass);
    trace("creating object and populating \t parent vendorid : ", parent.idVendor,
          ", productid: ", parent.idProduct, ",parent path: ", parent.name,
          ",manufacturer: ", parent.manufacturer, ",product: ", parent.product, ",deviceId:", id);
    trace("creating object and populating category_path", interface.category_path,
          " and category:", interface.category, " interface path:", interface.name);
}

template <typename Node>
void delete_nodes(listlinks* head) {
    listlinks* next = head->next;
    *head = {head, head};
    while (next != head) {
        const std::unique_ptr<Node> node(reinterpret_cast<Node*>(next));
        next = next->next;
    }
}

}  // namespace

DeviceIdMap usb::connect_nodes() {
    link_nodes();
    DeviceIdMap records;
    for (usbinterface* interface : usb::interfaces()) {
        if (interface->parent == nullptr) continue;
        UsbDevice::populate_category_device(interface);
        const int32_t id = usb::device_id(*interface->parent);
        trace_record(id, *interface);
        records.emplace(id, make_record(*interface));
    }
    return records;
}

void UsbDevice::inspect_bus_entry(const char* entry) {
    if (strncmp(entry, "usb", 3) == 0 && is_digit(entry[3])) {
        add_usb_bus(entry);
    } else if (is_digit(entry[0])) {
        const bool is_interface = strchr(entry, ':') != nullptr;
        is_interface ? add_usb_interface(entry) : add_usb_device(entry);
    } else if (strcmp(entry, ".") != 0 && strcmp(entry, "..") != 0) {
        fprintf(stderr, "ignoring '%s'\n", entry);
    }
}

void UsbDevice::add_usb_bus(const char* entry) {
    auto bus = new_node<usbbusnode>();
    if (bus == nullptr) return;
    parse_number(entry + strnlen(entry, strlen("usb")), &bus->busnum);
    store_name(entry, bus->name);
    read_attributes(SysfsEntry(entry), kBusAttributes, bus.get());
    trace("calling append_busnode ", bus->name);
    usbbusnode* const node = bus.release();
    usb::append_to_chain(&bus_list, node);
    get_roothub_driver(node, entry);
}

void UsbDevice::get_roothub_driver(usbbusnode* bus, const char* entry) {
    char path[kSysfsValueSize];
    const int length = usb::format_path(path, entry, "../driver");
    if (!usb::path_fits(length)) {
        // The entry stands twice on purpose: the message is kept as it has always been.
        LOG(ERROR) << "Cannot read driver link for " << entry << ": " << entry << length;
        return;
    }
    usb::read_link_name(AT_FDCWD, path, bus->driver);
}

void UsbDevice::add_usb_device(const char* entry) {
    trace(" add_usb_device  enter", entry);
    uint32_t busnum = 0;
    const char* const ports = parse_number(entry, &busnum);
    if (ports == entry) return;
    auto device = new_node<usbdevice>();
    if (device == nullptr) return;
    device->busnum = busnum;
    parse_ports(ports, device.get());

    const SysfsEntry sysfs(entry);
    // Read only for an entry that is too long, on purpose: nothing uses the value of a normal one,
    // and its read would come before all others.
    if (!usb::copy_text(device->name, entry)) {
        device->bConfigurationValue =
                static_cast<uint32_t>(sysfs.read_int("bConfigurationValue", 10));
    }
    read_attributes(sysfs, kDeviceAttributes, device.get());

    const int length = sysfs.path_length("driver");
    if (usb::path_fits(length)) {
        sysfs.read_driver(device->driver);
    } else {
        // As for a root hub, the entry stands twice on purpose.
        LOG(ERROR) << "Can not read driver link for " << entry << ": " << entry << length;
    }
    usb::append(&device_list, &device.release()->list);
}

void UsbDevice::add_usb_interface(const char* entry) {
    trace(" add_usb_interface  enter", entry);
    const char* const colon = strchr(entry, ':');
    if (colon == nullptr) return;
    uint32_t configuration = 0;
    const char* const dot = parse_number(colon + 1, &configuration);
    if (dot == colon + 1 || *dot == '\0') return;
    uint32_t ifnum = 0;
    if (parse_number(dot + 1, &ifnum) == dot + 1) return;
    auto interface = new_node<usbinterface>();
    if (interface == nullptr) return;
    interface->configuration = configuration;
    interface->ifnum = ifnum;
    store_name(entry, interface->name);

    const SysfsEntry sysfs(entry);
    read_attributes(sysfs, kInterfaceAttributes, interface.get());
    const int length = sysfs.path_length("driver");
    if (usb::path_fits(length)) {
        sysfs.read_driver(interface->driver);
    } else {
        trace("Can not read driver link for d_name:", entry, "for: ", length);
    }
    usb::append(&interface_list, &interface.release()->list);
}

void UsbDevice::connect_devices() {
    DeviceIdMap records = usb::connect_nodes();
    const std::lock_guard<std::mutex> lock(map_mutex);
    deviceid_map.merge(records);
}

void UsbDevice::assign_dev_to_parent(usbdevice* device) {
    for (usbdevice* candidate : usb::devices()) {
        if (candidate != device && hangs_on(*device, *candidate)) {
            device->parent = candidate;
            usb::append_to_chain(&candidate->first_child, device);
            return;
        }
    }
}

void UsbDevice::assign_interface_to_parent(usbdevice* device, usbinterface* interface) {
    const char* const colon = strchr(interface->name, ':');
    if (colon == nullptr) return;
    const std::string_view owner(interface->name, static_cast<size_t>(colon - interface->name));
    if (owner == device->name) {
        interface->parent = device;
        return usb::append_to_chain(&device->first_interface, interface);
    }
    // Looking at the configuration, not the port, is on purpose: configurations start at 1, so that
    // a root hub's own interfaces (1-0:1.0) stay unattached and out of the map.
    if (colon[1] != '0') return;
    uint32_t busnum = 0;
    if (parse_number(interface->name, &busnum) != interface->name) {
        attach_to_bus(busnum, interface);
    }
}

void UsbDevice::delete_all_nodes() {
    LOG(INFO) << "deleting the list using deleteAllnode";
    delete_nodes<usbdevice>(&device_list);
    delete_nodes<usbinterface>(&interface_list);
}

void UsbDevice::empty_list() {
    LOG(INFO) << "***Entered empty_list******";
    while (bus_list != nullptr) {
        const std::unique_ptr<usbbusnode> head(bus_list);
        bus_list = head->next;
    }
}

}  // namespace android::vus
