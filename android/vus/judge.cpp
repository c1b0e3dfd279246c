// SPDX-License-Identifier: Apache-2.0

#include "android/vus/judge.h"

#include <algorithm>
#include <utility>

#include "android/vus/class_names.h"

namespace android::vus {

namespace {

constexpr char kClassMatch[] = "Match by ClassName, CLASS : ";

using Kind = Step::Kind;

// One walk over a device's claim. What it finds goes into the judgement at hand.
class Walk {
  public:
    Walk(const Claim& claim, const Rules& rules, Judgement* judgement)
          : claim_(claim), rules_(rules), judgement_(*judgement) {
        judgement_.steps.reserve(2 * claim.interfaceClasses.size() + 4);
    }

    // Whether a rule matched: the judgement then has the rules, and the reason of the match.
    bool matches() {
        const bool byClass =
                claim_.interfaceClasses.empty() ? matchesSources() : matchesInterfaces();
        if (byClass || matchesVendor()) return true;
        judgement_.matched.clear();
        miss_.vendor = claim_.vendorId;
        judgement_.miss = miss_;
        return false;
    }

  private:
    void step(Kind kind, int32_t value = 0, int32_t other = 0) {
        judgement_.steps.push_back({kind, value, other});
    }

    bool isCounted(int32_t code) const {
        const std::vector<Rule>& rules = judgement_.matched;
        return std::any_of(rules.begin(), rules.end(),
                           [code](const Rule& rule) { return rule.id == code; });
    }

    bool isListed(int32_t code) {
        std::optional<Rule> rule = rules_.classRule(code);
        if (!rule) return false;
        step(Kind::kListedClass, code);
        if (!isCounted(code)) judgement_.matched.push_back(*rule);
        return true;
    }

    // The first interface whose class is neither listed nor restricted ends the search without a
    // match, even if others are listed. Restricted classes neither admit nor refuse.
    bool matchesInterfaces() {
        judgement_.reason = kClassMatch;
        const std::vector<int32_t>& classes = claim_.interfaceClasses;
        for (size_t at = 0; at < classes.size(); ++at) {
            const int32_t code = classes[at];
            step(Kind::kInterface, code);
            if (isRestrictedClass(code)) {
                step(Kind::kRestrictedClass, code);
            } else if (isListed(code)) {
                nameOnce(code);
            } else {
                step(Kind::kUnlistedInterface, code);
                return misses({Miss::Cause::kUnlistedClass, code, at});
            }
        }
        if (judgement_.matched.empty()) return misses({Miss::Cause::kRestrictedOnly});
        return true;
    }

    // Every source of a device must be listed: a keyboard that is also a mouse needs both.
    bool matchesSources() {
        const InputSources found = inputSourcesOf(claim_.deviceClass);
        step(Kind::kSourceBits, claim_.deviceClass, found.bits);
        step(found.single ? Kind::kSingleSource : Kind::kSeveralSources);
        if (found.sources.empty()) return misses({Miss::Cause::kNoSource});
        judgement_.reason = kClassMatch;
        for (size_t at = 0; at < found.sources.size(); ++at) {
            const int32_t source = found.sources[at];
            step(Kind::kSource, source);
            if (!isListed(source)) {
                step(Kind::kUnlistedSource, source);
                return misses({Miss::Cause::kUnlistedSource, source, at});
            }
            name(source);
        }
        return true;
    }

    bool matchesVendor() {
        const int32_t vendor = claim_.vendorId;
        if (const auto whole = rules_.wholeVendorRule(vendor)) {
            step(Kind::kListedVendor, vendor);
            judgement_.matched = {*whole};
            judgement_.reason = "Match by VID, VID : " + std::to_string(vendor);
            return true;
        }
        const int32_t product = claim_.productId;
        if (const auto pair = rules_.productRule(vendor, product)) {
            step(Kind::kListedProduct, vendor, product);
            judgement_.matched = {*pair};
            judgement_.reason = "Match by VID_PID combination, VID : " + std::to_string(vendor) +
                                " PID: " + std::to_string(product);
            return true;
        }
        return false;
    }

    bool misses(Miss miss) {
        miss_ = miss;
        return false;
    }

    void name(int32_t code) {
        judgement_.reason += className(code);
        judgement_.reason += ' ';
    }

    void nameOnce(int32_t code) {
        if (judgement_.reason.find(className(code)) == std::string::npos) name(code);
    }

    const Claim& claim_;
    const Rules& rules_;
    Judgement& judgement_;
    Miss miss_{Miss::Cause::kNoSource};
};

// What the mode makes of a match, or of none.
void decide(bool matched, Judgement* judgement) {
    if (judgement->mode == kModeBlacklist) {
        judgement->allowed = !matched;
        judgement->reason = matched ? "Blacklisted: " + judgement->reason
                                    : "No matching rule found to Blacklist the device";
        return;
    }
    // Any other text left by a failed load is a whitelist, too: in doubt, refuse.
    judgement->allowed = matched;
    judgement->reason = matched ? "Whitelisted: " + judgement->reason
                                : "No matching rule found to Whitelist the device";
}

Rule ruleOf(const VendorRule& rule) {
    const bool whole = rule.product == kEveryProduct;
    return {whole ? Rule::Kind::kVendor : Rule::Kind::kProduct, rule.vendor, rule.product,
            rule.line};
}

auto firstOf(const std::vector<VendorRule>& vendors, int32_t vendor) {
    return std::lower_bound(vendors.begin(), vendors.end(), vendor,
                            [](const VendorRule& rule, int32_t wanted) {
                                return rule.vendor < wanted;
                            });
}

}  // namespace

std::optional<Rule> PolicyRules::classRule(int32_t code) const {
    for (const ClassRule& rule : policy_.classes) {
        if (rule.code == code) return Rule{Rule::Kind::kClass, code, 0, rule.line};
    }
    return std::nullopt;
}

// The walk does not stop where the vendor ends (kept: oddity 18): a vendor of whom the policy lists
// only products counts as listed whole as soon as any higher vendor is. Policies in the field rely
// on the verdicts that this gives.
std::optional<Rule> PolicyRules::wholeVendorRule(int32_t vendor) const {
    auto rule = firstOf(policy_.vendors, vendor);
    if (rule == policy_.vendors.end() || rule->vendor != vendor) return std::nullopt;
    rule = std::find_if(rule, policy_.vendors.end(),
                        [](const VendorRule& each) { return each.product == kEveryProduct; });
    if (rule == policy_.vendors.end()) return std::nullopt;
    return ruleOf(*rule);
}

std::optional<Rule> PolicyRules::productRule(int32_t vendor, int32_t product) const {
    for (auto rule = firstOf(policy_.vendors, vendor);
         rule != policy_.vendors.end() && rule->vendor == vendor; ++rule) {
        if (rule->product == product) return ruleOf(*rule);
    }
    return std::nullopt;
}

Judgement judge(const Claim& claim, const Rules& rules) {
    Judgement judgement;
    judgement.mode = rules.mode();
    if (judgement.mode == kModeDefault) {
        judgement.reason = "Enabled by default rule";
        return judgement;
    }
    const bool matched = Walk(claim, rules, &judgement).matches();
    decide(matched, &judgement);
    return judgement;
}

std::optional<int32_t> firstClassOtherThanHid(const std::vector<int32_t>& interfaceClasses) {
    for (const int32_t code : interfaceClasses) {
        if (code != kUsbClassHid) return code;
    }
    return std::nullopt;
}

}  // namespace android::vus
