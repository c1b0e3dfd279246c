// SPDX-License-Identifier: Apache-2.0
//
// The two who answer a judgement's questions against each other, over random policies and devices:
// the policy as a value, and the tables in force after that policy was loaded. And the judgement
// against the rules written out as one walk over the lookups, which logs on its way: texts and log
// lines have to be the same, line by line. VUS_MODEL_SEED=N repeats a run.

#include <stdlib.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "android/vus/paths.h"
#include "android/vus/util.h"
#include "random_world.h"
#include "reference.h"
#include "tests/support/cases.h"
#include "tests/support/world.h"

namespace android::vus {
namespace {

constexpr int kPoliciesCompared = CasesOf(5000);
constexpr int kDevicesCompared = 20;  // under each

// One walk over the lookups.
class Lookups {
  public:
    explicit Lookups(const Claim& claim) : claim_(claim) {}

    bool Judge() {
        const std::string mode = Util::getMode();
        if (mode == "default") {
            reason_ = "Enabled by default rule";
            return true;
        }
        const bool matched = MatchClass() || MatchVendor();
        if (mode == "blacklist") {
            reason_ = matched ? "Blacklisted: " + reason_
                              : "No matching rule found to Blacklist the device";
            return !matched;
        }
        reason_ = matched ? "Whitelisted: " + reason_
                          : "No matching rule found to Whitelist the device";
        return matched;
    }

    const std::string& reason() const { return reason_; }

  private:
    bool MatchClass() {
        reason_ = "Match by ClassName, CLASS : ";
        return claim_.interfaceClasses.empty() ? MatchSources() : MatchInterfaces();
    }

    bool MatchInterfaces() {
        bool matched = false;
        for (const int32_t code : claim_.interfaceClasses) {
            LOG(INFO) << code;
            if (Util::validateRestrictedClass(static_cast<uint32_t>(code))) continue;
            if (!Util::validateClass(static_cast<uint32_t>(code))) {
                LOG(INFO) << "interface class check false breaking";
                return false;
            }
            matched = true;
            const std::string name = Util::getClassName(code);
            if (reason_.find(name) == std::string::npos) reason_ += name + " ";
        }
        return matched;
    }

    bool MatchSources() {
        const std::vector<int32_t> sources = Util::checkMultiClass(claim_.deviceClass);
        for (const int32_t source : sources) {
            LOG(INFO) << "HID multiClass check";
            if (!Util::validateClass(static_cast<uint32_t>(source))) {
                LOG(INFO) << "HID multi class check false breaking";
                return false;
            }
            reason_ += Util::getClassName(source) + " ";
        }
        return !sources.empty();
    }

    bool MatchVendor() {
        const std::string vendor = std::to_string(claim_.vendorId);
        if (Util::validateVid(claim_.vendorId)) {
            reason_ = "Match by VID, VID : " + vendor;
            return true;
        }
        if (!Util::validateVidPid(claim_.vendorId, claim_.productId)) return false;
        reason_ = "Match by VID_PID combination, VID : " + vendor +
                  " PID: " + std::to_string(claim_.productId);
        return true;
    }

    const Claim& claim_;
    std::string reason_;
};

class TwoAnswerersTest : public ::testing::Test {
  protected:
    TwoAnswerersTest() : seed_(reference::Seed()), random_(seed_) {}

    void SetUp() override {
        EmptyWorld();
        MakeDir(kConfigDir);
        Util::configMode = "default";
    }

    // Loads a random policy; none if it is rejected.
    std::optional<Policy> LoadPolicy() {
        xml_ = ToXml(random_.NextPolicy());
        WriteFile(kPolicyFile, xml_);
        Util::createMapFromConfig(kPolicyFile);
        auto parsed = parsePolicy(xml_);
        EXPECT_EQ(std::holds_alternative<Policy>(parsed), Util::xml_parse_status);
        if (!std::holds_alternative<Policy>(parsed)) return std::nullopt;
        return std::get<Policy>(std::move(parsed));
    }

    Claim NextClaim() {
        const reference::Device device = random_.NextDevice({});
        return {device.device_class, device.interface_classes, device.vendor, device.product};
    }

    void Compare(const Policy& policy, const Claim& claim) {
        const Judgement by_value = judge(claim, PolicyRules(policy));
        const Judgement in_force = judge(claim, Util::rulesInForce());
        ExpectSame(by_value, in_force);
        logs_.Clear();
        Util::logSteps(in_force.steps);
        const std::vector<std::string> steps = logs_.Lines();
        logs_.Clear();
        Lookups lookups(claim);
        EXPECT_EQ(lookups.Judge(), in_force.allowed);
        EXPECT_EQ(lookups.reason(), in_force.reason);
        EXPECT_EQ(logs_.Lines(), steps);
        ++counts_[in_force.allowed][in_force.matched.empty()];
    }

    static void ExpectSame(const Judgement& a, const Judgement& b) {
        EXPECT_EQ(a.mode, b.mode);
        EXPECT_EQ(a.allowed, b.allowed);
        EXPECT_EQ(a.reason, b.reason);
        ASSERT_EQ(a.matched.size(), b.matched.size());
        for (size_t i = 0; i < a.matched.size(); ++i) {
            EXPECT_EQ(a.matched[i].kind, b.matched[i].kind);
            EXPECT_EQ(a.matched[i].id, b.matched[i].id);
            EXPECT_EQ(a.matched[i].product, b.matched[i].product);
            EXPECT_NE(a.matched[i].line, kNoLine);
            EXPECT_EQ(b.matched[i].line, kNoLine);
        }
        ASSERT_EQ(a.miss.has_value(), b.miss.has_value());
        if (a.miss) {
            EXPECT_EQ(a.miss->cause, b.miss->cause);
            EXPECT_EQ(a.miss->code, b.miss->code);
            EXPECT_EQ(a.miss->index, b.miss->index);
            EXPECT_EQ(a.miss->vendor, b.miss->vendor);
        }
        ASSERT_EQ(a.steps.size(), b.steps.size());
        for (size_t i = 0; i < a.steps.size(); ++i) {
            EXPECT_EQ(a.steps[i].kind, b.steps[i].kind);
            EXPECT_EQ(a.steps[i].value, b.steps[i].value);
            EXPECT_EQ(a.steps[i].other, b.steps[i].other);
        }
    }

    const uint64_t seed_;
    reference::RandomWorld random_;
    std::string xml_;
    LogCapture logs_;
    int counts_[2][2] = {};  // allowed, without a matching rule
};

TEST_F(TwoAnswerersTest, JudgeAlike) {
    printf("VUS_MODEL_SEED=%llu\n", static_cast<unsigned long long>(seed_));
    SCOPED_TRACE("VUS_MODEL_SEED=" + std::to_string(seed_));
    for (int i = 0; i < kPoliciesCompared && !HasFailure(); ++i) {
        const std::optional<Policy> policy = LoadPolicy();
        if (!policy) continue;
        SCOPED_TRACE(xml_);
        for (int device = 0; device < kDevicesCompared && !HasFailure(); ++device) {
            const Claim claim = NextClaim();
            Compare(*policy, claim);
        }
    }
    // A run in which some kind of judgement never came up has shown nothing about it.
    for (const auto& of_verdict : counts_) {
        EXPECT_GE(*std::min_element(std::begin(of_verdict), std::end(of_verdict)), 500);
    }
}

}  // namespace
}  // namespace android::vus
