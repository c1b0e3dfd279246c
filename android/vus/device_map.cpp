// SPDX-License-Identifier: Apache-2.0

#include "android/vus/device_map.h"

#include <errno.h>
#include <stdio.h>

#include <set>
#include <thread>

#include "android/vus/paths.h"

namespace android::vus {

Mutex UsbDevice::map_mutex;
DeviceIdMap UsbDevice::deviceid_map;

namespace usb {

namespace {

DeviceRecords records_in(const DeviceIdMap& map, int32_t id) {
    DeviceRecords records;
    const auto [first, last] = map.equal_range(id);
    for (auto at = first; at != last; ++at) records.push_back(at->second);
    return records;
}

// Adds those devices of `old` that `records` has nothing of.
void add_missing(const DeviceIdMap& old, DeviceIdMap* records) {
    std::set<int32_t> found;
    for (const auto& [id, record] : *records) found.insert(id);
    for (const auto& [id, record] : old) {
        if (found.count(id) == 0) records->emplace(id, record);
    }
}

bool is_absence(int error) {
    return error == ENOENT || error == ENOTDIR;
}

}  // namespace

DeviceMap::DeviceMap(Keeping keeping) : keeping_(keeping) {}

DeviceMap::Start DeviceMap::start() {
    const MutexLock lock(mutex_);
    return {++last_ticket_, topology_};
}

// Makes `records` the map, unless a rebuild that started later was quicker. That one saw every
// device that this one was started for; this one may miss devices that it found, and a device
// without records cannot be switched off.
//
// A removal reported meanwhile is undone where this cycle still met the device: a record too many
// is harmless until the next rebuild, a record too few is not.
void DeviceMap::show(const Start& start, DeviceIdMap records, const Cycle& cycle) {
    std::shared_ptr<const Topology> topology = cycle.topology();
    const MutexLock lock(mutex_);
    if (start.ticket < shown_ticket_) return;
    shown_ticket_ = start.ticket;
    if (topology != nullptr) topology_.swap(topology);
    const MutexLock map_lock(UsbDevice::map_mutex);
    if (cycle.broke_off()) add_missing(UsbDevice::deviceid_map, &records);
    UsbDevice::deviceid_map.swap(records);
}

void DeviceMap::rebuild() {
    const Start start = this->start();
    Cycle cycle({keeping_, nullptr, kDecisionPatience, std::nullopt});
    if (!cycle.read_entries()) perror(kUsbDevicesDir);
    show(start, cycle.connect(), cycle);
}

void DeviceMap::rebuild_and_print(int fd) {
    const Start start = this->start();
    Cycle cycle({keeping_, nullptr, kDumpPatience, std::nullopt});
    const bool is_there = cycle.read_entries();
    show(start, cycle.connect(), cycle);
    if (!is_there) return;
    UsbDevice::print_tree(fd);
    UsbDevice::print_interfacelist(fd);
}

// One cycle of a decision. Returns whether the directory could be listed to its end.
bool DeviceMap::read_once(int32_t id, DeviceRecords* own, bool* lacked_means) {
    const Start start = this->start();
    Cycle cycle({keeping_, start.before, kDecisionPatience, id});
    const bool is_there = cycle.read_entries();
    const int error = errno;
    DeviceIdMap records = cycle.connect();
    *own = records_in(records, id);
    *lacked_means = cycle.lacked_means();
    if (is_there || is_absence(error)) show(start, std::move(records), cycle);
    if (!is_there) {
        errno = error;
        perror(kUsbDevicesDir);
    }
    return is_there ? !cycle.broke_off() : is_absence(error);
}

DeviceRecords DeviceMap::refresh(int32_t id) {
    DeviceRecords own;
    for (int attempt = 1;; ++attempt) {
        bool lacked_means = false;
        const bool is_listed = read_once(id, &own, &lacked_means);
        if (!own.empty() || (is_listed && !lacked_means)) return own;
        if (attempt == kAttempts || !lacked_means) break;
        std::this_thread::sleep_for(kAttemptPause);
    }
    return records_of(id);
}

DeviceIdMap DeviceMap::copy() {
    const MutexLock lock(UsbDevice::map_mutex);
    return UsbDevice::deviceid_map;
}

DeviceRecords DeviceMap::records_of(int32_t id) {
    const MutexLock lock(UsbDevice::map_mutex);
    return records_in(UsbDevice::deviceid_map, id);
}

size_t DeviceMap::size() {
    const MutexLock lock(UsbDevice::map_mutex);
    return UsbDevice::deviceid_map.size();
}

void DeviceMap::forget(int32_t id) {
    const MutexLock lock(UsbDevice::map_mutex);
    UsbDevice::deviceid_map.erase(id);
}

std::optional<std::string> DeviceMap::interface_of_vendor(uint32_t vendor) {
    const MutexLock lock(UsbDevice::map_mutex);
    for (const auto& [id, record] : UsbDevice::deviceid_map) {
        if (record.idVendor == vendor) return record.name;
    }
    return std::nullopt;
}

DeviceMap& device_map() {
    // Never destroyed: threads may still judge while the process exits.
    static auto* const map = new DeviceMap(Keeping::kOnSysfs);
    return *map;
}

}  // namespace usb

DeviceRecords refresh_device_map(int32_t id) {
    LOG(INFO) << "create_usb_device_map called";
    DeviceRecords records = usb::device_map().refresh(id);
    UsbDevice::print_deviceid_map(-1);
    LOG(INFO) << "create_usb_device_map returned check loop";
    return records;
}

bool has_vendor_hid(int32_t id, const DeviceRecords& records) {
    LOG(INFO) << "check_vendor_hid " << id;
    for (const usbinterface_custom& record : records) {
        LOG(INFO) << "Found deviceId in native list : " << id << "\t interface path" << record.name
                  << " device category" << record.category;
        if (record.category == kCategoryVendorHid) return true;
    }
    return false;
}

void log_device_data(int32_t id, const DeviceRecords& records) {
    LOG(INFO) << "get_deviceid_data() with deviceId : " << id << "size--" << usb::DeviceMap::size();
    for (const usbinterface_custom& record : records) {
        LOG(INFO) << "Found deviceid  : " << id << "device : " << record.name;
    }
}

}  // namespace android::vus
