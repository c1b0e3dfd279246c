// SPDX-License-Identifier: Apache-2.0
//
// The policy workbench's analysis, from the files to the report.

#include <stdio.h>

#include <sstream>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/policies.h"
#include "tests/support/world.h"
#include "tools/workbench/check.h"
#include "tools/workbench/diff.h"
#include "tools/workbench/surface_command.h"

namespace android::vus {
namespace {

constexpr int32_t kAnalysedRules = 10000;
// As many as a kernel with everything built as modules has.
constexpr int kAliases = 8242;
constexpr int kDrivers = 324;

constexpr char kOld[] = "/data/old.xml";
constexpr char kNew[] = "/data/new.xml";
constexpr char kModules[] = "/data/modules.alias";

// Most aliases ask for a vendor and a product, some for a class.
std::string ModulesAlias() {
    std::string text;
    for (int i = 0; i < kAliases; ++i) {
        char line[80];
        if (i % 20 == 0) {
            snprintf(line, sizeof(line), "alias usb:v*p*d*dc*dsc*dp*ic%02Xisc*ip*in* driver_%d\n",
                     i % 256, i % kDrivers);
        } else {
            snprintf(line, sizeof(line),
                     "alias usb:v%04Xp%04Xd*dc*dsc*dp*ic*isc*ip*in* driver_%d\n", i * 7 % 65536,
                     i * 13 % 65536, i % kDrivers);
        }
        text += line;
    }
    return text;
}

template <typename Run>
void Analyse(benchmark::State& state, const std::string& before, const std::string& after,
             const Run& run) {
    EmptyWorld();
    WriteFile(kOld, before);
    WriteFile(kNew, after);
    WriteFile(kModules, ModulesAlias());
    for (auto _ : state) {
        std::ostringstream out, err;
        if (run(out, err) != 0 || out.str().empty()) state.SkipWithError(err.str().c_str());
    }
}

void BM_PolicyCheck(benchmark::State& state) {
    workbench::CheckOptions options;
    options.path = kOld;
    Analyse(state, WhitelistPolicy(kAnalysedRules), "", [&options](auto& out, auto& err) {
        return workbench::runCheck(options, nullptr, out, err);
    });
}
BENCHMARK(BM_PolicyCheck)->Unit(benchmark::kMicrosecond);

// Every rule is a difference, and each is in the report.
void BM_PolicyDiffOfEverything(benchmark::State& state) {
    workbench::DiffOptions options{kOld, kNew, std::nullopt, false, workbench::ReportFormat::kJson};
    Analyse(state, WhitelistPolicy(0), ProductPolicy(kAnalysedRules),
            [&options](auto& out, auto& err) { return workbench::runDiff(options, out, err); });
}
BENCHMARK(BM_PolicyDiffOfEverything)->Unit(benchmark::kMicrosecond);

void BM_PolicyDiff(benchmark::State& state) {
    workbench::DiffOptions options{kOld, kNew, std::nullopt, false};
    Analyse(state, WhitelistPolicy(kAnalysedRules), WhitelistPolicy(kAnalysedRules - 100),
            [&options](auto& out, auto& err) { return workbench::runDiff(options, out, err); });
}
BENCHMARK(BM_PolicyDiff)->Unit(benchmark::kMicrosecond);

void BM_PolicySurface(benchmark::State& state) {
    workbench::SurfaceOptions options{kOld, kModules, std::nullopt, false};
    Analyse(state, WhitelistPolicy(kAnalysedRules), "",
            [&options](auto& out, auto& err) { return workbench::runSurface(options, out, err); });
}
BENCHMARK(BM_PolicySurface)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace android::vus
