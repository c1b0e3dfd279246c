// SPDX-License-Identifier: Apache-2.0
//
// What is asked, and what is switched, where a gate holds devices back.

#include "tools/hotplug/gated_actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <android-base/file.h>

#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tests/unit/tools/fake_kernel.h"
#include "tests/unit/tools/switching_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// There is no policy, so that nothing is foreseen.
class GatedActionsTest : public SwitchingTest {
  protected:
    void SetUp() override {
        EmptyWorld();
        SwitchingTest::SetUp();
        UsbTree tree;
        tree.AddBus(1);
        disk_ = {"1-2", tree.AddDevice("1-2", FlashDrive())};
        WriteFile(UsbPath("1-2", "busnum"), "1\n");
        Start();
    }

    // A reporter, perhaps after another one.
    void Start() {
        reporter_.reset();
        closings_ = std::make_unique<Closings>(file_);
        Reporter::Manner manner = Manner(/*fail_closed=*/true);
        manner.closings = closings_.get();
        manner.answered = [this](const Subject& device, const Sighting& seen, bool allowed) {
            gate_.answered(device, allowed, seen.incarnation);
        };
        reporter_ = std::make_unique<Reporter>(&gate_, manner);
        reporter_->set_service(fake_);
        actions_ = gated_actions(&gate_, reporter_.get(), [] {});
    }
    void TearDown() override { reporter_.reset(); }

    void PlugHub() {
        Plug("");
        kernel_.devices["1-2"].interfaces[0] = {9, {kHubDriver}};
    }
    void Judge() {
        actions_.judge_usb(disk_, Ask::kIfChanged);
        reporter_->drain();
    }
    bool IsWrittenDown() { return Closings(file_).take_earlier(disk_); }

    // As sysfs shows it already.
    void Plug(const std::string& driver) {
        if (driver.empty()) RemoveFile(UsbPath("1-2:1.0", "driver"));
        FakeKernel::Device device;
        device.number = device.identity.deviceId = disk_.number;
        device.interfaces[0] = {8, {"usb-storage"}};
        device.interfaces[0].authorized = !driver.empty();
        device.interfaces[0].driver = driver;
        device.driver = kDeviceDriver;
        kernel_.devices["1-2"] = device;
    }

    // What is switched while the daemon is silent, for longer than anybody waits.
    std::vector<std::string> SwitchedBySilence() {
        std::promise<void> asked, answer;
        fake_->allow = [&](const DeviceInfo&) {
            asked.set_value();
            answer.get_future().wait();
            return false;
        };
        actions_.judge_usb(disk_, Ask::kAlways);
        asked.get_future().wait();
        reporter_->lose_patience(start_ + std::chrono::hours(1));
        const std::vector<std::string> switched = switches_.TakeAtLeast(1);
        answer.set_value();
        reporter_->drain();
        return switched;
    }

    Subject disk_;
    TemporaryDir top_;
    const std::string file_ = std::string(top_.path) + "/closed";
    std::unique_ptr<Closings> closings_;
    FakeKernel kernel_;
    PolicyPreview preview_;
    Gate gate_{&kernel_, &switches_, &preview_, [](const std::string&) {}};
    Tracker::Actions actions_;
};

TEST_F(GatedActionsTest, RefusedDeviceThatWasBoundBeforeIsClosedBySilence) {
    Plug("usb-storage");
    EXPECT_THAT(SwitchedBySilence(), ElementsAre("close 1-2"));
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: no answer within 2 s"));
}

TEST_F(GatedActionsTest, HeldDeviceNeedsNoClosing) {
    allows_ = false;
    Plug("");
    actions_.judge_usb(disk_, Ask::kAlways);
    reporter_->drain();
    reporter_->lose_patience(start_ + std::chrono::hours(1));
    reporter_->drain();
    EXPECT_THAT(Notices(), IsEmpty());
    EXPECT_THAT(kernel_.tried, IsEmpty());
}

// A policy that is being rewritten foresees nothing.
TEST_F(GatedActionsTest, InterfaceThatWasShutBesideADriverIsOpenedByAYes) {
    Plug("usb-storage");
    FakeKernel::Interface without_driver = {255, {}};
    without_driver.authorized = true;
    kernel_.devices["1-2"].interfaces[1] = without_driver;
    actions_.judge_usb(disk_, Ask::kAlways);
    reporter_->drain();
    EXPECT_THAT(kernel_.switched, ElementsAre("1-2:1.1 off", "1-2:1.1 on"));
    allows_ = false;
    actions_.judge_usb(disk_, Ask::kAlways);
    reporter_->drain();
    EXPECT_THAT(switches_.Take(), ElementsAre("close 1-2"));
}

TEST_F(GatedActionsTest, NothingIsKeptOfAHubThatCouldNotBeReadOnce) {
    PlugHub();
    kernel_.devices["1-2"].is_unread = true;
    switches_.close_failures = 1;
    Judge();
    EXPECT_THAT(Notices(), ElementsAre("closed 1-2: what it is cannot be read"));
    EXPECT_TRUE(IsWrittenDown());
    EXPECT_TRUE(reporter_->take_another_look(start_ + std::chrono::hours(1)));
    EXPECT_TRUE(reporter_->next_deadline()) << "it is to be closed";
    kernel_.devices["1-2"].is_unread = false;
    Judge();
    EXPECT_EQ(kernel_.driver_of("1-2:1.0"), kHubDriver);
    EXPECT_FALSE(IsWrittenDown());
    EXPECT_EQ(reporter_->next_deadline(), std::nullopt);
}

TEST_F(GatedActionsTest, HubThatAnEarlierReporterCouldNotReadIsForgotten) {
    PlugHub();
    kernel_.devices["1-2"].is_unread = true;
    Judge();
    kernel_.devices["1-2"].is_unread = false;
    Start();
    EXPECT_TRUE(IsWrittenDown());
    Judge();
    EXPECT_FALSE(IsWrittenDown());
    EXPECT_THAT(fake_->Take(), IsEmpty());
}

// Its driver has come.
TEST_F(GatedActionsTest, WhatHasBecomeAHubIsNoLongerListed) {
    PlugHub();
    kernel_.drivers = {};
    allows_ = false;
    Judge();
    EXPECT_THAT(fake_->Take(), Contains("judge " + disk_.key()));
    kernel_.drivers = {kHubDriver};
    Judge();
    EXPECT_EQ(kernel_.driver_of("1-2:1.0"), kHubDriver);
    EXPECT_THAT(fake_->Take(), ElementsAre("update " + disk_.key() + " 0"));
}

TEST_F(GatedActionsTest, InputDeviceThatCouldNotBeLookedAtStaysSilent) {
    actions_.input_appeared("input5", "0003:1209:0048.0001");
    EXPECT_THAT(switches_.Take(), ElementsAre("hush input5"));
    actions_.judge_input("input5", "event3", Ask::kAlways);  // there is no such node
    reporter_->drain();
    EXPECT_THAT(switches_.Take(), IsEmpty());
    actions_.removed({"input5"});
    reporter_->drain();
    Sighting later;
    EXPECT_FALSE(gate_.stays_silent("input5", &later, true));
    EXPECT_THAT(switches_.Take(), IsEmpty()) << "it is forgotten";
}

}  // namespace
}  // namespace android::vus::hotplug
