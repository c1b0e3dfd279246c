// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/preview.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <time.h>

#include "android/vus/paths.h"
#include "tests/support/faulty_call.h"
#include "tests/support/world.h"

namespace android::vus::hotplug {
namespace {

const Claim kFlashDrive = {0, {8}, 0x0951, 0x1666};

std::string PolicyOf(const std::string& rules, const std::string& mode = "whitelist") {
    return "<usbconfig mode=\"" + mode + "\">" + rules + "</usbconfig>";
}

const std::string kListsStorage = "<class>USB_CLASS_MASS_STORAGE</class>";
const std::string kListsKeyboards = "<class>AINPUT_SOURCE_KEYBOARD</class>";
const std::string kListsMaker = "<vid vendorid=\"1133\"/>";

class PreviewTest : public testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }
    static void Set(const std::string& policy, const std::string& backup) {
        WriteFile(kPolicyFile, policy);
        WriteFile(kPolicyBackupFile, backup);
    }
    PolicyPreview preview_;
};

TEST_F(PreviewTest, NothingIsForeseenWithoutAPolicy) {
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown);
    WriteFile(kPolicyFile, PolicyOf(kListsStorage));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown) << "it was never in force";
}

TEST_F(PreviewTest, PolicyThatWasPutInForceIsForeseen) {
    Set(PolicyOf(kListsStorage), PolicyOf(kListsStorage) + "\n");
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kAllowed);
    EXPECT_EQ(preview_.of({0, {14}, 0, 0}), Foreseen::kRefused);
    Set(PolicyOf("", "default"), PolicyOf("", "default"));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kAllowed);
}

TEST_F(PreviewTest, NothingIsForeseenOfWhatARewriteChanges) {
    Set(PolicyOf(kListsStorage), PolicyOf(kListsKeyboards));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown);
    EXPECT_EQ(preview_.of({0, {14}, 0, 0}), Foreseen::kRefused) << "by either";
    Set(PolicyOf(kListsStorage), PolicyOf(kListsStorage));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kAllowed);
}

// By their stamps a rewrite of the same length would not be told from what was read, if it comes in
// the same moment.
TEST_F(PreviewTest, RewriteOfTheSameLengthIsSeenWheneverItComes) {
    const std::string refuses = PolicyOf("<vid vendorid=\"2385\"/>", "blacklist");  // 0x0951
    const std::string allows = PolicyOf("<vid vendorid=\"2386\"/>", "blacklist");
    ASSERT_EQ(refuses.size(), allows.size());
    for (int round = 0; round < 100; ++round) {
        Set(refuses, refuses);
        EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kRefused) << round;
        Set(allows, allows);
        EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kAllowed) << round;
    }
}

TEST_F(PreviewTest, OldPolicyIsReadOnceAndItsSuccessorAtOnce) {
    PolicyPreview later([] { return time(nullptr) + 60; });
    Set(PolicyOf(kListsStorage), PolicyOf(kListsStorage));
    const auto opened_files = [&later] {
        int opened = 0;
        FaultyCall::run(
                /*n=*/0, /*error=*/0, [&later] { later.of(kFlashDrive); },
                [&opened](int call, const unsigned long long*) {
                    opened += call == SYS_openat ? 1 : 0;
                    return false;
                });
        return opened;
    };
    EXPECT_EQ(opened_files(), 2);
    EXPECT_EQ(opened_files(), 0);
    EXPECT_EQ(later.of(kFlashDrive), Foreseen::kAllowed);
    Set(PolicyOf(kListsKeyboards), PolicyOf(kListsKeyboards));
    EXPECT_EQ(later.of(kFlashDrive), Foreseen::kRefused);
    RemoveFile(kPolicyFile);
    EXPECT_EQ(later.of(kFlashDrive), Foreseen::kUnknown);
}

TEST_F(PreviewTest, ClassesAdmitOrTheVendorDoes) {
    const Claim with_serial = {0, {8, 255}, 1133, 1};
    EXPECT_FALSE(preview_.admits_by_class(with_serial));
    Set(PolicyOf(kListsStorage), PolicyOf(kListsStorage));
    EXPECT_TRUE(preview_.admits_by_class(with_serial));
    Set(PolicyOf(kListsMaker), PolicyOf(kListsMaker));
    EXPECT_FALSE(preview_.admits_by_class(with_serial));
    Set(PolicyOf("", "blacklist"), PolicyOf("", "default"));
    EXPECT_FALSE(preview_.admits_by_class(with_serial)) << "nothing lists it";
    const std::string both = PolicyOf(kListsStorage + kListsMaker);
    Set(both, both);
    EXPECT_FALSE(preview_.admits_by_class(with_serial)) << "all of it is listed";
    const std::string product =
            PolicyOf(kListsStorage + "<vid vendorid=\"1133\"><pid>1</pid></vid>");
    Set(product, product);
    EXPECT_FALSE(preview_.admits_by_class(with_serial));
    EXPECT_TRUE(preview_.admits_by_class({0, {8, 255}, 1133, 2})) << "another product";
    Set(PolicyOf(kListsMaker), PolicyOf(kListsStorage));
    EXPECT_TRUE(preview_.admits_by_class(with_serial)) << "by one of them";
}

TEST_F(PreviewTest, WhatEitherRefusesIsRefused) {
    EXPECT_FALSE(preview_.refuses(kFlashDrive)) << "nobody has";
    WriteFile(kPolicyFile, PolicyOf(kListsKeyboards));
    EXPECT_TRUE(preview_.refuses(kFlashDrive));
    Set(PolicyOf(kListsStorage), PolicyOf(kListsKeyboards));
    EXPECT_TRUE(preview_.refuses(kFlashDrive));
    Set("<usbconfig", PolicyOf(kListsStorage));
    EXPECT_FALSE(preview_.refuses(kFlashDrive));
}

TEST_F(PreviewTest, MalformedPolicyForeseesNothing) {
    Set("<usbconfig", PolicyOf(kListsStorage));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown);
    Set(PolicyOf(kListsStorage), PolicyOf("", "greylist"));
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown);
    Set("", "");
    EXPECT_EQ(preview_.of(kFlashDrive), Foreseen::kUnknown);
}

TEST_F(PreviewTest, AnyInputOfAMaker) {
    const auto any = [this](const std::string& rules, const std::string& mode, int32_t vendor) {
        Set(PolicyOf(rules, mode), PolicyOf(rules, mode));
        return foreseen_of_any_input(&preview_, vendor, 1);
    };
    EXPECT_EQ(any(kListsStorage, "whitelist", 0x046D), Foreseen::kRefused);
    EXPECT_EQ(any(kListsKeyboards, "whitelist", 0x046D), Foreseen::kUnknown);
    EXPECT_EQ(any(kListsMaker, "whitelist", 1133), Foreseen::kAllowed);
    EXPECT_EQ(any(kListsStorage, "blacklist", 0x046D), Foreseen::kAllowed);
    EXPECT_EQ(any(kListsKeyboards, "blacklist", 0x046D), Foreseen::kUnknown);
    EXPECT_EQ(any(kListsMaker, "blacklist", 1133), Foreseen::kRefused);
    EXPECT_EQ(any("", "default", 0x046D), Foreseen::kAllowed);
}

}  // namespace
}  // namespace android::vus::hotplug
