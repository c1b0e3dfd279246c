// SPDX-License-Identifier: Apache-2.0
//
// What the kernel's events lead to, with a clock that the test moves.

#include "tools/hotplug/tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHub[] = "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-2";
constexpr char kDisk[] = "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-2/1-2.4";
constexpr char kEvent[] =
        "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-1/1-1:1.0/input/input5/event3";

class TrackerTest : public testing::Test {
  protected:
    void Usb(const std::string& action, const std::string& path) {
        tracker_.handle({action, "usb", path}, now_);
    }
    void Input(const std::string& action, const std::string& path) {
        tracker_.handle({action, "input", path}, now_);
    }
    void Pass(Tracker::Clock::duration time) {
        now_ += time;
        tracker_.judge_overdue(now_);
    }
    std::vector<std::string> Taken() { return std::exchange(actions_, {}); }

    std::vector<std::string> actions_;
    Tracker::Clock::time_point now_{seconds(1000)};
    Tracker tracker_{{[this](const std::string& device) { actions_.push_back("judge " + device); },
                      [this](const std::string& input, const std::string& event) {
                          actions_.push_back("judge " + input + " by " + event);
                      },
                      [this](const std::string& name) { actions_.push_back("removed " + name); }}};
};

TEST_F(TrackerTest, DeviceIsJudgedWhenItIsBoundAndNotBefore) {
    Usb("add", kDisk);
    Usb("add", std::string(kDisk) + "/1-2.4:1.0");
    Usb("bind", std::string(kDisk) + "/1-2.4:1.0");
    Usb("add", std::string(kDisk) + "/1-2.4:1.1");
    Usb("bind", std::string(kDisk) + "/1-2.4:1.1");
    EXPECT_THAT(Taken(), IsEmpty());
    Usb("bind", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
    EXPECT_EQ(tracker_.next_deadline(), std::nullopt);
}

TEST_F(TrackerTest, DeviceThatIsNeverBoundIsJudgedInTheEnd) {
    Usb("add", kDisk);
    EXPECT_EQ(tracker_.next_deadline(), now_ + seconds(30));
    Pass(milliseconds(29999));
    EXPECT_THAT(Taken(), IsEmpty());
    Pass(milliseconds(1));
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

TEST_F(TrackerTest, DeviceThatIsBoundLateIsJudgedAgain) {
    Usb("add", kDisk);
    Pass(seconds(30));
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
    Usb("bind", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

TEST_F(TrackerTest, DeviceThatGoesWhileItSettlesIsNotJudged) {
    Usb("add", kDisk);
    Usb("remove", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4"));
    Pass(seconds(60));
    EXPECT_THAT(Taken(), IsEmpty());
}

TEST_F(TrackerTest, ChangedConfigurationIsJudgedWhenItsInterfacesAreQuiet) {
    Usb("remove", std::string(kDisk) + "/1-2.4:1.0");
    Usb("add", std::string(kDisk) + "/1-2.4:2.0");
    Pass(milliseconds(499));
    Usb("bind", std::string(kDisk) + "/1-2.4:2.0");
    Pass(milliseconds(499));
    EXPECT_THAT(Taken(), IsEmpty());
    Pass(milliseconds(1));
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

TEST_F(TrackerTest, RefusalIsNoReasonToJudgeAgain) {
    Usb("unbind", std::string(kDisk) + "/1-2.4:1.0");
    Usb("change", kDisk);
    Usb("unbind", kDisk);
    Pass(seconds(60));
    EXPECT_THAT(Taken(), IsEmpty());
}

TEST_F(TrackerTest, RootHubsAreLeftOut) {
    const std::string root = "/sys/devices/pci0000:00/0000:00:08.0/usb1";
    Usb("add", root);
    Usb("add", root + "/1-0:1.0");
    Usb("bind", root);
    Pass(seconds(60));
    Usb("remove", root);
    EXPECT_THAT(Taken(), IsEmpty());
    EXPECT_EQ(tracker_.found("usb", root), "");
}

TEST_F(TrackerTest, DevicesBehindOneAnotherAreToldApart) {
    Usb("add", kHub);
    Usb("add", kDisk);
    Usb("bind", kHub);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2"));
    Usb("bind", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

TEST_F(TrackerTest, InputDeviceIsJudgedByItsEventNode) {
    Input("add", "/sys/devices/virtual/input/input5");
    Input("add", "/sys/devices/virtual/input/input5/mouse0");
    Input("add", "/sys/devices/virtual/input/input5/js0");
    EXPECT_THAT(Taken(), IsEmpty());
    Input("add", kEvent);
    EXPECT_THAT(Taken(), ElementsAre("judge input5 by event3"));
    Input("remove", kEvent);
    EXPECT_THAT(Taken(), ElementsAre("removed input5"));
    Input("remove", "/sys/devices/virtual/input/input5");
    Input("change", kEvent);
    EXPECT_THAT(Taken(), IsEmpty());
}

TEST_F(TrackerTest, OtherSubsystemsSayNothing) {
    tracker_.handle({"add", "net", "/sys/devices/virtual/net/1-1"}, now_);
    tracker_.handle({"add", "", ""}, now_);
    Usb("add", "");
    EXPECT_THAT(Taken(), IsEmpty());
    EXPECT_EQ(tracker_.next_deadline(), std::nullopt);
}

TEST_F(TrackerTest, FoundDevicesAreJudged) {
    EXPECT_EQ(tracker_.found("usb", kDisk), "1-2.4");
    EXPECT_EQ(tracker_.found("usb", std::string(kDisk) + "/1-2.4:1.0"), "");
    EXPECT_EQ(tracker_.found("input", kEvent), "input5");
    EXPECT_EQ(tracker_.found("input", "/sys/devices/virtual/input/input5"), "");
    EXPECT_EQ(tracker_.found("input", "/sys/devices/virtual/input/mice"), "");
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4", "judge input5 by event3"));
}

TEST_F(TrackerTest, FoundDeviceThatStillSettlesIsPresentButNotJudgedYet) {
    Usb("add", kDisk);
    EXPECT_EQ(tracker_.found("usb", kDisk), "1-2.4");
    EXPECT_THAT(Taken(), IsEmpty());
    Usb("bind", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

}  // namespace
}  // namespace android::vus::hotplug
