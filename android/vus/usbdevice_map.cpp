// SPDX-License-Identifier: Apache-2.0

// UsbDevice's face of the device-id map, and its printing.

#include <stdio.h>

#include <string>

#include "android/vus/device_map.h"
#include "android/vus/plain_log.h"
#include "android/vus/usbdevice.h"
#include "android/vus/usbdevice_internal.h"

namespace android::vus {

using usb::DeviceMap;

namespace {

void print_record(int32_t id, const usbinterface_custom& record, int fd) {
    logText(" DeviceId: " + std::to_string(id) + " Interface name:" + record.name +
            " class:" + std::to_string(record.bInterfaceClass) + " Vendor ID:" +
            std::to_string(record.idVendor) + " Product ID:" + std::to_string(record.idProduct));
    if (fd == -1) return;
    const std::string text = "\n DeviceId : " + std::to_string(id) +
                             ", Interface name : " + record.name +
                             ", class : " + std::to_string(record.bInterfaceClass) +
                             ", Vendor ID : " + std::to_string(record.idVendor) +
                             ", Product ID : " + std::to_string(record.idProduct);
    dprintf(fd, " %s\n", text.c_str());
}

}  // namespace

void UsbDevice::create_usb_device_map() {
    LOG(INFO) << "create_usb_device_map called";
    usb::device_map().rebuild();
    print_deviceid_map(-1);
    LOG(INFO) << "create_usb_device_map returned check loop";
}

void UsbDevice::dump_print_test(int fd) {
    LOG(INFO) << "dump_print_test called " << fd;
    usb::device_map().rebuild_and_print(fd);
    print_deviceid_map(fd);
}

std::vector<usbinterface_custom> UsbDevice::get_deviceid_data(int deviceId) {
    DeviceRecords records = DeviceMap::records_of(deviceId);
    log_device_data(deviceId, records);
    return records;
}

bool UsbDevice::check_vendor_hid(int deviceId) {
    return has_vendor_hid(deviceId, DeviceMap::records_of(deviceId));
}

void UsbDevice::update_deviceid_map(int deviceId, bool flag) {
    LOG(INFO) << "update_deviceid_map deviceId:" << deviceId << " flag:" << flag;
    if (!flag) DeviceMap::forget(deviceId);  // additions come only from a rebuild; kept: oddity 21
}

void UsbDevice::print_deviceid_map(int fd) {
    LOG(INFO) << "print_deviceid_map ";
    const DeviceIdMap map = DeviceMap::copy();
    if (fd != -1) dprintf(fd, "\n\nDeviceIdMap size%s\n", std::to_string(map.size()).c_str());
    for (const auto& [id, record] : map) print_record(id, record, fd);
}

void UsbDevice::update_status(int deviceId, int status) {
    authorize(deviceId, DeviceMap::records_of(deviceId), status);
}

}  // namespace android::vus
