// SPDX-License-Identifier: Apache-2.0
//
// Calls that fail, and calls that do not return.

#include <gmock/gmock.h>

#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FailedCallTest : public SwitchingTest {
  protected:
    void SetUp() override {
        SwitchingTest::SetUp();
        auto manner = Manner(/*fail_closed=*/false);
        manner.pause = std::chrono::milliseconds(1);
        reporter_ = std::make_unique<Reporter>(&switches_, manner);
        reporter_->set_service(fake_);
    }
    // The next calls end so.
    void Fail(int calls, status_t error) {
        fake_->answers = std::vector<binder::Status>(calls, binder::Status::fromStatusT(error));
    }
};

TEST_F(FailedCallTest, IsMadeAgain) {
    Fail(2, FAILED_TRANSACTION);
    allows_ = false;
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005", "judge 1005", "judge 1005"));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    Fail(1, FAILED_TRANSACTION);
    reporter_->removed(kStick);
    EXPECT_THAT(Calls(), ElementsAre("update 1005 0", "update 1005 0"));
}

TEST_F(FailedCallTest, IsNoAnswerInTheEnd) {
    Fail(5, FAILED_TRANSACTION);
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Calls(), testing::SizeIs(5));
    EXPECT_THAT(Switched(), ElementsAre("close 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: the daemon cannot be asked"));
    // Whoever looks again asks again.
    Judge(kStick, Usb(1005, {8}), Ask::kIfChanged);
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    EXPECT_THAT(Switched(), ElementsAre("open 1-2"));
}

TEST_F(FailedCallTest, OfADaemonThatHasEndedIsNotMadeAgain) {
    Fail(1, DEAD_OBJECT);
    Judge(kStick, Usb(1005, {8}));
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
    EXPECT_THAT(Switched(), IsEmpty());
}

// The loop tells of another policy, and nothing that it does may wait for the daemon.
TEST_F(SwitchingTest, DaemonThatHangsOverItsListHoldsUpNobodyElse) {
    std::promise<void> asked, go_on;
    fake_->list_hook = [&, go = go_on.get_future().share()] {
        asked.set_value();
        go.wait();
    };
    Judge(kStick, Usb(1005, {8}));
    asked.get_future().wait();
    auto told = std::async(std::launch::async, [this] {
        reporter_->policy_changed();
        return reporter_->has_service();
    });
    EXPECT_EQ(told.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    go_on.set_value();
    EXPECT_TRUE(told.get());
    EXPECT_THAT(Calls(), ElementsAre("judge 1005"));
}

}  // namespace
}  // namespace android::vus::hotplug
