// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/closed_form.h"

#include <algorithm>
#include <utility>

#include "android/vus/class_names.h"

namespace android::vus::workbench {

namespace {

void sortOnce(std::vector<int32_t>* values) {
    std::sort(values->begin(), values->end());
    values->erase(std::unique(values->begin(), values->end()), values->end());
}

bool holds(const std::vector<int32_t>& ascending, int32_t value) {
    return std::binary_search(ascending.begin(), ascending.end(), value);
}

// The rules of a text that is neither are a whitelist's, as for the daemon.
ClosedForm::Mode modeOf(const std::string& mode) {
    if (mode == kModeDefault) return ClosedForm::Mode::kDefault;
    if (mode == kModeBlacklist) return ClosedForm::Mode::kBlacklist;
    return ClosedForm::Mode::kWhitelist;
}

}  // namespace

ClosedForm::ClosedForm(const Policy& policy) : mode_(modeOf(policy.mode)) {
    for (const ClassRule& rule : policy.classes) {
        (isSource(rule.code) ? sources_ : usbClasses_).push_back(rule.code);
    }
    sortOnce(&usbClasses_);
    sortOnce(&sources_);
    for (const VendorRule& rule : policy.vendors) {
        if (vendors_.empty() || vendors_.back().vendor != rule.vendor) {
            vendors_.push_back({rule.vendor, false, {}});
        }
        if (rule.product == kEveryProduct) {
            vendors_.back().whole = true;
            highestWhole_ = rule.vendor;
        } else {
            vendors_.back().products.push_back(rule.product);
        }
    }
    for (ListedVendor& each : vendors_) sortOnce(&each.products);
}

const ListedVendor* ClosedForm::find(int32_t vendor) const {
    const auto at =
            std::lower_bound(vendors_.begin(), vendors_.end(), vendor,
                             [](const ListedVendor& one, int32_t id) { return one.vendor < id; });
    return at == vendors_.end() || at->vendor != vendor ? nullptr : &*at;
}

bool ClosedForm::listsClass(int32_t code) const {
    return holds(isSource(code) ? sources_ : usbClasses_, code);
}

bool ClosedForm::matches(Ids ids) const {
    const ListedVendor* listed = find(ids.vendor);
    return listed != nullptr && (countsAsWhole(*listed) || holds(listed->products, ids.product));
}

bool ClosedForm::admits(bool classMatches, bool idsMatch) const {
    if (mode_ == Mode::kDefault) return true;
    return (classMatches || idsMatch) == (mode_ == Mode::kWhitelist);
}

std::optional<Ids> ClosedForm::idsOfVendor(bool match, int32_t vendor,
                                           std::optional<int32_t> product) const {
    const ListedVendor* listed = find(vendor);
    const bool whole = listed != nullptr && countsAsWhole(*listed);
    const bool uniform = listed == nullptr || whole || listed->products.empty();
    if (product || uniform) {
        const Ids ids{vendor, product.value_or(1)};
        return matches(ids) == match ? std::optional(ids) : std::nullopt;
    }
    if (match) {
        const int32_t lowest = listed->products.front();
        return lowest <= kLastId ? std::optional(Ids{vendor, lowest}) : std::nullopt;
    }
    const std::optional<int32_t> other = idOutside(listed->products);
    return other ? std::optional(Ids{vendor, *other}) : std::nullopt;
}

std::optional<Ids> ClosedForm::idsThat(bool match, std::optional<int32_t> vendor,
                                       std::optional<int32_t> product) const {
    if (vendor) return idsOfVendor(match, *vendor, product);
    if (!match) {
        std::vector<int32_t> listed;
        for (const ListedVendor& each : vendors_) listed.push_back(each.vendor);
        if (const auto unlisted = idOutside(listed)) return Ids{*unlisted, product.value_or(1)};
    }
    for (const ListedVendor& each : vendors_) {
        if (each.vendor > kLastId) break;
        if (const auto ids = idsOfVendor(match, each.vendor, product)) return ids;
    }
    return std::nullopt;
}

std::optional<int32_t> idOutside(const std::vector<int32_t>& ascending) {
    int32_t candidate = 1;
    for (const int32_t each : ascending) {
        if (each < candidate) continue;
        if (each > candidate) break;
        ++candidate;
    }
    if (candidate <= kLastId) return candidate;
    if (!holds(ascending, 0)) return 0;
    return std::nullopt;
}

bool isSource(int32_t code) {
    return code >= kFirstInputSource;
}

Claim usbClaim(std::vector<int32_t> interfaceClasses, Ids ids) {
    return {0, std::move(interfaceClasses), ids.vendor, ids.product};
}

Claim inputClaim(int32_t sourceBits, Ids ids) {
    return {sourceBits, {}, ids.vendor, ids.product};
}

Claim claimOfClass(int32_t code, Ids ids) {
    return isSource(code) ? inputClaim(code, ids) : usbClaim({code}, ids);
}

}  // namespace android::vus::workbench
