// SPDX-License-Identifier: Apache-2.0
//
// Calls as no generated client makes them: by hand, with records that claim what they do not hold.

#include <binder/Parcel.h>

#include <climits>

#include "service_fixture.h"

namespace android::vus {
namespace {

constexpr uint32_t kGetDeviceList = IBinder::FIRST_CALL_TRANSACTION + 2;
constexpr uint32_t kUpdateDeviceList = IBinder::FIRST_CALL_TRANSACTION + 3;
constexpr uint32_t kIsDeviceAllowed = IBinder::FIRST_CALL_TRANSACTION + 4;

class MalformedCallTest : public ServiceTest {
  protected:
    // A call with a record up to its class list, which claims `count` classes and holds `held`.
    static void WriteCall(Parcel* parcel, int32_t count, int held, int32_t recordSize = 1000) {
        parcel->writeInterfaceToken(IVUsbService::descriptor);
        parcel->writeInt32(1);  // there is a record
        parcel->writeInt32(recordSize);
        parcel->writeString16(String16("disk"));
        parcel->writeInt32(1002);
        parcel->writeInt32(0);
        parcel->writeInt32(count);
        for (int i = 0; i < held; ++i) parcel->writeInt32(8);
    }

    status_t Call(uint32_t code, const Parcel& data) {
        Parcel reply;
        data.setDataPosition(0);
        return service_->transact(code, data, &reply, 0);
    }
};

TEST_F(MalformedCallTest, ARecordCannotClaimMoreClassesThanItHolds) {
    for (const uint32_t code : {kUpdateDeviceList, kIsDeviceAllowed}) {
        // 30,000,000 would be memory that can be had, and cost a machine of 256 MB its daemon.
        for (const int32_t count : {1, 2, 30000000, INT_MAX}) {
            Parcel parcel;
            WriteCall(&parcel, count, count == 2 ? 1 : 0);
            EXPECT_EQ(Call(code, parcel), BAD_VALUE) << count;
        }
    }
    EXPECT_TRUE(List().empty());
    EXPECT_TRUE(Logged("a call claims more interface classes than it holds"));
}

TEST_F(MalformedCallTest, WhatIsWrongInOtherWaysIsAnsweredByTheGeneratedCode) {
    Parcel negative;
    WriteCall(&negative, -1, 0);
    EXPECT_EQ(Call(kIsDeviceAllowed, negative), OK) << "a null list: an exception in the reply";
    Parcel cut;
    WriteCall(&cut, 2, 2);
    EXPECT_EQ(Call(kIsDeviceAllowed, cut), NOT_ENOUGH_DATA);
    Parcel stranger;
    stranger.writeInterfaceToken(String16("some.other.Interface"));
    EXPECT_EQ(Call(kIsDeviceAllowed, stranger), BAD_TYPE);
    Parcel empty;
    EXPECT_NE(Call(kUpdateDeviceList, empty), OK);
    EXPECT_FALSE(Logged("a call claims more interface classes than it holds"));
}

// Whoever has an interface of fewer fields writes shorter records.
TEST_F(MalformedCallTest, ARecordThatEndsBeforeItsClassListIsTaken) {
    constexpr int32_t kSizeUpToTheList = 4 + 16 + 4 + 4;
    Parcel parcel;
    WriteCall(&parcel, /*count, which is the action here*/ 1, 0, kSizeUpToTheList);
    EXPECT_EQ(Call(kUpdateDeviceList, parcel), OK);
    EXPECT_TRUE(Logged("disk device added to mUsbDeviceInfoList"));
}

TEST_F(MalformedCallTest, AWholeRecordIsTaken) {
    DeviceInfo info = UsbDeviceInfo(1002, std::vector<int32_t>(1000, 8), "disk");
    Parcel parcel;
    parcel.writeInterfaceToken(IVUsbService::descriptor);
    parcel.writeParcelable(info);
    EXPECT_EQ(Call(kIsDeviceAllowed, parcel), OK);
    ASSERT_EQ(List().size(), 1u);
    EXPECT_EQ(List().front().interfaceClassList.size(), 1000u);
    Parcel list;
    list.writeInterfaceToken(IVUsbService::descriptor);
    EXPECT_EQ(Call(kGetDeviceList, list), OK);
}

}  // namespace
}  // namespace android::vus
