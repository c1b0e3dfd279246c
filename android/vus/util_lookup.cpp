// SPDX-License-Identifier: Apache-2.0

// What the tables in force answer: to a judgement, and to the lookups.

#include <algorithm>

#include "android/vus/util.h"
#include "android/vus/util_log.h"

namespace android::vus {

namespace {

// Who asks holds the policy.
class TablesInForce final : public Rules {
  public:
    std::string_view mode() const override {
        Util::policy_mutex.assert_held();
        return Util::configMode;
    }

    std::optional<Rule> classRule(int32_t code) const override {
        Util::policy_mutex.assert_held();
        const std::vector<int32_t>& list = Util::classList;
        if (std::find(list.begin(), list.end(), code) == list.end()) return std::nullopt;
        return Rule{Rule::Kind::kClass, code, 0, kNoLine};
    }

    // The walk does not stop where the vendor ends: see PolicyRules.
    std::optional<Rule> wholeVendorRule(int32_t vendor) const override {
        Util::policy_mutex.assert_held();
        const auto first = Util::vidPidMap.lower_bound(vendor);
        if (first == Util::vidPidMap.end() || first->first != vendor) return std::nullopt;
        const auto whole = std::find_if(first, Util::vidPidMap.end(), [](const auto& rule) {
            return rule.second == kEveryProduct;
        });
        if (whole == Util::vidPidMap.end()) return std::nullopt;
        return Rule{Rule::Kind::kVendor, whole->first, kEveryProduct, kNoLine};
    }

    std::optional<Rule> productRule(int32_t vendor, int32_t product) const override {
        Util::policy_mutex.assert_held();
        const auto [first, last] = Util::vidPidMap.equal_range(vendor);
        const bool found = std::any_of(first, last, [product](const auto& rule) {
            return rule.second == product;
        });
        if (!found) return std::nullopt;
        return Rule{Rule::Kind::kProduct, vendor, product, kNoLine};
    }
};

const TablesInForce kTablesInForce;

}  // namespace

uint32_t Util::convert(const std::string name) {
    return classCode(name);
}

std::string Util::getClassName(int32_t code) {
    return std::string(className(code));
}

bool Util::isValidNumber(const std::string text) {
    logParseStep({ParseStep::Kind::kNumber, text});
    return isDecimal(text);
}

bool Util::validateRestrictedClass(uint32_t code) {
    if (!isRestrictedClass(static_cast<int32_t>(code))) return false;
    logStep({Step::Kind::kRestrictedClass, static_cast<int32_t>(code)});
    return true;
}

bool Util::validateClass(uint32_t code) {
    if (!kTablesInForce.classRule(static_cast<int32_t>(code))) return false;
    logStep({Step::Kind::kListedClass, static_cast<int32_t>(code)});
    return true;
}

bool Util::validateVid(int32_t vid) {
    if (!kTablesInForce.wholeVendorRule(vid)) return false;
    logStep({Step::Kind::kListedVendor, vid});
    return true;
}

bool Util::validateVidPid(int32_t vid, int32_t pid) {
    if (!kTablesInForce.productRule(vid, pid)) return false;
    logStep({Step::Kind::kListedProduct, vid, pid});
    return true;
}

std::string Util::getMode() {
    return configMode;
}

std::vector<int32_t> Util::checkMultiClass(int32_t key_val) {
    InputSources found = inputSourcesOf(key_val);
    logStep({Step::Kind::kSourceBits, key_val, found.bits});
    logStep({found.single ? Step::Kind::kSingleSource : Step::Kind::kSeveralSources});
    return std::move(found.sources);
}

const Rules& Util::rulesInForce() {
    return kTablesInForce;
}

void Util::logSteps(const std::vector<Step>& steps) {
    for (const Step& step : steps) logStep(step);
}

}  // namespace android::vus
