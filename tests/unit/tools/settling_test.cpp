// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/settling.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace android::vus::hotplug {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class SettlingTest : public testing::Test {
  protected:
    static Settling::Clock::time_point At(int second) {
        return Settling::Clock::time_point(seconds(second));
    }

    Settling settling_{/*bind_limit=*/seconds(10), /*quiet_time=*/seconds(2)};
};

TEST_F(SettlingTest, WaitsForNothingAtFirst) {
    EXPECT_EQ(settling_.next_deadline(), std::nullopt);
    EXPECT_THAT(settling_.overdue(At(1000)), IsEmpty());
}

TEST_F(SettlingTest, NewDeviceIsOverdueAtItsLimitAndOnlyOnce) {
    settling_.added("1-1", At(5));
    EXPECT_TRUE(settling_.waits_for("1-1"));
    EXPECT_EQ(settling_.next_deadline(), At(15));
    EXPECT_THAT(settling_.overdue(At(14)), IsEmpty());
    EXPECT_THAT(settling_.overdue(At(15)), ElementsAre("1-1"));
    EXPECT_THAT(settling_.overdue(At(15)), IsEmpty());
    EXPECT_FALSE(settling_.waits_for("1-1"));
}

TEST_F(SettlingTest, ForgottenDeviceIsNeverOverdue) {
    settling_.added("1-1", At(0));
    settling_.forget("1-1");
    settling_.forget("1-9");  // never waited for
    EXPECT_EQ(settling_.next_deadline(), std::nullopt);
    EXPECT_THAT(settling_.overdue(At(1000)), IsEmpty());
}

TEST_F(SettlingTest, DeviceAddedAgainIsWaitedForAnew) {
    settling_.added("1-1", At(0));
    settling_.added("1-1", At(7));
    EXPECT_EQ(settling_.next_deadline(), At(17));
}

TEST_F(SettlingTest, NextDeadlineIsTheEarliest) {
    settling_.added("1-1", At(3));
    settling_.added("1-2", At(1));
    settling_.added("1-3", At(2));
    EXPECT_EQ(settling_.next_deadline(), At(11));
    EXPECT_THAT(settling_.overdue(At(12)), ElementsAre("1-2", "1-3"));
    EXPECT_EQ(settling_.next_deadline(), At(13));
}

TEST_F(SettlingTest, InterfacesOfNewDeviceDoNotEndTheWaitForItsBind) {
    settling_.added("1-1", At(0));
    settling_.interface_added("1-1", At(1));
    settling_.interface_bound("1-1", At(1));
    EXPECT_EQ(settling_.next_deadline(), At(10));
}

TEST_F(SettlingTest, InterfacesWithoutDeviceAreWaitedForUntilTheyAreQuiet) {
    settling_.interface_added("1-1", At(0));
    EXPECT_EQ(settling_.next_deadline(), At(2));
    settling_.interface_added("1-1", At(1));
    EXPECT_EQ(settling_.next_deadline(), At(3));
    settling_.interface_bound("1-1", At(2));
    EXPECT_EQ(settling_.next_deadline(), At(4));
    EXPECT_THAT(settling_.overdue(At(4)), ElementsAre("1-1"));
}

TEST_F(SettlingTest, InterfacesThatAreNeverQuietAreWaitedForTwiceTheTime) {
    for (const int second : {0, 1, 2, 3}) settling_.interface_added("1-1", At(second));
    EXPECT_EQ(settling_.next_deadline(), At(4));
}

TEST_F(SettlingTest, OnlyANewDeviceIsWaitedForUntilItIsBound) {
    EXPECT_FALSE(settling_.waits_for_bind("1-1"));
    settling_.interface_added("1-1", At(0));
    EXPECT_FALSE(settling_.waits_for_bind("1-1"));
    settling_.added("1-1", At(0));
    EXPECT_TRUE(settling_.waits_for_bind("1-1"));
}

TEST_F(SettlingTest, DriverOfOldInterfaceIsNoReasonToWait) {
    settling_.interface_bound("1-1", At(0));
    EXPECT_FALSE(settling_.waits_for("1-1"));
}

TEST_F(SettlingTest, NewDeviceWaitsForItsBindThoughOldInterfacesWereWaitedFor) {
    settling_.interface_added("1-1", At(0));
    settling_.added("1-1", At(1));
    EXPECT_EQ(settling_.next_deadline(), At(11));
}

}  // namespace
}  // namespace android::vus::hotplug
