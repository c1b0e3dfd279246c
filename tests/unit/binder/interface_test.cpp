// SPDX-License-Identifier: Apache-2.0
//
// What a client built from another version of the interface depends on: the numbers of the
// operations and the order of a record's fields.
#include <android/vus/BnVUsbServiceCallback.h>
#include <android/vus/DeviceInfo.h>
#include <android/vus/IVUsbService.h>
#include <android/vus/IVUsbServiceCallback.h>
#include <binder/Binder.h>
#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <string.h>

#include <new>
#include <string>
#include <vector>

namespace android::vus {
namespace {

// Takes every call and keeps its number.
class Recorder : public BBinder {
  public:
    uint32_t last = 0;

  protected:
    status_t onTransact(uint32_t code, const Parcel&, Parcel* reply, uint32_t) override {
        last = code;
        // OK, and zeros for whatever result the caller reads.
        for (int i = 0; i < 4; ++i) reply->writeInt32(0);
        return OK;
    }
};

class Callback : public BnVUsbServiceCallback {
    binder::Status onDeviceAdded(const DeviceInfo&) override { return binder::Status::ok(); }
    binder::Status onDeviceRemoved(const DeviceInfo&) override { return binder::Status::ok(); }
};

TEST(Interface, OperationsAreNumberedInOrder) {
    sp<Recorder> recorder = new Recorder;
    sp<IVUsbService> service = interface_cast<IVUsbService>(recorder);
    sp<IVUsbServiceCallback> callback = new Callback;
    const uint32_t first = IBinder::FIRST_CALL_TRANSACTION;
    std::vector<DeviceInfo> list;
    bool allowed = false;

    service->registerVusCallback(callback);
    EXPECT_EQ(first, recorder->last);
    service->unregisterVusCallback(callback);
    EXPECT_EQ(first + 1, recorder->last);
    service->getDeviceList(&list);
    EXPECT_EQ(first + 2, recorder->last);
    service->updateDeviceList(DeviceInfo(), 0);
    EXPECT_EQ(first + 3, recorder->last);
    service->isDeviceAllowed(DeviceInfo(), &allowed);
    EXPECT_EQ(first + 4, recorder->last);
    service->resetUsbDevices(0);
    EXPECT_EQ(first + 5, recorder->last);
}

TEST(Interface, CallbackOperationsAreNumberedInOrder) {
    sp<Recorder> recorder = new Recorder;
    sp<IVUsbServiceCallback> callback = interface_cast<IVUsbServiceCallback>(recorder);
    const uint32_t first = IBinder::FIRST_CALL_TRANSACTION;

    callback->onDeviceAdded(DeviceInfo());
    EXPECT_EQ(first, recorder->last);
    callback->onDeviceRemoved(DeviceInfo());
    EXPECT_EQ(first + 1, recorder->last);
}

TEST(Interface, Descriptors) {
    EXPECT_EQ(String16("android.vus.IVUsbService"), IVUsbService::descriptor);
    EXPECT_EQ(String16("android.vus.IVUsbServiceCallback"), IVUsbServiceCallback::descriptor);
}

TEST(DeviceInfo, NumbersStartAtZero) {
    // On memory that is not zero by chance.
    alignas(DeviceInfo) unsigned char memory[sizeof(DeviceInfo)];
    memset(memory, 0xa5, sizeof(memory));
    auto* info = new (memory) DeviceInfo;
    EXPECT_EQ(0, info->deviceId);
    EXPECT_EQ(0, info->deviceClass);
    EXPECT_EQ(0, info->vendorId);
    EXPECT_EQ(0, info->productId);
    EXPECT_EQ(0, info->status);
    EXPECT_EQ(0, info->deviceType);
    EXPECT_EQ(0, info->category);
    info->~DeviceInfo();
}

DeviceInfo Sample() {
    DeviceInfo info;
    info.deviceName = "Lecteur \xc3\xa9t\xc3\xa9";
    info.deviceId = 1002;
    info.deviceClass = -1;
    info.interfaceClassList = {8, 3, 255};
    info.vendorId = 0x17e9;
    info.productId = 0x6000;
    info.status = 1;
    info.deviceType = 0;
    info.reason = "because";
    info.category = 5;
    info.categoryPath = "usb0;ttyACM0;";
    return info;
}

TEST(DeviceInfo, EveryFieldSurvivesAParcel) {
    const DeviceInfo sent = Sample();
    Parcel parcel;
    ASSERT_EQ(OK, sent.writeToParcel(&parcel));
    parcel.setDataPosition(0);
    DeviceInfo got;
    ASSERT_EQ(OK, got.readFromParcel(&parcel));
    EXPECT_EQ(sent.deviceName, got.deviceName);
    EXPECT_EQ(sent.deviceId, got.deviceId);
    EXPECT_EQ(sent.deviceClass, got.deviceClass);
    EXPECT_EQ(sent.interfaceClassList, got.interfaceClassList);
    EXPECT_EQ(sent.vendorId, got.vendorId);
    EXPECT_EQ(sent.productId, got.productId);
    EXPECT_EQ(sent.status, got.status);
    EXPECT_EQ(sent.deviceType, got.deviceType);
    EXPECT_EQ(sent.reason, got.reason);
    EXPECT_EQ(sent.category, got.category);
    EXPECT_EQ(sent.categoryPath, got.categoryPath);
    EXPECT_EQ(parcel.dataSize(), parcel.dataPosition());
}

TEST(DeviceInfo, FieldsTravelInTheOrderOfTheirDeclaration) {
    Parcel parcel;
    ASSERT_EQ(OK, Sample().writeToParcel(&parcel));
    parcel.setDataPosition(0);
    parcel.readInt32();  // the record's size, which lets a reader skip fields that it does not know
    std::string text;
    std::vector<int32_t> classes;
    ASSERT_EQ(OK, parcel.readUtf8FromUtf16(&text));
    EXPECT_EQ("Lecteur \xc3\xa9t\xc3\xa9", text);
    EXPECT_EQ(1002, parcel.readInt32());
    EXPECT_EQ(-1, parcel.readInt32());
    ASSERT_EQ(OK, parcel.readInt32Vector(&classes));
    EXPECT_EQ((std::vector<int32_t>{8, 3, 255}), classes);
    EXPECT_EQ(0x17e9, parcel.readInt32());
    EXPECT_EQ(0x6000, parcel.readInt32());
    EXPECT_EQ(1, parcel.readInt32());
    EXPECT_EQ(0, parcel.readInt32());
    ASSERT_EQ(OK, parcel.readUtf8FromUtf16(&text));
    EXPECT_EQ("because", text);
    EXPECT_EQ(5, parcel.readInt32());
    ASSERT_EQ(OK, parcel.readUtf8FromUtf16(&text));
    EXPECT_EQ("usb0;ttyACM0;", text);
}

}  // namespace
}  // namespace android::vus
