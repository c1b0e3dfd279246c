// SPDX-License-Identifier: Apache-2.0
//
// Benchmarks run in a private root, like the tests, because the daemon's paths are fixed. The log
// is formatted as always and then dropped: where it ends up differs from platform to platform.

#include <android-base/logging.h>
#include <benchmark/benchmark.h>

#include "tests/support/world.h"

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    android::vus::EnterPrivateRoot();
    android::base::SetLogger([](android::base::LogId, android::base::LogSeverity, const char*,
                                const char*, unsigned, const char*) {});
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
