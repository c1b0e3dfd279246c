// SPDX-License-Identifier: Apache-2.0
//
// The policy workbench's explanations, from a fleet's list to what a program reads.

#include <sstream>
#include <string>
#include <variant>

#include <benchmark/benchmark.h>

#include "bench/policies.h"
#include "tools/workbench/explain.h"
#include "tools/workbench/json.h"
#include "tools/workbench/list.h"

namespace android::vus {
namespace {

constexpr int32_t kExplainedRules = 10000;
constexpr int32_t kDevices = 10000;

// Half of them match no rule, and are told what would admit them.
std::string Fleet() {
    std::ostringstream list;
    for (int32_t at = 0; at < kDevices; ++at) {
        workbench::Device device;
        device.claim = {0,
                        {at % 2 == 0 ? 8 : 0xDC, 0xFF},
                        at % 2 == 0 ? kFirstVendor + at : at % 900,
                        at};
        device.name = "Device " + std::to_string(at);
        workbench::writeDevice(list, device);
    }
    return list.str();
}

void BM_PolicyExplain(benchmark::State& state) {
    const Policy policy = std::get<Policy>(parsePolicy(WhitelistPolicy(kExplainedRules)));
    const std::string fleet = Fleet();
    for (auto _ : state) {
        const workbench::Explainer explainer(policy);
        std::istringstream in(fleet);
        size_t refused = 0;
        const std::string error =
                workbench::readDevices(in, "fleet", [&](const workbench::Device& device) {
                    const workbench::Explanation explanation = explainer.explain(device);
                    benchmark::DoNotOptimize(workbench::toJsonLine(workbench::toJson(explanation)));
                    if (!explanation.judgement.allowed) ++refused;
                });
        if (!error.empty() || refused != kDevices / 2) state.SkipWithError("not half is refused");
    }
}
BENCHMARK(BM_PolicyExplain)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace android::vus
