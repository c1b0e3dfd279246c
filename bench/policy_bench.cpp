// SPDX-License-Identifier: Apache-2.0
//
// The policy: loading it, and judging by it.

#include <fcntl.h>

#include <string>

#include <benchmark/benchmark.h>
#include <tinyxml2.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "android/vus/vu_service.h"
#include "bench/policies.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

constexpr int32_t kLoadedRules = 1000;
// Of the first listed vendor, with a product that is not listed: the search for a whole vendor
// walks through all rules, and finds none.
constexpr int32_t kVendor = kFirstVendor;
constexpr int32_t kUnlistedProduct = 12345;

void BM_PolicyLoad(benchmark::State& state) {
    EmptyWorld();
    LoadPolicy(WhitelistPolicy(static_cast<int32_t>(state.range(0))));
    for (auto _ : state) Util::createMapFromConfig(kPolicyFile);
    if (!Util::xml_parse_status) state.SkipWithError("the policy was refused");
}
BENCHMARK(BM_PolicyLoad)->Arg(10)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// The floor of a load: the XML library alone on the same file.
void BM_XmlParse(benchmark::State& state) {
    EmptyWorld();
    WriteFile(kPolicyFile, WhitelistPolicy(static_cast<int32_t>(state.range(0))));
    for (auto _ : state) {
        tinyxml2::XMLDocument document(/*processEntities=*/true, tinyxml2::PRESERVE_WHITESPACE);
        if (document.LoadFile(kPolicyFile) != tinyxml2::XML_SUCCESS) {
            state.SkipWithError("not parsed");
        }
    }
}
BENCHMARK(BM_XmlParse)->Arg(10)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// Every question that a decision can put to the tables for a device with one interface that no
// rule matches, under the hold that a decision has.
void BM_RuleEvaluation(benchmark::State& state) {
    EmptyWorld();
    LoadPolicy(ProductPolicy(kLoadedRules));
    constexpr int32_t kStorage = 8;
    for (auto _ : state) {
        const PolicyReadLock policy;
        const bool matched = Util::getMode() == "default" ||
                             Util::validateRestrictedClass(kStorage) ||
                             Util::validateClass(kStorage) || Util::validateVid(kVendor) ||
                             Util::validateVidPid(kVendor, kUnlistedProduct);
        if (matched) state.SkipWithError("a rule matched");
    }
}
BENCHMARK(BM_RuleEvaluation)->Unit(benchmark::kMicrosecond);

// A whole decision that asks no sysfs, that of an input device: an upper bound of the above that
// has the properties, the record and the log in it.
void DecideInput(benchmark::State& state, const std::string& policy, const DeviceInfo& info) {
    EmptyWorld();
    LoadPolicy(policy);
    const sp<VUsbService> service = new VUsbService;
    for (auto _ : state) {
        bool allowed = false;
        service->isDeviceAllowed(info, &allowed);
        benchmark::DoNotOptimize(allowed);
    }
}

DeviceInfo InputDevice() {
    DeviceInfo info;
    info.deviceName = "input";
    info.deviceId = 1;
    info.deviceType = 1;
    info.vendorId = kVendor;
    info.productId = kUnlistedProduct;
    return info;
}

void BM_InputDecision(benchmark::State& state) {
    DeviceInfo info = InputDevice();
    info.deviceClass = 0x101;
    DecideInput(state, ProductPolicy(kLoadedRules), info);
}
BENCHMARK(BM_InputDecision)->Unit(benchmark::kMicrosecond);

// The longest way through the class rules: eight listed interfaces.
void BM_InputDecisionOfEightClasses(benchmark::State& state) {
    DeviceInfo info = InputDevice();
    info.interfaceClassList = {8, 1, 2, 6, 7, 10, 8, 1};
    DecideInput(state, WhitelistPolicy(kLoadedRules), info);
}
BENCHMARK(BM_InputDecisionOfEightClasses)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace android::vus
