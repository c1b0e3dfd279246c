// SPDX-License-Identifier: Apache-2.0
//
// What the reporter looks at again, and switches again, because it has failed.

#include <gmock/gmock.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

// Twice as late each time, as long as something cannot be read, and a minute at most.
TEST_F(SwitchingTest, WhatCannotBeReadIsLookedAtAgainByAndBy) {
    Sighting unread;
    unread.unread = true;
    Judge(kStick, unread);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: what it is cannot be read"));
    std::vector<int64_t> pauses;
    for (int look = 0; look < 8; ++look) {
        const auto deadline = reporter_->next_deadline();
        ASSERT_TRUE(deadline);
        const auto pause = *deadline - Reporter::Clock::now();
        pauses.push_back(std::chrono::ceil<seconds>(pause).count());
        EXPECT_FALSE(reporter_->take_another_look(*deadline - milliseconds(1)));
        EXPECT_TRUE(reporter_->take_another_look(*deadline));
        EXPECT_FALSE(reporter_->take_another_look(*deadline)) << "once";
        Judge(kStick, unread, Ask::kIfChanged);
        // What closed it may have failed, too.
        EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    }
    EXPECT_THAT(pauses, ElementsAre(1, 2, 4, 8, 16, 32, 60, 60));
    EXPECT_THAT(Calls(), IsEmpty());
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
}

TEST_F(SwitchingTest, WhatCouldNotBeClosedIsClosedLater) {
    switches_.close_failures = 2;
    Refuse(kStick, Usb(1005, {8}));
    for (int more = 0; more < 2; ++more) {
        ASSERT_TRUE(reporter_->next_deadline());
        reporter_->lose_patience(*reporter_->next_deadline());
        EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    }
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt);
}

// However often it is looked at: what fails for good is no work for ever.
TEST_F(SwitchingTest, WhatCanNeitherBeReadNorClosedIsClosedEverMoreSeldom) {
    switches_.close_failures = 1000;
    Sighting unread;
    unread.unread = true;
    const auto later = Reporter::Clock::now() + std::chrono::hours(2);
    for (int look = 0; look < 100; ++look) {
        Judge(kStick, unread, Ask::kIfChanged);
        EXPECT_THAT(Switched(), ElementsAre("close 1-2")) << "look " << look;
        EXPECT_TRUE(reporter_->take_another_look(later));
    }
    ASSERT_TRUE(reporter_->next_deadline());
    EXPECT_GT(*reporter_->next_deadline(), Reporter::Clock::now() + std::chrono::minutes(59));
    EXPECT_LE(*reporter_->next_deadline(), later);
    reporter_->lose_patience(later);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    // What has worked begins anew.
    switches_.close_failures = 0;
    reporter_->lose_patience(later);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt);
    switches_.close_failures = 1;
    Judge(kStick, unread, Ask::kIfChanged);
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    ASSERT_TRUE(reporter_->next_deadline());
    EXPECT_LT(*reporter_->next_deadline(), Reporter::Clock::now() + seconds(1));
}

TEST_F(SwitchingTest, WhatIsToBeAnotherIsTriedAtOnceAndSoonAgain) {
    switches_.close_failures = 1000;
    Refuse(kStick, Usb(1005, {8}));
    for (int more = 0; more < 8; ++more) {
        reporter_->lose_patience(start_ + std::chrono::hours(1));
        EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    }
    allows_ = true;
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt) << "nothing of before is to be done";
    allows_ = false;
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    ASSERT_TRUE(reporter_->next_deadline());
    EXPECT_LT(*reporter_->next_deadline(), Reporter::Clock::now() + seconds(1));
    reporter_->removed(kStick);
    reporter_->drain();
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt) << "it has gone";
}

}  // namespace
}  // namespace android::vus::hotplug
