// SPDX-License-Identifier: Apache-2.0

// The device-id map: how it is rebuilt and read, and how a device's interfaces are switched off by
// it.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <utility>

#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using usb::DirectoryReader;

std::mutex UsbDevice::map_mutex;
DeviceIdMap UsbDevice::deviceid_map;

namespace {

// The order in which rebuilds started and which of them the map shows; guarded by map_mutex.
uint64_t last_ticket = 0;
uint64_t shown_ticket = 0;

// One cycle of the topology on the calling thread, from empty lists to empty lists, whose records
// become the map.
class Rebuild {
  public:
    Rebuild() {
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        ticket_ = ++last_ticket;
    }

    ~Rebuild() {
        UsbDevice::delete_all_nodes();
        UsbDevice::empty_list();
    }

    Rebuild(const Rebuild&) = delete;
    Rebuild& operator=(const Rebuild&) = delete;

    // Makes a node of every entry and links them. Returns false, with errno telling why, if there
    // is no directory; the map is then emptied.
    bool read_tree() {
        DirectoryReader directory(kUsbDevicesDir);
        if (!directory.ok()) {
            const base::ErrnoRestorer restorer;
            show({});
            return false;
        }
        while (const dirent64* entry = directory.next()) {
            UsbDevice::inspect_bus_entry(entry->d_name);
        }
        show(usb::connect_nodes());
        return true;
    }

  private:
    // Makes `records` the map, unless a rebuild that started later was quicker. That one saw every
    // device that this one was started for; this one may miss devices that it found, and a device
    // without records cannot be switched off.
    //
    // A removal reported meanwhile is undone where this cycle still met the device: a record too
    // many is harmless until the next rebuild, a record too few is not.
    void show(DeviceIdMap records) {
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        if (ticket_ < shown_ticket) return;
        shown_ticket = ticket_;
        UsbDevice::deviceid_map.swap(records);
    }

    uint64_t ticket_;
};

// The device's records in map order, and the size of the whole map.
std::pair<std::vector<usbinterface_custom>, size_t> records_of(int32_t id) {
    std::vector<usbinterface_custom> records;
    const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
    const auto [first, last] = UsbDevice::deviceid_map.equal_range(id);
    for (auto at = first; at != last; ++at) records.push_back(at->second);
    return {std::move(records), UsbDevice::deviceid_map.size()};
}

DeviceIdMap copy_of_map() {
    const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
    return UsbDevice::deviceid_map;
}

void print_record(int32_t id, const usbinterface_custom& record, int fd) {
    LOG(INFO) << " DeviceId: " << id << " Interface name:" << record.name
              << " class:" << record.bInterfaceClass << " Vendor ID:" << record.idVendor
              << " Product ID:" << record.idProduct;
    if (fd == -1) return;
    const std::string text = "\n DeviceId : " + std::to_string(id) +
                             ", Interface name : " + record.name +
                             ", class : " + std::to_string(record.bInterfaceClass) +
                             ", Vendor ID : " + std::to_string(record.idVendor) +
                             ", Product ID : " + std::to_string(record.idProduct);
    dprintf(fd, " %s\n", text.c_str());
}

// The same line for an open and for a write that failed is on purpose.
bool report_authorization_failure(const char* text) {
    perror(text);
    LOG(ERROR) << "Error! Could not open file";
    return false;
}

// Writes one interface's "authorized" attribute. Returns whether the next one may follow.
bool write_authorized(const char* path, char value) {
    const base::unique_fd fd(open(path, O_WRONLY | O_CLOEXEC));
    if (!fd.ok()) return report_authorization_failure("Unable to open the file");
    if (write(fd.get(), &value, 1) != 1) {
        return report_authorization_failure("Error writing to sysfs file");
    }
    return true;
}

bool authorize_interface(int32_t id, const usbinterface_custom& record, char value) {
    LOG(INFO) << "Found deviceId in native list : " << id << "\t interface path" << record.name;
    if (record.name[0] == '\0') {
        LOG(INFO) << "update_status interface_name is NULL";
        return true;
    }
    char path[kSysfsValueSize];
    usb::format_path(path, record.name, "authorized");
    LOG(INFO) << "update_status path is :" << path;
    return write_authorized(path, value);
}

}  // namespace

void UsbDevice::create_usb_device_map() {
    LOG(INFO) << "create_usb_device_map called";
    {
        Rebuild rebuild;
        if (!rebuild.read_tree()) perror(kUsbDevicesDir);
    }
    print_deviceid_map(-1);
    LOG(INFO) << "create_usb_device_map returned check loop";
}

void UsbDevice::dump_print_test(int fd) {
    LOG(INFO) << "dump_print_test called " << fd;
    {
        Rebuild rebuild;
        if (rebuild.read_tree()) {
            print_tree(fd);
            print_interfacelist(fd);
        }
    }
    print_deviceid_map(fd);
}

std::vector<usbinterface_custom> UsbDevice::get_deviceid_data(int deviceId) {
    auto [records, map_size] = records_of(deviceId);
    LOG(INFO) << "get_deviceid_data() with deviceId : " << deviceId << "size--" << map_size;
    for (const usbinterface_custom& record : records) {
        LOG(INFO) << "Found deviceid  : " << deviceId << "device : " << record.name;
    }
    return std::move(records);
}

bool UsbDevice::check_vendor_hid(int deviceId) {
    LOG(INFO) << "check_vendor_hid " << deviceId;
    for (const usbinterface_custom& record : records_of(deviceId).first) {
        LOG(INFO) << "Found deviceId in native list : " << deviceId << "\t interface path"
                  << record.name << " device category" << record.category;
        if (record.category == kCategoryVendorHid) return true;
    }
    return false;
}

void UsbDevice::update_deviceid_map(int deviceId, bool flag) {
    LOG(INFO) << "update_deviceid_map deviceId:" << deviceId << " flag:" << flag;
    if (flag) return;  // on purpose: additions come only from a rebuild
    const std::lock_guard<std::mutex> lock(map_mutex);
    deviceid_map.erase(deviceId);
}

void UsbDevice::print_deviceid_map(int fd) {
    LOG(INFO) << "print_deviceid_map ";
    const DeviceIdMap map = copy_of_map();
    if (fd != -1) dprintf(fd, "\n\nDeviceIdMap size%s\n", std::to_string(map.size()).c_str());
    for (const auto& [id, record] : map) print_record(id, record, fd);
}

void UsbDevice::update_status(int deviceId, int status) {
    LOG(INFO) << "update_status path with deviceId " << deviceId << " status:" << status;
    const char value = status == 0 ? '0' : '1';
    // A copy, because the kernel may hold a write for as long as a device takes to answer.
    for (const usbinterface_custom& record : records_of(deviceId).first) {
        if (!authorize_interface(deviceId, record, value)) return;
    }
}

}  // namespace android::vus
