// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/patience.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace android::vus::hotplug {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class PatienceTest : public testing::Test {
  protected:
    static Patience::Clock::time_point At(int second) {
        return Patience::Clock::time_point(seconds(second));
    }
    std::vector<std::string> LostAt(int second) {
        std::vector<std::string> names;
        for (const Subject& device : patience_.lost(At(second))) names.push_back(device.name);
        return names;
    }

    const Subject one_ = {"1-1", 1005}, other_ = {"1-2", 1006};
    Patience patience_{seconds(2)};
};

TEST_F(PatienceTest, WaitsForNothingAtFirst) {
    EXPECT_EQ(patience_.next_deadline(), std::nullopt);
    EXPECT_THAT(LostAt(1000), IsEmpty());
}

TEST_F(PatienceTest, IsLostAtItsLimitAndOnce) {
    patience_.begin(one_, At(5));
    patience_.begin(other_, At(6));
    EXPECT_EQ(patience_.next_deadline(), At(7));
    EXPECT_THAT(LostAt(6), IsEmpty());
    EXPECT_THAT(LostAt(7), ElementsAre("1-1"));
    EXPECT_THAT(LostAt(7), IsEmpty());
    EXPECT_EQ(patience_.next_deadline(), At(8));
    EXPECT_THAT(LostAt(8), ElementsAre("1-2"));
    EXPECT_EQ(patience_.next_deadline(), std::nullopt);
}

TEST_F(PatienceTest, AnswerEndsIt) {
    patience_.begin(one_, At(5));
    patience_.end(one_);
    patience_.end(one_);  // none was wanted
    EXPECT_EQ(patience_.next_deadline(), std::nullopt);
    EXPECT_THAT(LostAt(1000), IsEmpty());
}

TEST_F(PatienceTest, EveryAnswerIsWaitedFor) {
    patience_.begin(one_, At(5));
    patience_.begin(one_, At(6));
    patience_.end(one_);
    EXPECT_EQ(patience_.next_deadline(), At(7));
    EXPECT_THAT(LostAt(7), ElementsAre("1-1"));
}

TEST_F(PatienceTest, NextQuestionAfterALimitHasItsOwn) {
    patience_.begin(one_, At(5));
    LostAt(7);
    patience_.begin(one_, At(8));
    EXPECT_EQ(patience_.next_deadline(), At(10));
    EXPECT_THAT(LostAt(10), ElementsAre("1-1"));
}

}  // namespace
}  // namespace android::vus::hotplug
