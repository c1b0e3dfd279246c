// SPDX-License-Identifier: Apache-2.0

// The links that make a tree of the nodes, the records that the tree leaves in the device-id map,
// and the end of the nodes.

#include <memory>
#include <string_view>
#include <unordered_map>

#include "android/vus/mutex.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using usb::trace;

namespace {

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

using DevicesByName = std::unordered_map<std::string_view, usbdevice*>;

// The first device of each name.
DevicesByName index_devices() {
    DevicesByName devices;
    for (usbdevice* device : usb::devices()) devices.try_emplace(device->name, device);
    return devices;
}

// What UsbDevice::assign_dev_to_parent() does, without looking at every device.
void attach_to_hub(const DevicesByName& devices, usbdevice* device) {
    const std::string_view name(device->name);
    const auto hub = devices.find(name.substr(0, name.rfind('.')));
    if (hub == devices.end()) return;
    if (hub->second == device || !hangs_on(*device, *hub->second)) {
        return UsbDevice::assign_dev_to_parent(device);
    }
    device->parent = hub->second;
    usb::append_to_chain(&hub->second->first_child, device);
}

// Whether a bus may claim the interface: only one of a configuration 0, which devices do not have
// if they keep to the rules.
bool is_for_bus(const usbinterface& interface) {
    const char* const colon = strchr(interface.name, ':');
    return colon != nullptr && colon[1] == '0';
}

// Offers each interface to its device.
void attach_by_name(const DevicesByName& devices) {
    for (usbinterface* interface : usb::interfaces()) {
        const std::string_view name(interface->name);
        const auto device = devices.find(name.substr(0, name.find(':')));
        if (interface->parent != nullptr || device == devices.end()) continue;
        UsbDevice::assign_interface_to_parent(device->second, interface);
    }
}

// Offers each interface to each device until one takes it. An interface on a bus keeps a null
// parent and is offered again to each later device; the bus takes it only once.
void attach_by_trying() {
    for (usbdevice* device : usb::devices()) {
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

// The blanks of these texts are doubled here and missing there (kept: oddity 22): they are as they
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

// In time that grows with the nodes, not with their pairs: a reset has every device judged anew,
// and each of these decisions links all of them.
void usb::link_nodes() {
    const DevicesByName by_name = index_devices();
    for (usbdevice* device : devices()) {
        device->parent_portnum != 0 ? attach_to_hub(by_name, device) : attach_to_root_hub(device);
    }
    bool is_any_for_bus = false;
    for (const usbinterface* interface : interfaces()) is_any_for_bus |= is_for_bus(*interface);
    is_any_for_bus ? attach_by_trying() : attach_by_name(by_name);
}

void usb::add_record(const usbinterface& interface, DeviceIdMap* records) {
    const int32_t id = device_id(*interface.parent);
    trace_record(id, interface);
    records->emplace(id, make_record(interface));
}

void UsbDevice::connect_devices() {
    usb::link_nodes();
    DeviceIdMap records;
    for (usbinterface* interface : usb::interfaces()) {
        if (interface->parent == nullptr) continue;
        populate_category_device(interface);
        usb::add_record(*interface, &records);
    }
    const MutexLock lock(map_mutex);
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
    // The configuration is looked at, not the port (kept: oddity 25): configurations start at 1, so
    // that a root hub's own interfaces (1-0:1.0) stay unattached and out of the map.
    if (colon[1] != '0') return;
    uint32_t busnum = 0;
    if (usb::parse_number(interface->name, &busnum) != interface->name) {
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
