// SPDX-License-Identifier: Apache-2.0
//
// Calls the service as no generated client does: with a record that claims to have interface
// classes and ends before the first of them.
//
//   vus_malformed_call COUNT
//
// Makes each call that takes a record, and prints the status that it is answered with.

#include <stdio.h>
#include <stdlib.h>

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <utils/String16.h>

#include "android/vus/IVUsbService.h"

namespace android::vus {
namespace {

// By their places in the interface.
constexpr uint32_t kUpdateDeviceList = IBinder::FIRST_CALL_TRANSACTION + 3;
constexpr uint32_t kIsDeviceAllowed = IBinder::FIRST_CALL_TRANSACTION + 4;

status_t call(const sp<IBinder>& service, uint32_t code, int32_t classes) {
    constexpr int32_t kRecordSize = 1000;
    Parcel data;
    data.writeInterfaceToken(IVUsbService::descriptor);
    data.writeInt32(1);  // there is a record
    data.writeInt32(kRecordSize);
    data.writeString16(String16("disk"));
    data.writeInt32(1002);  // deviceId
    data.writeInt32(0);     // deviceClass
    data.writeInt32(classes);
    Parcel reply;
    return service->transact(code, data, &reply, 0);
}

int run(const char* count) {
    const sp<IBinder> service = defaultServiceManager()->checkService(String16("vusbservice"));
    if (service == nullptr) {
        fprintf(stderr, "vus_malformed_call: the daemon is not running\n");
        return 3;
    }
    const auto classes = static_cast<int32_t>(strtol(count, nullptr, 10));
    for (const uint32_t code : {kUpdateDeviceList, kIsDeviceAllowed}) {
        printf("%d\n", call(service, code, classes));
    }
    return 0;
}

}  // namespace
}  // namespace android::vus

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: vus_malformed_call COUNT\n");
        return 2;
    }
    return android::vus::run(argv[1]);
}
