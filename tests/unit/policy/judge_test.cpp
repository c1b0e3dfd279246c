// SPDX-License-Identifier: Apache-2.0
//
// The judgement as a function of a policy: by which rule a device matches, and why it does not.
// Its verdicts and reasons are held by the service's tests and by the model, over the tables in
// force.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "android/vus/judge.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Kind = Step::Kind;

constexpr char kRules[] =
        "<usbconfig mode='MODE'>\n"
        "<class>USB_CLASS_MASS_STORAGE</class>\n"
        "<class>USB_CLASS_AUDIO</class>\n"
        "<class>AINPUT_SOURCE_KEYBOARD</class>\n"
        "<class>USB_CLASS_AUDIO</class>\n"
        "<vid vendorid='100'><pid>5</pid>\n"
        "<pid>6</pid></vid>\n"
        "<vid vendorid='200'/>\n"
        "<vid vendorid='300'><pid>7</pid></vid>\n"
        "</usbconfig>";

Policy PolicyOf(std::string text) {
    auto parsed = parsePolicy(text);
    EXPECT_TRUE(std::holds_alternative<Policy>(parsed)) << text;
    return std::get<Policy>(std::move(parsed));
}

Policy InMode(const std::string& mode) {
    std::string text = kRules;
    return PolicyOf(text.replace(text.find("MODE"), 4, mode));
}

Judgement JudgeInterfaces(std::vector<int32_t> classes, int32_t vendor = 0, int32_t product = 0) {
    const Policy policy = InMode("whitelist");
    return judge({0, std::move(classes), vendor, product}, PolicyRules(policy));
}

Judgement JudgeSources(int32_t bits, int32_t vendor = 0) {
    const Policy policy = InMode("whitelist");
    return judge({bits, {}, vendor, 0}, PolicyRules(policy));
}

std::vector<std::string> Matched(const Judgement& judgement) {
    static constexpr const char* kKinds[] = {"class", "vendor", "product"};
    std::vector<std::string> rules;
    for (const Rule& rule : judgement.matched) {
        rules.push_back(std::string(kKinds[static_cast<int>(rule.kind)]) + " " +
                        std::to_string(rule.id) + " " + std::to_string(rule.product) + " @" +
                        std::to_string(rule.line));
    }
    return rules;
}

std::vector<Kind> KindsOf(const Judgement& judgement) {
    std::vector<Kind> kinds;
    for (const Step& step : judgement.steps) kinds.push_back(step.kind);
    return kinds;
}

void ExpectMiss(const Judgement& judgement, Miss::Cause cause, int32_t code, size_t index,
                int32_t vendor) {
    EXPECT_FALSE(judgement.allowed);
    EXPECT_EQ(judgement.reason, "No matching rule found to Whitelist the device");
    EXPECT_THAT(Matched(judgement), IsEmpty());
    ASSERT_TRUE(judgement.miss);
    EXPECT_EQ(judgement.miss->cause, cause);
    EXPECT_EQ(judgement.miss->code, code);
    EXPECT_EQ(judgement.miss->index, index);
    EXPECT_EQ(judgement.miss->vendor, vendor);
}

TEST(JudgeTest, TheDefaultModeAsksNoRule) {
    const Policy policy = InMode("default");
    const Judgement judgement = judge({0, {8}, 200, 1}, PolicyRules(policy));
    EXPECT_TRUE(judgement.allowed);
    EXPECT_EQ(judgement.reason, "Enabled by default rule");
    EXPECT_THAT(judgement.matched, IsEmpty());
    EXPECT_FALSE(judgement.miss);
    EXPECT_THAT(judgement.steps, IsEmpty());
}

TEST(JudgeTest, AClassMatchNamesEachRuleOnceByItsFirstLine) {
    const Judgement judgement = JudgeInterfaces({1, 255, 8, 1});
    EXPECT_TRUE(judgement.allowed);
    EXPECT_EQ(judgement.reason,
              "Whitelisted: Match by ClassName, CLASS : USB_CLASS_AUDIO USB_CLASS_MASS_STORAGE ");
    EXPECT_THAT(Matched(judgement), ElementsAre("class 1 0 @3", "class 8 0 @2"));
    EXPECT_FALSE(judgement.miss);
    EXPECT_THAT(KindsOf(judgement),
                ElementsAre(Kind::kInterface, Kind::kListedClass, Kind::kInterface,
                            Kind::kRestrictedClass, Kind::kInterface, Kind::kListedClass,
                            Kind::kInterface, Kind::kListedClass));
}

TEST(JudgeTest, AnUnlistedClassSaysWhichInterfaceEndedTheScan) {
    const Judgement judgement = JudgeInterfaces({8, 255, 7, 1}, 42);
    ExpectMiss(judgement, Miss::Cause::kUnlistedClass, 7, 2, 42);
    EXPECT_EQ(judgement.steps.back().kind, Kind::kUnlistedInterface);
    EXPECT_EQ(judgement.steps.back().value, 7);
}

TEST(JudgeTest, RestrictedInterfacesOnlyAreAMissOfTheirOwn) {
    ExpectMiss(JudgeInterfaces({3, 9}, 42), Miss::Cause::kRestrictedOnly, 0, 0, 42);
}

TEST(JudgeTest, EverySourceMustBeListed) {
    const Judgement judgement = JudgeSources(0x2103, 42);
    ExpectMiss(judgement, Miss::Cause::kUnlistedSource, 0x2000, 1, 42);
    EXPECT_THAT(KindsOf(judgement),
                ElementsAre(Kind::kSourceBits, Kind::kSeveralSources, Kind::kSource,
                            Kind::kListedClass, Kind::kSource, Kind::kUnlistedSource));
    EXPECT_EQ(judgement.steps[0].value, 0x2103);
    EXPECT_EQ(judgement.steps[0].other, 0x2100);
}

TEST(JudgeTest, ASingleSourceMatchesByItself) {
    const Judgement judgement = JudgeSources(0x101);
    EXPECT_TRUE(judgement.allowed);
    EXPECT_EQ(judgement.reason, "Whitelisted: Match by ClassName, CLASS : AINPUT_SOURCE_KEYBOARD ");
    EXPECT_THAT(Matched(judgement), ElementsAre("class 256 0 @4"));
    EXPECT_EQ(judgement.steps[1].kind, Kind::kSingleSource);
}

TEST(JudgeTest, NeitherInterfacesNorSourcesIsAMissOfItsOwn) {
    ExpectMiss(JudgeSources(0xFF, 42), Miss::Cause::kNoSource, 0, 0, 42);
}

TEST(JudgeTest, AVendorMatchesAfterAnAbandonedScanAndLeavesNoTraceOfIt) {
    const Judgement judgement = JudgeInterfaces({8, 7}, 200, 1);
    EXPECT_EQ(judgement.reason, "Whitelisted: Match by VID, VID : 200");
    EXPECT_THAT(Matched(judgement), ElementsAre("vendor 200 -1 @8"));
    EXPECT_FALSE(judgement.miss);
}

TEST(JudgeTest, AVendorOfProductsMatchesWholeByAHigherOnesRule) {
    const Judgement judgement = JudgeInterfaces({7}, 100, 99);
    EXPECT_TRUE(judgement.allowed);
    EXPECT_EQ(judgement.reason, "Whitelisted: Match by VID, VID : 100");
    // The rule that did it is the other vendor's.
    EXPECT_THAT(Matched(judgement), ElementsAre("vendor 200 -1 @8"));
}

TEST(JudgeTest, AProductMatchesByItsLine) {
    const Judgement judgement = JudgeInterfaces({7}, 300, 7);
    EXPECT_EQ(judgement.reason, "Whitelisted: Match by VID_PID combination, VID : 300 PID: 7");
    EXPECT_THAT(Matched(judgement), ElementsAre("product 300 7 @9"));
    ExpectMiss(JudgeInterfaces({7}, 300, 8), Miss::Cause::kUnlistedClass, 7, 0, 300);
    ExpectMiss(JudgeInterfaces({7}, 150, 8), Miss::Cause::kUnlistedClass, 7, 0, 150);
    ExpectMiss(JudgeInterfaces({7}, 301, 7), Miss::Cause::kUnlistedClass, 7, 0, 301);
}

TEST(JudgeTest, ABlacklistRefusesWhatMatchesAndSaysWhyNotOtherwise) {
    const Policy policy = InMode("blacklist");
    const Judgement refused = judge({0, {8}, 0, 0}, PolicyRules(policy));
    EXPECT_FALSE(refused.allowed);
    EXPECT_EQ(refused.reason, "Blacklisted: Match by ClassName, CLASS : USB_CLASS_MASS_STORAGE ");
    const Judgement allowed = judge({0, {8, 7}, 0, 0}, PolicyRules(policy));
    EXPECT_TRUE(allowed.allowed);
    EXPECT_EQ(allowed.reason, "No matching rule found to Blacklist the device");
    EXPECT_EQ(allowed.miss->index, 1u);
}

TEST(JudgeTest, AnyOtherModeIsAWhitelist) {
    Policy policy = InMode("whitelist");
    policy.mode = "Whitelist";
    EXPECT_TRUE(judge({0, {8}, 0, 0}, PolicyRules(policy)).allowed);
    EXPECT_FALSE(judge({0, {7}, 0, 0}, PolicyRules(policy)).allowed);
}

TEST(JudgeTest, TheFirstClassOtherThanHidIsFound) {
    EXPECT_EQ(firstClassOtherThanHid({3, 8, 1}), 8);
    EXPECT_EQ(firstClassOtherThanHid({3, 3}), std::nullopt);
    EXPECT_EQ(firstClassOtherThanHid({}), std::nullopt);
}

}  // namespace
}  // namespace android::vus
