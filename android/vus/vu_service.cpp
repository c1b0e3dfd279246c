// SPDX-License-Identifier: Apache-2.0
//
// The service's start, the device lists and what is reported about devices. All access to the
// device lists is in this file, because each source file has a pair of its own.

#include "android/vus/vu_service.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>

#include <android-base/logging.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <utils/String16.h>

#include "android/vus/device_map.h"
#include "android/vus/gathered_log.h"
#include "android/vus/paths.h"
#include "android/vus/usbdevice.h"
#include "android/vus/util.h"

namespace android::vus {

std::atomic<bool> VUsbService::debugBuild{false};

namespace {

using DeviceList = std::map<int32_t, std::unique_ptr<DeviceInfo>>;

constexpr char kDebugBuildType[] = "userdebug";
constexpr int32_t kActionRemoved = 0;

Mutex deviceListMutex;

// The two lists are touched by way of these alone.
DeviceList& usbDevices() REQUIRES(deviceListMutex) {
    return mUsbDeviceInfoList;
}
DeviceList& inputDevices() REQUIRES(deviceListMutex) {
    return mInputDeviceInfoList;
}
DeviceList& listOf(const DeviceInfo& info) REQUIRES(deviceListMutex) {
    return info.deviceType != 0 ? inputDevices() : usbDevices();
}

void readBuildType() {
    char type[PROPERTY_VALUE_MAX];
    // An unset property counts as a debug build (kept: oddity 3).
    property_get(kBuildTypeProperty, type, kDebugBuildType);
    if (std::string_view(type) == kDebugBuildType) VUsbService::debugBuild = true;
}

void publish(const sp<VUsbService>& service) {
    LOG(INFO) << "Register called in vu_service";
    const status_t status = defaultServiceManager()->addService(String16(kServiceName), service);
    if (status != OK) {
        LOG(FATAL) << "Could not register VUS" << status;
    } else {
        LOG(INFO) << "vus service Registered successfully";
    }
}

// The categories and paths of a device's interfaces, folded into the device's record.
void sumCategories(const DeviceRecords& interfaces, DeviceInfo* record) {
    for (const usbinterface_custom& interface : interfaces) {
        record->category += interface.category;
        const std::string path = interface.category_path;
        // A path that occurs within an earlier one is left out, and the text "empty" of an
        // interface without a function stays (kept: oddity 4).
        if (path.empty() || record->categoryPath.find(path) != std::string::npos) continue;
        record->categoryPath += path + ";";
    }
}

std::unique_ptr<DeviceInfo> makeRecord(DeviceInfo info, bool allowed, std::string reason) {
    auto record = std::make_unique<DeviceInfo>(std::move(info));
    record->status = allowed ? 1 : 0;
    record->reason = std::move(reason);
    record->category = 0;
    record->categoryPath.clear();
    return record;
}

// An id that is already known keeps its record, and `record` is dropped (kept: oddity 5).
void insertRecord(std::unique_ptr<DeviceInfo> record) {
    const MutexLock<> lock(deviceListMutex);
    const int32_t id = record->deviceId;
    listOf(*record).try_emplace(id, std::move(record));
}

void eraseRecord(const DeviceInfo& info) {
    const MutexLock<> lock(deviceListMutex);
    listOf(info).erase(info.deviceId);
}

std::vector<DeviceInfo> copyRecords(const DeviceList& list) {
    std::vector<DeviceInfo> records;
    records.reserve(list.size());
    for (const auto& [id, record] : list) records.push_back(*record);
    return records;
}

void logListSizes() {
    size_t inputSize = 0;
    size_t usbSize = 0;
    {
        const MutexLock<> lock(deviceListMutex);
        inputSize = inputDevices().size();
        usbSize = usbDevices().size();
    }
    LOG(INFO) << "updateDeviceList--mInputDeviceInfoList size: " << inputSize
              << " mUsbDeviceInfoList size: " << usbSize;
}

// The operations that take a DeviceInfo, by their places in the interface.
constexpr uint32_t kUpdateDeviceList = IBinder::FIRST_CALL_TRANSACTION + 3;
constexpr uint32_t kIsDeviceAllowed = IBinder::FIRST_CALL_TRANSACTION + 4;

// Reads a record as far as its class list.
bool recordClaimsTooManyClasses(const Parcel& data) {
    const size_t start = data.dataPosition();
    const int32_t size = data.readInt32();
    size_t nameLength = 0;
    data.readString16Inplace(&nameLength);
    data.readInt32();  // deviceId
    data.readInt32();  // deviceClass
    // The record of a client that knows only the fields before the list ends there.
    if (size < 0 || data.dataPosition() - start >= static_cast<size_t>(size)) return false;
    const int32_t classes = data.readInt32();
    return classes > 0 && static_cast<size_t>(classes) > data.dataAvail() / sizeof(int32_t);
}

// Leaves the parcel as it was. What is wrong with it in any other way is found by its real reader.
bool claimsTooManyClasses(const Parcel& data) {
    const size_t begin = data.dataPosition();
    const bool readable = data.enforceInterface(IVUsbService::descriptor) && data.readInt32() != 0;
    const bool tooMany = readable && recordClaimsTooManyClasses(data);
    data.setDataPosition(begin);
    return tooMany;
}

}  // namespace

void VUsbService::Register() {
    LOG(INFO) << " parsing register createmap called";
    readBuildType();
    PolicyFiles::loadAtStart(Util::loadFile);
    const sp<VUsbService> service = new VUsbService;
    publish(service);
    registerFileObserverViaThread();
}

// The generated code makes room for as many interface classes as a parcel claims to hold before it
// reads the first.
status_t VUsbService::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    const bool hasRecord = code == kUpdateDeviceList || code == kIsDeviceAllowed;
    if (hasRecord && claimsTooManyClasses(data)) {
        LOG(ERROR) << "a call claims more interface classes than it holds";
        return BAD_VALUE;
    }
    const status_t result = BnVUsbService::onTransact(code, data, reply, flags);
    // A call from within a call that the daemon made: the one that it was made for may still wait.
    writeGatheredLog();
    return result;
}

binder::Status VUsbService::updateDeviceList(const DeviceInfo& info, int32_t action) {
    const GatheredLog log;
    if (isAutomationSet()) {
        LOG(INFO) << "updateDeviceList::Automation flag set, return";
        return binder::Status::ok();
    }
    LOG(INFO) << "updateDeviceList--Device Name : " << info.deviceName
              << "updateStatus::Added/Removed " << action;
    const bool isInput = info.deviceType != 0;
    if (action != kActionRemoved) {
        // Nothing is entered: a device enters its list by being judged (kept: oddity 6).
        LOG(INFO) << info.deviceName << " device added to "
                  << (isInput ? "mInputDeviceInfoList" : "mUsbDeviceInfoList");
    } else if (isInput) {
        LOG(INFO) << info.deviceName << " device removed from mInputDeviceInfoList";
        eraseRecord(info);
    } else {
        removeUsbDevice(info);
    }
    logListSizes();
    return binder::Status::ok();
}

// The clients hear of every removal, even of a device that was never in the list.
void VUsbService::removeUsbDevice(const DeviceInfo& info) {
    LOG(INFO) << "updateDeviceList--calling get_deviceid_data while removing";
    notifyDeviceRemoved(info);
    UsbDevice::update_deviceid_map(info.deviceId, false);
    LOG(INFO) << info.deviceName << " device removed from mUsbDeviceInfoList";
    eraseRecord(info);
}

void VUsbService::addDeviceList(DeviceInfo info, bool allowed, std::string reason) {
    DeviceRecords interfaces;
    if (info.deviceType == 0) interfaces = usb::DeviceMap::records_of(info.deviceId);
    enterDevice(std::move(info), allowed, std::move(reason), interfaces);
}

void VUsbService::enterDevice(DeviceInfo info, bool allowed, std::string reason,
                              const DeviceRecords& interfaces) {
    std::unique_ptr<DeviceInfo> record = makeRecord(std::move(info), allowed, std::move(reason));
    if (record->deviceType != 0) {
        LOG(INFO) << record->deviceName << " device added to mInputDeviceInfoList";
        insertRecord(std::move(record));
        return;
    }
    log_device_data(record->deviceId, interfaces);
    LOG(INFO) << record->deviceName << " device added to mUsbDeviceInfoList ";
    LOG(INFO) << "custom_struct size is " << interfaces.size();
    sumCategories(interfaces, record.get());
    LOG(INFO) << " device category  " << record->category << " categoryPath "
              << record->categoryPath;
    notifyDeviceAdded(*record);
    insertRecord(std::move(record));
}

VUsbService::DeviceLists VUsbService::copyDeviceLists() {
    const MutexLock<> lock(deviceListMutex);
    return {copyRecords(inputDevices()), copyRecords(usbDevices())};
}

binder::Status VUsbService::getDeviceList(std::vector<DeviceInfo>* out) {
    LOG(INFO) << "--getDeviceList()--";
    DeviceLists lists = copyDeviceLists();
    LOG(INFO) << "getDeviceList--completeDeviceInfoList size"
              << lists.input.size() + lists.usb.size();
    std::move(lists.input.begin(), lists.input.end(), std::back_inserter(*out));
    std::move(lists.usb.begin(), lists.usb.end(), std::back_inserter(*out));
    return binder::Status::ok();
}

binder::Status VUsbService::resetUsbDevices(int32_t value) {
    LOG(INFO) << "resetUsbDevices called";
    resetHostPorts(value);
    return binder::Status::ok();
}

// A power supply that does not read as a number must not end the daemon: the reset has failed,
// its mutex is free again, and the caller goes on.
void VUsbService::resetHostPorts(int32_t value) {
    try {
        UsbDevice::usb_host_reset(value);
    } catch (const std::exception& failure) {
        LOG(ERROR) << "usb_host_reset failed: " << failure.what();
    }
}

bool VUsbService::isAutomationSet() {
    return property_get_int32(kAutomationProperty, 0) == 1;
}

}  // namespace android::vus
