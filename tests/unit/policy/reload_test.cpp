// SPDX-License-Identifier: Apache-2.0

// What a close of the policy is answered with, and what lost events are: the test says what was
// heard and what is still to be heard.

#include "android/vus/policy_files.h"
#include "policy_test.h"

namespace android::vus {
namespace {

using Cause = PolicyFiles::Cause;

constexpr char kLastGood[] = "<usbconfig mode='blacklist'><vid vendorid='1'/></usbconfig>\n";
constexpr char kOther[] = "<usbconfig mode='blacklist'><vid vendorid='2'/></usbconfig>\n";
constexpr char kInvalid[] = "<usbconfig mode='open'/>\n";

class ReloadTest : public PolicyTest {
  protected:
    // Of what an earlier test restored nothing is expected any more.
    void SetUp() override {
        PolicyTest::SetUp();
        for (const char* policy : {kOther, kLastGood}) EXPECT_TRUE(IsConfirmed(policy));
    }

    static bool Reload(Cause cause, size_t closesWaiting = 0) {
        return PolicyFiles::reload(Util::loadFile, cause, [=] { return closesWaiting; });
    }
    // Somebody writes the policy, and that is heard.
    static bool IsConfirmed(const std::string& policy) {
        WriteFile(kPolicyFile, policy);
        return Reload(Cause::kClosed);
    }
};

TEST_F(ReloadTest, TheCloseOfARestoreSaysNothing) {
    EXPECT_FALSE(IsConfirmed(kInvalid));
    EXPECT_EQ(ReadFile(kPolicyFile), kLastGood);
    EXPECT_FALSE(Reload(Cause::kClosed));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
    EXPECT_TRUE(IsConfirmed(kLastGood)) << "the next one is somebody's";
    EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
}

TEST_F(ReloadTest, ACloseOfARestoreThatIsLostIsNotWaitedFor) {
    EXPECT_FALSE(IsConfirmed(kInvalid));
    EXPECT_FALSE(Reload(Cause::kEventsLost));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
    EXPECT_TRUE(IsConfirmed(kLastGood));
    EXPECT_EQ(ReadFile(kStatusFile), "SUCCESS");
}

TEST_F(ReloadTest, ACloseOfARestoreThatIsNotLostSaysNothingStill) {
    EXPECT_FALSE(IsConfirmed(kInvalid));
    EXPECT_FALSE(Reload(Cause::kEventsLost, 1));
    EXPECT_FALSE(Reload(Cause::kClosed));
    EXPECT_EQ(ReadFile(kStatusFile), "INVALID MODE");
}

TEST_F(ReloadTest, APolicyWhoseCloseIsLostIsConfirmed) {
    WriteFile(kPolicyFile, kOther);
    EXPECT_TRUE(Reload(Cause::kEventsLost));
    EXPECT_EQ(ReadFile(kPolicyBackupFile), kOther);
}

}  // namespace
}  // namespace android::vus
