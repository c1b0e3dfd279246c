// SPDX-License-Identifier: Apache-2.0
//
// Whole decisions, from the call of isDeviceAllowed() to its answer: the map rebuilt from the USB
// tree, the rules, the record in the device list, and for a refused device its interfaces switched
// off.

#include <benchmark/benchmark.h>

#include "android/vus/device_map.h"
#include "android/vus/usbdevice.h"
#include "android/vus/vu_service.h"
#include "bench/policies.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

constexpr int32_t kJudgedRules = 1000;

// The disk that hangs on the first hub of every tree.
DeviceInfo Disk(const UsbTree& tree, int32_t code) {
    DeviceInfo info;
    info.deviceName = "/dev/bus/usb/001/004";
    info.deviceId = tree.IdOf("1-1.2");
    info.vendorId = FlashDrive().vendor;
    info.productId = FlashDrive().product;
    info.interfaceClassList = {code};
    return info;
}

void Decide(benchmark::State& state, int32_t code, bool expected) {
    EmptyWorld();
    const UsbTree tree = UsbTree::Office(static_cast<int32_t>(state.range(0)));
    LoadPolicy(WhitelistPolicy(kJudgedRules));
    const sp<VUsbService> service = new VUsbService;
    const DeviceInfo info = Disk(tree, code);
    for (auto _ : state) {
        bool allowed = !expected;
        service->isDeviceAllowed(info, &allowed);
        if (allowed != expected) state.SkipWithError("a wrong verdict");
    }
    if (UsbDevice::get_deviceid_data(info.deviceId).size() != 1) {
        state.SkipWithError("the device is not in the map");
    }
}

void BM_Decision(benchmark::State& state) {
    constexpr int32_t kListedClass = 8;
    Decide(state, kListedClass, true);
}
BENCHMARK(BM_Decision)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

void BM_DecisionRefused(benchmark::State& state) {
    constexpr int32_t kUnlistedClass = 0x0e;
    Decide(state, kUnlistedClass, false);
}
BENCHMARK(BM_DecisionRefused)->Arg(30)->Unit(benchmark::kMicrosecond);

// The part of a decision that is sysfs.
void BM_MapRebuild(benchmark::State& state) {
    EmptyWorld();
    UsbTree::Office(static_cast<int32_t>(state.range(0)));
    for (auto _ : state) UsbDevice::create_usb_device_map();
}
BENCHMARK(BM_MapRebuild)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

// The same for a decision on sysfs, where entries that are the same are taken over. Only what our
// own code costs is told by it: the private root's files are quicker than the kernel's attributes.
void BM_MapRefresh(benchmark::State& state) {
    EmptyWorld();
    const UsbTree tree = UsbTree::Office(static_cast<int32_t>(state.range(0)));
    usb::DeviceMap map(usb::Keeping::kAnywhere);
    const int32_t id = tree.IdOf("1-1.2");
    for (auto _ : state) {
        if (map.refresh(id).size() != 1) state.SkipWithError("the device was not found");
    }
}
BENCHMARK(BM_MapRefresh)->Arg(5)->Arg(30)->Arg(127)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace android::vus
