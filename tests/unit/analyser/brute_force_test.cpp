// SPDX-License-Identifier: Apache-2.0
//
// The analyser against looking at every device of a small world. The seeds are fixed, and printed
// by whatever fails.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "small_world.h"
#include "tests/support/cases.h"
#include "tools/workbench/closed_form.h"
#include "tools/workbench/dead_rules.h"
#include "tools/workbench/difference.h"
#include "tools/workbench/surface.h"

namespace android::vus::workbench {
namespace {

using Subject = Difference::Subject;

constexpr uint64_t kSeed = 20261121;
constexpr size_t kPairs = CasesOf(1500U);

std::string toText(const Policy& policy) {
    std::string text = policy.mode;
    for (const ClassRule& rule : policy.classes) text += " " + rule.name;
    for (const VendorRule& rule : policy.vendors) {
        text += " " + std::to_string(rule.vendor) + ":" + std::to_string(rule.product);
    }
    return text;
}

std::string toText(const Claim& claim) {
    std::string text = std::to_string(claim.vendorId) + ":" + std::to_string(claim.productId) +
                       " bits " + std::to_string(claim.deviceClass) + " interfaces";
    for (const int32_t code : claim.interfaceClasses) text += " " + std::to_string(code);
    return text;
}

bool allowed(const Policy& policy, const Claim& claim) {
    return judge(claim, PolicyRules(policy)).allowed;
}

TEST(BruteForceTest, ClosedFormMatchesIdsAsTheJudgeDoes) {
    SmallWorld world(kSeed);
    for (size_t i = 0; i < kPairs; ++i) {
        const Policy policy = world.nextPolicy();
        const ClosedForm form(policy);
        SCOPED_TRACE(toText(policy));
        for (const int32_t vendor : SmallWorld::vendors()) {
            for (const int32_t product : SmallWorld::products()) {
                const Claim bare = usbClaim({kNeutralClass}, {vendor, product});
                ASSERT_EQ(form.admits(false, form.matches({vendor, product})),
                          allowed(policy, bare))
                        << toText(bare);
            }
        }
    }
}

// Whether there are ids as asked for, among all of the world.
bool hasIds(const ClosedForm& form, bool match, std::optional<int32_t> vendor,
            std::optional<int32_t> product) {
    for (const int32_t v : SmallWorld::vendors()) {
        for (const int32_t p : SmallWorld::products()) {
            if (vendor.value_or(v) == v && product.value_or(p) == p &&
                form.matches({v, p}) == match) {
                return true;
            }
        }
    }
    return false;
}

TEST(BruteForceTest, IdsAreFoundWhereThereAreAny) {
    SmallWorld world(kSeed);
    for (size_t i = 0; i < kPairs; ++i) {
        const Policy policy = world.nextPolicy();
        const ClosedForm form(policy);
        SCOPED_TRACE(toText(policy));
        const bool match = world.below(2) == 0;
        std::optional<int32_t> vendor, product;
        if (world.below(2) == 0) vendor = SmallWorld::vendors()[world.below(5)];
        if (world.below(2) == 0) product = SmallWorld::products()[world.below(4)];
        const auto ids = form.idsThat(match, vendor, product);
        ASSERT_EQ(ids.has_value(), hasIds(form, match, vendor, product));
        if (!ids) continue;
        EXPECT_EQ(form.matches(*ids), match);
        EXPECT_EQ(ids->vendor, vendor.value_or(ids->vendor));
        EXPECT_EQ(ids->product, product.value_or(ids->product));
        EXPECT_LE(ids->vendor, kLastId);
        EXPECT_LE(ids->product, kLastId);
    }
}

// Whether the device is one of those that the difference speaks of.
bool covers(const Difference& difference, const Claim& claim) {
    const Claim& witness = difference.witness;
    const bool sameVendor = claim.vendorId == witness.vendorId;
    switch (difference.subject) {
        case Subject::kUnlisted:
        case Subject::kCombination:
            return true;
        case Subject::kClass:
            return claim.interfaceClasses.empty()
                           ? (claim.deviceClass & difference.code) != 0 && difference.code > 0xFF
                           : std::count(claim.interfaceClasses.begin(),
                                        claim.interfaceClasses.end(), difference.code) > 0;
        case Subject::kVendor:
        case Subject::kOtherProducts:
            return sameVendor;
        case Subject::kProduct:
            return sameVendor && claim.productId == witness.productId;
    }
    return false;
}

// What is said of all products of a vendor, or of one, is true of each of them.
void expectPrecise(const Difference& difference, const Policy& before, const Policy& after) {
    if (difference.subject != Subject::kVendor && difference.subject != Subject::kProduct) return;
    for (const int32_t product : SmallWorld::products()) {
        const Claim bare = usbClaim({kNeutralClass}, {difference.witness.vendorId, product});
        if (!covers(difference, bare)) continue;
        EXPECT_EQ(allowed(after, bare), difference.admitted) << toText(bare);
        EXPECT_EQ(allowed(before, bare), !difference.admitted) << toText(bare);
    }
}

void expectExact(const Policy& before, const Policy& after) {
    const std::vector<Difference> found = differences(ClosedForm(before), ClosedForm(after));
    const std::vector<bool> was = verdictsOf(before), is = verdictsOf(after);
    for (const bool admitted : {true, false}) {
        bool any = false;
        for (size_t at = 0; at < was.size(); ++at) {
            if (is[at] != admitted || was[at] == admitted) continue;
            any = true;
            const Claim& device = SmallWorld::devices()[at];
            ASSERT_TRUE(std::any_of(found.begin(), found.end(),
                                    [&](const Difference& each) {
                                        return each.admitted == admitted && covers(each, device);
                                    }))
                    << "nothing says that this changes: " << toText(device);
        }
        const bool said = std::any_of(found.begin(), found.end(), [&](const Difference& each) {
            return each.admitted == admitted;
        });
        ASSERT_EQ(said, any) << (admitted ? "admitted" : "refused");
    }
    for (const Difference& each : found) {
        ASSERT_EQ(allowed(after, each.witness), each.admitted) << describe(each);
        ASSERT_EQ(allowed(before, each.witness), !each.admitted) << describe(each);
        expectPrecise(each, before, after);
    }
}

TEST(BruteForceTest, DifferencesAreExact) {
    SmallWorld world(kSeed);
    for (size_t i = 0; i < kPairs && !testing::Test::HasFailure(); ++i) {
        const Policy before = world.nextPolicy();
        const Policy after = i % 2 == 0 ? world.nextPolicy() : world.nextNeighbour(before);
        SCOPED_TRACE(toText(before) + "\n-> " + toText(after));
        expectExact(before, after);
    }
}

Policy without(Policy policy, const std::vector<DeadRule>& dead) {
    for (auto each = dead.rbegin(); each != dead.rend(); ++each) {
        if (each->isClass) continue;
        policy.vendors.erase(policy.vendors.begin() + static_cast<long>(each->index));
    }
    for (auto each = dead.rbegin(); each != dead.rend(); ++each) {
        if (!each->isClass) continue;
        policy.classes.erase(policy.classes.begin() + static_cast<long>(each->index));
    }
    return policy;
}

// Without the dead rules nothing changes, and without any other rule something does.
TEST(BruteForceTest, DeadRulesAreTheseAndNoOthers) {
    SmallWorld world(kSeed);
    for (size_t i = 0; i < kPairs && !testing::Test::HasFailure(); ++i) {
        const Policy policy = world.nextPolicy();
        SCOPED_TRACE(toText(policy));
        std::vector<DeadRule> dead = deadRules(policy, ClosedForm(policy));
        std::sort(dead.begin(), dead.end(), [](const DeadRule& a, const DeadRule& b) {
            return std::pair(a.isClass, a.index) < std::pair(b.isClass, b.index);
        });
        const Policy rest = without(policy, dead);
        const std::vector<bool> verdicts = verdictsOf(policy);
        EXPECT_EQ(verdictsOf(rest), verdicts) << "without all: " << toText(rest);
        for (size_t at = 0; at < rest.classes.size(); ++at) {
            EXPECT_NE(verdictsOf(without(rest, {{DeadRule::Cause::kCovered, true, at, 0, 0}})),
                      verdicts)
                    << rest.classes[at].name;
        }
        for (size_t at = 0; at < rest.vendors.size(); ++at) {
            EXPECT_NE(verdictsOf(without(rest, {{DeadRule::Cause::kCovered, false, at, 0, 0}})),
                      verdicts)
                    << rest.vendors[at].vendor << ":" << rest.vendors[at].product;
        }
    }
}

bool fits(const Alias& alias, const Claim& claim) {
    return !claim.interfaceClasses.empty() &&
           alias.vendor.value_or(claim.vendorId) == claim.vendorId &&
           alias.product.value_or(claim.productId) == claim.productId &&
           (!alias.interfaceClass ||
            std::count(claim.interfaceClasses.begin(), claim.interfaceClasses.end(),
                       *alias.interfaceClass) > 0);
}

TEST(BruteForceTest, SurfaceHoldsWhatSomeAdmittedDeviceReaches) {
    const std::vector<std::optional<int32_t>> vendors = {{}, 0, 1, 2, 3, 65535};
    const std::vector<std::optional<int32_t>> products = {{}, 1, 2, 3, 65535};
    const std::vector<std::optional<int32_t>> classes = {{}, 1, 3, 4, 7, 8, 9, 14, 255};
    SmallWorld world(kSeed);
    for (size_t i = 0; i < kPairs && !testing::Test::HasFailure(); ++i) {
        const Policy policy = world.nextPolicy();
        const Alias alias = {vendors[world.below(vendors.size())],
                             products[world.below(products.size())],
                             classes[world.below(classes.size())], "driver"};
        SCOPED_TRACE(toText(policy));
        SCOPED_TRACE(std::to_string(alias.vendor.value_or(-1)) + ":" +
                     std::to_string(alias.product.value_or(-1)) + " class " +
                     std::to_string(alias.interfaceClass.value_or(-1)));
        const std::vector<Claim>& devices = SmallWorld::devices();
        const bool reachable = std::any_of(devices.begin(), devices.end(), [&](const Claim& each) {
            return fits(alias, each) && allowed(policy, each);
        });
        const auto witness = admittedBy(ClosedForm(policy), alias);
        ASSERT_EQ(witness.has_value(), reachable);
        if (!witness) continue;
        EXPECT_TRUE(fits(alias, *witness)) << toText(*witness);
        EXPECT_TRUE(allowed(policy, *witness)) << toText(*witness);
    }
}

}  // namespace
}  // namespace android::vus::workbench
