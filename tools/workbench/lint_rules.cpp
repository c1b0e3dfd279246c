// SPDX-License-Identifier: Apache-2.0

#include <charconv>
#include <string>
#include <vector>

#include <android-base/stringprintf.h>

#include "tools/workbench/dead_rules.h"
#include "tools/workbench/lint_internal.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;
using Cause = DeadRule::Cause;

std::string lineText(int line) {
    return line == kNoLine ? "the vendor rules together" : "line " + std::to_string(line);
}

void addDeadClass(const DeadRule& dead, Findings* findings) {
    const ClassRule& rule = findings->policy().classes[dead.index];
    const bool repeated = dead.cause == Cause::kRepeated;
    findings->add(repeated ? "repeated-rule" : "covered-rule", dead.line,
                  rule.name +
                          (repeated ? " is listed by " : " never decides: all its devices match ") +
                          lineText(dead.by) + (repeated ? " already." : "."),
                  "Remove it.", claimOfClass(rule.code, findings->neutralIds()));
}

// The dead rules of one vendor that have the same cause are one finding.
size_t addDeadVendor(const std::vector<DeadRule>& all, size_t at, Findings* findings) {
    const std::vector<VendorRule>& rules = findings->policy().vendors;
    const DeadRule& first = all[at];
    const VendorRule& rule = rules[first.index];
    size_t end = at;
    while (end < all.size() && !all[end].isClass && all[end].cause == first.cause &&
           all[end].by == first.by && rules[all[end].index].vendor == rule.vendor) {
        ++end;
    }
    if (first.cause == Cause::kImpossible) return end;
    const bool whole = rule.product == kEveryProduct;
    const bool repeated = first.cause == Cause::kRepeated;
    const std::string vendor = "vendor " + std::to_string(rule.vendor);
    std::string what = whole ? "All of " + vendor
                             : "Product " + std::to_string(rule.product) + " of " + vendor;
    if (end - at > 1) {
        what = counted(end - at, "rule") + " of " + vendor + ", up to line " +
               std::to_string(all[end - 1].line) + ",";
    }
    const bool one = end - at == 1;
    const std::string verb =
            repeated ? (one ? " is listed by " : " repeat ") : (one ? " matches " : " match ");
    findings->add(repeated ? "repeated-rule" : "covered-rule", first.line,
                  what + verb +
                          (repeated ? lineText(first.by) + "."
                                    : "by " + lineText(first.by) +
                                              " already: the vendor counts as listed whole."),
                  one ? "Remove it." : "Remove them.",
                  findings->bareClaim({rule.vendor, whole ? 1 : rule.product}));
    return end;
}

std::optional<int32_t> hexadecimalReading(int32_t id) {
    const std::string digits = std::to_string(id);
    int32_t reading = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), reading, 16);
    if (end.ec != std::errc() || reading > kLastId) return std::nullopt;
    return reading;
}

}  // namespace

void lintDeadRules(Findings* findings) {
    const std::vector<DeadRule> dead = deadRules(findings->policy(), findings->form());
    for (size_t at = 0; at < dead.size();) {
        if (dead[at].isClass) {
            addDeadClass(dead[at++], findings);
        } else {
            at = addDeadVendor(dead, at, findings);
        }
    }
}

void lintVendors(const VendorNames& names, Findings* findings) {
    int32_t last = -1;
    for (const VendorRule& rule : findings->policy().vendors) {
        const int32_t vendor = rule.vendor;
        if (vendor == last) continue;
        last = vendor;
        if (vendor > kLastId || names.nameOf(vendor)) continue;
        const auto ids = findings->form().idsThat(true, vendor);
        if (!ids) continue;
        const Claim witness = findings->bareClaim(*ids);
        const auto reading = hexadecimalReading(vendor);
        const auto name = reading ? names.nameOf(*reading) : std::nullopt;
        if (name) {
            findings->add("hexadecimal-id", rule.line,
                          StringPrintf("No vendor %d is known, but 0x%d is %s. Ids are decimal "
                                       "here.",
                                       vendor, vendor, name->c_str()),
                          StringPrintf("Write %d if that vendor is meant.", *reading), witness);
        } else {
            findings->add("unknown-vendor", rule.line,
                          StringPrintf("The system's database of USB ids knows no vendor %d.",
                                       vendor),
                          "Compare it with the device's own: `vusctl list`.", witness);
        }
    }
}

}  // namespace android::vus::workbench
