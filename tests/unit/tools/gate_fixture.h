// SPDX-License-Identifier: Apache-2.0
//
// A gate before a kernel that does as the real one, and a policy that is the test's own.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/tools/fake_kernel.h"
#include "tests/unit/tools/fake_switches.h"
#include "tests/unit/tools/reports.h"
#include "tools/common/input_sources.h"
#include "tools/hotplug/gate.h"

namespace android::vus::hotplug {

inline constexpr int32_t kDiskClass = 8;
inline const Subject kPlugged = {"1-1", 1005};
inline constexpr char kBluetoothKeyboard[] = "0005:046D:B342.0003";

// Says yes to what a test lists.
class FakePreview : public Preview {
  public:
    Foreseen of(const Claim& claim) override {
        claims.push_back(claim);
        if (knows_nothing) return Foreseen::kUnknown;
        if (vendors.count(claim.vendorId) != 0) return Foreseen::kAllowed;
        if (claim.interfaceClasses.empty()) {
            return (claim.deviceClass & 0xFFFFFF00) != 0 && sources.count(claim.deviceClass) != 0
                           ? Foreseen::kAllowed
                           : Foreseen::kRefused;
        }
        bool any = false;
        for (const int32_t code : claim.interfaceClasses) {
            if (code == kHidClass || code == kVendorSpecificClass || code == 9) continue;
            if (classes.count(code) == 0) return Foreseen::kRefused;
            any = true;
        }
        return any ? Foreseen::kAllowed : Foreseen::kRefused;
    }

    bool admits_by_class(const Claim& claim) override {
        return vendors.count(claim.vendorId) == 0 && of(claim) == Foreseen::kAllowed;
    }

    std::set<int32_t> classes, sources, vendors;
    bool knows_nothing = false;
    std::vector<Claim> claims;
};

inline std::vector<std::string> KeysOf(const std::vector<Subject>& subjects) {
    std::vector<std::string> keys;
    for (const Subject& subject : subjects) keys.push_back(subject.key());
    return keys;
}

class GateTest : public testing::Test {
  protected:
    void Plug(std::map<int32_t, FakeKernel::Interface> interfaces) {
        FakeKernel::Device device;
        device.number = kPlugged.number;
        device.identity.deviceName = "Example";
        device.identity.vendorId = 0x1209;
        device.identity.productId = 0x11;
        device.interfaces = std::move(interfaces);
        kernel_.devices[kPlugged.name] = std::move(device);
    }
    static FakeKernel::Interface Disk() { return {kDiskClass, {"usb-storage"}}; }
    static FakeKernel::Interface Keyboard() {
        return {kHidClass, {kHidDriver}, kBootKeyboard, /*has_input=*/true};
    }
    static FakeKernel::Interface Programmer() { return {kHidClass, {kHidDriver}, kVendorsOwn}; }

    Admission Admit() { return gate_.admit(kPlugged, /*anybody_there=*/true); }
    std::vector<std::string> Tried() { return std::exchange(kernel_.tried, {}); }
    bool StaysSilent(const std::string& input, Sighting seen, bool anybody_there) {
        return gate_.stays_silent(input, &seen, anybody_there);
    }
    FakeKernel::Interface& Of(int32_t number) {
        return kernel_.devices[kPlugged.name].interfaces[number];
    }

    FakeKernel kernel_;
    FakeSwitches switches_;
    FakePreview preview_;
    std::vector<std::string> notices_;
    Gate gate_{&kernel_, &switches_, &preview_,
               [this](const std::string& line) { notices_.push_back(line); }};
};

}  // namespace android::vus::hotplug
