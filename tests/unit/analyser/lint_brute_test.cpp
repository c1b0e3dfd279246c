// SPDX-License-Identifier: Apache-2.0
//
// The linter against looking at every device of a small world: it says what is so, and nothing
// that is not.

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "android/vus/class_names.h"
#include "small_world.h"
#include "tests/support/cases.h"
#include "tools/workbench/closed_form.h"
#include "tools/workbench/lint.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAreArray;
using FoundIds = std::set<std::string>;

constexpr uint64_t kLintSeed = 20261122;
constexpr int32_t kUnnamedProduct = 3;  // that no rule of the small world names

bool isInput(const Claim& claim) {
    return claim.interfaceClasses.empty();
}
bool hasRestricted(const Claim& claim) {
    return std::any_of(claim.interfaceClasses.begin(), claim.interfaceClasses.end(),
                       isRestrictedClass);
}

// What is to be found in a policy, by looking at all devices.
class Oracle {
  public:
    Oracle(const std::string& text, const Policy& policy)
          : text_(text), policy_(policy), verdicts_(verdictsOf(policy)) {}

    FoundIds expected() {
        if (policy_.mode == kModeDefault) {
            const bool hasRules = std::count(text_.begin(), text_.end(), '\n') > 2;
            return hasRules ? FoundIds{"rules-not-read"} : FoundIds{};
        }
        expectExtremes();
        expectRules();
        policy_.mode == kModeWhitelist ? expectOfWhitelist() : expectOfBlacklist();
        return std::move(expected_);
    }

  private:
    void expect(const char* id, bool found) {
        if (found) expected_.insert(id);
    }

    bool any(const std::function<bool(const Claim&, bool allowed)>& holds) const {
        for (size_t at = 0; at < verdicts_.size(); ++at) {
            if (holds(SmallWorld::devices()[at], verdicts_[at])) return true;
        }
        return false;
    }

    // Whether vendor rules say nothing of the device: what decides on it is its classes.
    bool decidedByClass(const Claim& claim) const {
        const Claim bare = usbClaim({kNeutralClass}, {claim.vendorId, claim.productId});
        return judge(bare, PolicyRules(policy_)).miss.has_value();
    }

    void expectExtremes() {
        expect("refuses-everything", !any([](const Claim&, bool allowed) { return allowed; }));
        expect("admits-everything", !any([](const Claim&, bool allowed) { return !allowed; }));
    }

    void expectRules() {
        const auto& vendors = policy_.vendors;
        expect("id-too-large", std::any_of(vendors.begin(), vendors.end(), [](const auto& rule) {
                   return std::max(rule.vendor, rule.product) > kLastId;
               }));
        expect("products-count-as-whole",
               std::any_of(vendors.begin(), vendors.end(), [&](const auto& rule) {
                   const bool hasWhole =
                           std::any_of(vendors.begin(), vendors.end(), [&](const auto& each) {
                               return each.vendor == rule.vendor && each.product == kEveryProduct;
                           });
                   const Claim other = usbClaim({kNeutralClass}, {rule.vendor, kUnnamedProduct});
                   return rule.vendor <= kLastId && !hasWhole && !decidedByClass(other);
               }));
    }

    void expectOfWhitelist() {
        const bool something = any([](const Claim&, bool allowed) { return allowed; });
        expect("no-hub", something && !any([](const Claim& claim, bool allowed) {
                             return allowed && claim.interfaceClasses == std::vector{9};
                         }));
        expect("no-keyboard", something && !any([](const Claim& claim, bool allowed) {
                                  return allowed && claim.deviceClass == 0x100;
                              }));
        expect("ride-along", any([this](const Claim& claim, bool allowed) {
                   return allowed && hasRestricted(claim) && decidedByClass(claim);
               }));
        const auto admits = [this](int32_t bits) {
            return any([&](const Claim& claim, bool allowed) {
                return allowed && claim.deviceClass == bits && decidedByClass(claim);
            });
        };
        expect("split-input", admits(0x100) != admits(0x2000));
    }

    void expectOfBlacklist() {
        // A device that is refused by class, and a bigger one that is not.
        const auto evaded = [this](bool input) {
            return any([&](const Claim& claim, bool allowed) {
                return !allowed && isInput(claim) == input && decidedByClass(claim);
            });
        };
        expect("class-evaded", evaded(false));
        expect("source-evaded", evaded(true));
        expect("input-not-switched-off",
               any([](const Claim& claim, bool allowed) { return !allowed && isInput(claim); }));
    }

    const std::string& text_;
    const Policy& policy_;
    const std::vector<bool> verdicts_;
    FoundIds expected_;
};

Policy withoutVendorRule(Policy policy, size_t at) {
    policy.vendors.erase(policy.vendors.begin() + static_cast<long>(at));
    return policy;
}

bool isImpossible(const VendorRule& rule) {
    return std::max(rule.vendor, rule.product) > kLastId;
}

// Whether a rule can be taken away and nothing changes. Those with impossible ids are told as what
// they are, and go first: what one of them holds up is held up by the other rules, too.
bool hasDeadRule(Policy policy) {
    const std::vector<bool> verdicts = verdictsOf(policy);
    for (size_t at = policy.vendors.size(); at-- > 0;) {
        if (!isImpossible(policy.vendors[at])) continue;
        Policy rest = withoutVendorRule(policy, at);
        if (verdictsOf(rest) == verdicts) policy = std::move(rest);
    }
    for (size_t at = 0; at < policy.classes.size(); ++at) {
        Policy rest = policy;
        rest.classes.erase(rest.classes.begin() + static_cast<long>(at));
        if (verdictsOf(rest) == verdicts) return true;
    }
    for (size_t at = 0; at < policy.vendors.size(); ++at) {
        if (verdictsOf(withoutVendorRule(policy, at)) == verdicts) return true;
    }
    return false;
}

FoundIds idsOf(const std::vector<Finding>& findings) {
    FoundIds ids;
    for (const Finding& each : findings) ids.insert(std::string(each.rule->id));
    return ids;
}

TEST(LintBruteForceTest, FindsWhatIsSoAndNothingElse) {
    SmallWorld world(kLintSeed);
    size_t clean = 0, policies = 0;
    for (; clean < CasesOf(1000U) && !HasFailure(); ++policies) {
        // Of the careful ones every other has nothing to find.
        const std::string text = policies % 2 == 0 ? world.nextText() : world.nextCarefulText();
        SCOPED_TRACE(text);
        const Policy policy = policyOf(text);
        const std::vector<Finding> findings = lint(text, policy, nullptr);
        FoundIds found = idsOf(findings);
        const FoundIds expected = Oracle(text, policy).expected();
        const bool dead = found.erase("covered-rule") + found.erase("repeated-rule") > 0;
        EXPECT_THAT(found, ElementsAreArray(expected));
        if (expected.empty() && !dead) ++clean;
        // The costly question is put to those that look clean, and to some others.
        if (expected.empty() || policies % 8 == 0) {
            EXPECT_EQ(dead, hasDeadRule(policy));
        }
        for (const Finding& each : findings) {
            const Judgement judgement = judge(each.witness, PolicyRules(policy));
            EXPECT_EQ(each.allowed, judgement.allowed);
            EXPECT_EQ(each.reason, judgement.reason);
        }
    }
    RecordProperty("policies", std::to_string(policies));
    printf("seed %llu: %zu policies, %zu of them with nothing to find\n",
           static_cast<unsigned long long>(kLintSeed), policies, clean);
}

// Something that is not read, and how it is found.
struct Junk {
    std::string_view id;
    std::string text;
    bool insideVendor;
};

const std::vector<Junk>& junk() {
    static const std::vector<Junk> kJunk = {
            {"stray-text", "8\n", false},
            {"stray-text", "<![CDATA[<class>USB_CLASS_AUDIO</class>]]>\n", false},
            {"stray-text", "note\n", true},
            {"ignored-product", "<PID>1</PID>\n", true},
            {"ignored-product", "<productid/>\n", true},
            {"none", "<!-- <vid vendorid=\"1\"/> -->\n", false},
            {"none", "\n \t\n", true},
    };
    return kJunk;
}

// What is said not to be read can be taken away, and the policy stays what it is.
TEST(LintBruteForceTest, WhatIsNotReadIsFoundWhereItStands) {
    SmallWorld world(kLintSeed);
    for (size_t i = 0; i < CasesOf(500U) && !HasFailure(); ++i) {
        const std::string clean = world.nextText();
        if (policyOf(clean).mode == kModeDefault) continue;
        const Junk& piece = junk()[world.below(junk().size())];
        const std::string before = piece.insideVendor ? "\">\n<pid>" : "</usbconfig>";
        const size_t at = clean.find(before);
        if (at == std::string::npos) continue;
        const size_t place = at + (piece.insideVendor ? 3 : 0);
        const std::string text = clean.substr(0, place) + piece.text + clean.substr(place);
        SCOPED_TRACE(text);
        EXPECT_EQ(verdictsOf(policyOf(text)), verdictsOf(policyOf(clean)));
        const auto line =
                1 + std::count(text.begin(), text.begin() + static_cast<long>(place), '\n');
        size_t found = 0;
        for (const Finding& each : lint(text, policyOf(text), nullptr)) {
            if (each.rule->id != "stray-text" && each.rule->id != "ignored-product") continue;
            ++found;
            EXPECT_EQ(each.rule->id, piece.id);
            EXPECT_LE(each.line, line);
        }
        EXPECT_EQ(found, piece.id == "none" ? 0U : 1U);
    }
}

}  // namespace
}  // namespace android::vus::workbench
