// SPDX-License-Identifier: Apache-2.0

// Calls the service with any bytes as a call's parcel. What it answers and remembers about a device
// is what the policy says of the record that was in it.
//
// The input's first byte chooses the operation, and with its highest bit leaves out the interface's
// name that every proper call begins with. The rest is the parcel.
//
// Resets are left out: they sleep, and all that such a call carries is a number.

#include <fcntl.h>

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <android-base/unique_fd.h>
#include <binder/Parcel.h>
#include <private/binder/Static.h>

#include "android/vus/judge.h"
#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"
#include "fuzz/fuzzing.h"
#include "tests/support/fake_binder.h"

namespace android::vus {
namespace {

constexpr uint32_t kOperations = 5;
constexpr uint32_t kIsDeviceAllowed = 4;
constexpr uint8_t kWithoutName = 0x80;
constexpr int32_t kRemoved = 0;
constexpr char kPolicyText[] =
        "<usbconfig mode=\"whitelist\"><class>USB_CLASS_AUDIO</class>"
        "<class>AINPUT_SOURCE_MOUSE</class><vid vendorid=\"1\"><pid>2</pid></vid>"
        "<vid vendorid=\"5\"/></usbconfig>";

const Policy& PolicyInForce() {
    static const Policy policy = std::get<Policy>(parsePolicy(kPolicyText));
    return policy;
}

VUsbService* Service() {
    static const sp<VUsbService> service = new VUsbService;
    return service.get();
}

std::vector<DeviceInfo> List() {
    std::vector<DeviceInfo> list;
    Require(Service()->getDeviceList(&list).isOk());
    return list;
}

std::string Written(const DeviceInfo& info) {
    Parcel parcel;
    Require(info.writeToParcel(&parcel) == OK);
    return {reinterpret_cast<const char*>(parcel.data()), parcel.dataSize()};
}

void CheckRoundTrip(const DeviceInfo& info) {
    const std::string written = Written(info);
    Parcel parcel;
    parcel.setData(reinterpret_cast<const uint8_t*>(written.data()), written.size());
    parcel.setDataPosition(0);
    DeviceInfo again;
    Require(again.readFromParcel(&parcel) == OK && Written(again) == written);
}

// The record that the parcel holds, as the generated code reads it.
std::optional<DeviceInfo> RecordIn(const Parcel& call) {
    call.setDataPosition(0);
    DeviceInfo info;
    if (!call.enforceInterface(IVUsbService::descriptor)) return std::nullopt;
    if (call.readParcelable(&info) != OK) return std::nullopt;
    return info;
}

// Nothing is attached, so that no USB device is its vendor's own HID.
bool IsLeftToInput(const DeviceInfo& info) {
    return info.deviceType == 0 && !firstClassOtherThanHid(info.interfaceClassList);
}

void CheckAnswer(const DeviceInfo& asked, bool answer) {
    const Judgement expected =
            judge({asked.deviceClass, asked.interfaceClassList, asked.vendorId, asked.productId},
                  PolicyRules(PolicyInForce()));
    const std::vector<DeviceInfo> list = List();
    if (IsLeftToInput(asked)) return Require(!answer && list.empty());
    Require(answer == expected.allowed && list.size() == 1);
    const DeviceInfo& listed = list.front();
    Require(listed.deviceId == asked.deviceId && listed.deviceName == asked.deviceName &&
            listed.interfaceClassList == asked.interfaceClassList);
    Require((listed.status == 1) == answer && listed.reason == expected.reason);
}

void CheckDump() {
    static const base::unique_fd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    Service()->dump(null.get(), {});
}

void Forget(const std::vector<DeviceInfo>& list) {
    for (const DeviceInfo& info : list) Service()->updateDeviceList(info, kRemoved);
    Require(List().empty());
}

}  // namespace
}  // namespace android::vus

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    using namespace android::vus;  // NOLINT(google-build-using-namespace)
    StartFuzzing();
    EmptyWorld();
    MakeDir(kUsbDevicesDir);
    WriteFile(kPolicyFile, kPolicyText);
    Util::createMapFromConfig(kPolicyFile);
    android::gDefaultServiceManager = new FakeServiceManager;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android;       // NOLINT(google-build-using-namespace)
    using namespace android::vus;  // NOLINT(google-build-using-namespace)
    if (size == 0) return 0;
    const uint32_t operation = (data[0] & ~kWithoutName) % kOperations;
    Parcel call;
    Parcel reply;
    if ((data[0] & kWithoutName) == 0) call.writeInterfaceToken(IVUsbService::descriptor);
    call.write(data + 1, size - 1);
    call.setDataPosition(0);
    const status_t status =
            Service()->transact(IBinder::FIRST_CALL_TRANSACTION + operation, call, &reply, 0);
    const std::vector<DeviceInfo> list = List();
    Require(list.size() <= 1);
    for (const DeviceInfo& info : list) CheckRoundTrip(info);
    CheckDump();
    reply.setDataPosition(0);
    if (operation == kIsDeviceAllowed && status == OK && reply.readExceptionCode() == 0) {
        const std::optional<DeviceInfo> asked = RecordIn(call);
        Require(asked.has_value());
        CheckAnswer(*asked, reply.readBool());
    }
    Forget(list);
    return 0;
}
