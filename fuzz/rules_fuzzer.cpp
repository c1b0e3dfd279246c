// SPDX-License-Identifier: Apache-2.0

// Imports any bytes as rules of another language: a whitelist that the daemon accepts, without
// classes, that opens no vendor which it does not list whole.

#include <set>
#include <string>
#include <variant>

#include "android/vus/judge.h"
#include "fuzz/fuzzing.h"
#include "tools/common/text.h"
#include "tools/workbench/import.h"

namespace android::vus::workbench {
namespace {

Policy PolicyOf(const ImportedPolicy& imported) {
    const auto read = parsePolicy(imported.text);
    Require(std::holds_alternative<Policy>(read));
    return std::get<Policy>(read);
}

void Check(const ImportedPolicy& imported) {
    const Policy policy = PolicyOf(imported);
    Require(policy.mode == kModeWhitelist && policy.classes.empty());
    std::set<int32_t> whole;
    for (const VendorRule& rule : policy.vendors) {
        if (rule.product == kEveryProduct) whole.insert(rule.vendor);
    }
    const PolicyRules rules(policy);
    for (const VendorRule& rule : policy.vendors) {
        Require(rules.wholeVendorRule(rule.vendor).has_value() == (whole.count(rule.vendor) != 0));
    }
    for (const NotImported& rule : imported.left_out) {
        Require(printable(rule.text) == rule.text && !rule.why.empty());
    }
}

}  // namespace
}  // namespace android::vus::workbench

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    android::vus::StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace android::vus::workbench;  // NOLINT(google-build-using-namespace)
    const std::string text(reinterpret_cast<const char*>(data), size);
    Check(importRules(text, /*loose=*/false));
    Check(importRules(text, /*loose=*/true));
    return 0;
}
