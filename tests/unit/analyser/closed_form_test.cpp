// SPDX-License-Identifier: Apache-2.0
//
// The ends of what is possible, which a small world does not reach.

#include "tools/workbench/closed_form.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "small_world.h"
#include "tools/workbench/dead_rules.h"
#include "tools/workbench/difference.h"
#include "tools/workbench/lint.h"

namespace android::vus::workbench {
namespace {

std::vector<int32_t> idsUpTo(int32_t last, int32_t first = 0) {
    std::vector<int32_t> ids(static_cast<size_t>(last - first + 1));
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

TEST(IdOutsideTest, IsTheLowestAndZeroComesLast) {
    EXPECT_EQ(idOutside({}), 1);
    EXPECT_EQ(idOutside({0}), 1);
    EXPECT_EQ(idOutside({0, 1}), 2);
    EXPECT_EQ(idOutside({2}), 1);
    EXPECT_EQ(idOutside({1, 2, 4}), 3);
    EXPECT_EQ(idOutside({1, 70000}), 2);
    EXPECT_EQ(idOutside(idsUpTo(65534)), 65535);
    EXPECT_EQ(idOutside(idsUpTo(65535, 1)), 0);
    EXPECT_EQ(idOutside(idsUpTo(65535)), std::nullopt);
    EXPECT_EQ(idOutside(idsUpTo(65536)), std::nullopt);
}

// Every vendor that a device can have, whole: no device is left that class rules decide on.
Policy everyVendor(const std::string& mode) {
    Policy policy;
    policy.mode = mode;
    policy.classes.push_back({8, "USB_CLASS_MASS_STORAGE", 2});
    for (const int32_t vendor : idsUpTo(65535))
        policy.vendors.push_back({vendor, kEveryProduct, 3});
    return policy;
}

TEST(EveryVendorTest, ClassRulesNeverMatter) {
    const Policy policy = everyVendor(kModeWhitelist);
    const ClosedForm form(policy);
    EXPECT_EQ(form.idsThat(false), std::nullopt);
    const std::vector<DeadRule> dead = deadRules(policy, form);
    ASSERT_EQ(dead.size(), 1U);
    EXPECT_TRUE(dead[0].isClass);
    EXPECT_EQ(dead[0].cause, DeadRule::Cause::kCovered);
    Policy fewer = policy;
    fewer.classes.clear();
    EXPECT_TRUE(differences(form, ClosedForm(fewer)).empty());
}

TEST(EveryVendorTest, AdmitsEverythingOrNothing) {
    const std::string text = "<usbconfig mode=\"default\"/>";
    for (const auto& [mode, id] : {std::pair(kModeWhitelist, "admits-everything"),
                                   std::pair(kModeBlacklist, "refuses-everything")}) {
        std::vector<std::string> found;
        for (const Finding& each : lint(text, everyVendor(mode), nullptr)) {
            found.emplace_back(each.rule->id);
        }
        EXPECT_EQ(std::count(found.begin(), found.end(), id), 1) << mode;
        EXPECT_EQ(std::count(found.begin(), found.end(), "class-evaded"), 0);
        EXPECT_EQ(std::count(found.begin(), found.end(), "ride-along"), 0);
    }
}

// Every product of the one vendor: there is no other one to speak of.
TEST(EveryProductTest, VendorIsListedWholeInAllButName) {
    std::string rules;
    for (const int32_t product : idsUpTo(65535))
        rules += "<pid>" + std::to_string(product) + "</pid>";
    const auto whitelist = [](const std::string& inside) {
        return policyOf("<usbconfig mode=\"whitelist\">\n" + inside + "</usbconfig>");
    };
    const ClosedForm every(whitelist("<vid vendorid=\"5\">" + rules + "</vid>"));
    const ClosedForm whole(whitelist("<vid vendorid=\"5\"/>"));
    EXPECT_EQ(every.idsThat(false, 5), std::nullopt);
    EXPECT_TRUE(differences(every, whole).empty());
    const ClosedForm none(whitelist(""));
    ASSERT_EQ(differences(none, whole).size(), 1U);
    EXPECT_EQ(differences(none, every).size(), 65536U);
}

}  // namespace
}  // namespace android::vus::workbench
