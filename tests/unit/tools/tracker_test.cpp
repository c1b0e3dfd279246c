// SPDX-License-Identifier: Apache-2.0
//
// What the kernel's events lead to, with a clock that the test moves.

#include "tools/hotplug/tracker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

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
    void Usb(const std::string& action, const std::string& path, int32_t number = 0) {
        tracker_.handle({action, "usb", path, number}, now_);
    }
    void Hid(const std::string& action, const std::string& path) {
        tracker_.handle({action, "hid", path}, now_);
    }
    void Input(const std::string& action, const std::string& path) {
        tracker_.handle({action, "input", path}, now_);
    }
    std::string Found(const std::string& subsystem, const std::string& path, int32_t number = 0) {
        return tracker_.found({"", subsystem, path, number}, Ask::kAlways);
    }
    void Pass(Tracker::Clock::duration time) {
        now_ += time;
        tracker_.judge_overdue(now_);
    }
    static std::string NameOf(const Subject& device) {
        return device.name + (device.number == 0 ? "" : "#" + std::to_string(device.number));
    }
    std::vector<std::string> Taken() { return std::exchange(actions_, {}); }

    std::vector<std::string> actions_;
    Tracker::Clock::time_point now_{seconds(1000)};
    Tracker tracker_{
            {[this](const Subject& device, Ask when) {
                 actions_.push_back("judge " + NameOf(device) +
                                    (when == Ask::kIfChanged ? " if changed" : ""));
             },
             [this](const std::string& input, const std::string& event, Ask /*when*/) {
                 actions_.push_back("judge " + input + " by " + event);
             },
             [this](const Subject& device) { actions_.push_back("removed " + NameOf(device)); },
             [this](const Subject& device) { actions_.push_back("back " + NameOf(device)); },
             [this](const std::string& hid_device) {
                 actions_.push_back("removed " + hid_device);
             }}};
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
    EXPECT_THAT(Taken(), ElementsAre("back 1-2.4"));
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
    EXPECT_EQ(tracker_.found({"", "usb", root}, Ask::kAlways), "");
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

TEST_F(TrackerTest, ConfigurationThatIsNeverQuietIsJudged) {
    for (int change = 0; change < 5; ++change) {
        Usb("add", std::string(kDisk) + "/1-2.4:2.0");
        Pass(milliseconds(400));
    }
    EXPECT_THAT(Taken(), testing::Contains("judge 1-2.4"));
}

TEST_F(TrackerTest, DriverThatComesLateLeadsToAJudgement) {
    const std::string interface = std::string(kDisk) + "/1-2.4:1.0";
    Usb("add", kDisk, 1004);
    Usb("bind", kDisk, 1004);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004"));
    Usb("bind", interface);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004 if changed"));
    Hid("add", interface + "/0003:0627:0001.0001");
    EXPECT_THAT(Taken(), IsEmpty());
    Hid("bind", interface + "/0003:0627:0001.0001");
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004 if changed"));
    Hid("remove", interface + "/0003:0627:0001.0001");
    EXPECT_THAT(Taken(), ElementsAre("removed 0003:0627:0001.0001"));
}

TEST_F(TrackerTest, DriverOfADeviceThatSettlesIsWaitedFor) {
    const std::string interface = std::string(kDisk) + "/1-2.4:1.0";
    Usb("add", kDisk, 1004);
    Usb("add", interface);
    Hid("bind", interface + "/0003:0627:0001.0001");
    Usb("bind", interface);
    EXPECT_THAT(Taken(), IsEmpty());
}

TEST_F(TrackerTest, HidDevicesOfOtherBusesAreNoUsbDevices) {
    Hid("bind", "/sys/devices/virtual/misc/uhid/0005:0001:0002.0001");
    EXPECT_THAT(Taken(), IsEmpty());
    EXPECT_EQ(Found("hid", "/sys/devices/virtual/misc/uhid/0005:0001:0002.0001"),
              "0005:0001:0002.0001");
}

TEST_F(TrackerTest, DeviceOfAnotherNumberTakesThePlaceOfTheOld) {
    Usb("add", kDisk, 1004);
    Usb("bind", kDisk, 1004);
    // The removal was lost.
    Usb("add", kDisk, 1005);
    Usb("bind", kDisk, 1005);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004", "removed 1-2.4#1004", "judge 1-2.4#1005"));
    EXPECT_EQ(Found("usb", kDisk, 1006), "1006");
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4#1005", "judge 1-2.4#1006"));
    Usb("remove", kDisk, 1006);
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4#1006"));
}

// Found by a look at what is present, while the kernel's word of the one before was on its way.
TEST_F(TrackerTest, LateRemovalOfAPredecessorLeavesTheSuccessorAlone) {
    Usb("bind", kDisk, 1004);
    EXPECT_EQ(Found("usb", kDisk, 1005), "1005");
    Taken();
    Usb("remove", kDisk, 1004);
    EXPECT_THAT(Taken(), IsEmpty());
    Usb("bind", kDisk, 1005);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1005"));
    Usb("add", kDisk, 1006);
    Taken();
    Usb("remove", kDisk, 1005);
    EXPECT_TRUE(tracker_.next_deadline()) << "the successor still settles";
    Usb("remove", kDisk, 1006);
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4#1006"));
}

// A tracker whose devices are held back by a gate.
class HeldTrackerTest : public TrackerTest {
  protected:
    HeldTrackerTest() {
        Tracker::Actions actions;
        actions.judge_usb = [this](const Subject& device, Ask when) {
            actions_.push_back("judge " + NameOf(device) +
                               (when == Ask::kIfChanged ? " if changed" : ""));
        };
        actions.judge_input = [this](const std::string& input, const std::string& event,
                                     Ask /*when*/) {
            actions_.push_back("judge " + input + " by " + event);
        };
        actions.removed = [this](const Subject& device) {
            actions_.push_back("removed " + NameOf(device));
        };
        actions.hid_removed = [this](const std::string& hid) {
            actions_.push_back("removed " + hid);
        };
        actions.root_hub = [this](const std::string& hub) { actions_.push_back("root " + hub); };
        actions.hid_appeared = [this](const std::string& hid) { actions_.push_back("hid " + hid); };
        actions.input_appeared = [this](const std::string& input, const std::string& hid) {
            actions_.push_back(input + " of " + hid);
        };
        actions.driver_came = [this] { actions_.push_back("driver"); };
        held_ = std::make_unique<Tracker>(actions);
    }
    void Held(const std::string& action, const std::string& subsystem, const std::string& path,
              int32_t number = 0) {
        held_->handle({action, subsystem, path, number}, now_);
    }

    std::unique_ptr<Tracker> held_;
};

TEST_F(HeldTrackerTest, DeviceIsJudgedAsSoonAsItAppears) {
    const std::string interface = std::string(kDisk) + "/1-2.4:1.0";
    Held("add", "usb", "/sys/devices/pci0000:00/0000:00:08.0/usb1", 1001);
    Held("add", "usb", "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-0:1.0");
    EXPECT_THAT(Taken(), ElementsAre("root usb1"));
    Held("add", "usb", kDisk, 1004);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004"));
    Held("add", "usb", interface);
    Held("bind", "usb", interface);
    Held("bind", "usb", kDisk, 1004);
    Held("add", "hid", interface + "/0003:0627:0001.0001");
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4#1004 if changed", "judge 1-2.4#1004 if changed",
                                     "judge 1-2.4#1004 if changed", "judge 1-2.4#1004 if changed"));
    EXPECT_EQ(held_->next_deadline(), std::nullopt) << "nothing settles by itself";
    Held("remove", "usb", kDisk, 1004);
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4#1004"));
}

TEST_F(HeldTrackerTest, LateRemovalOfAPredecessorLeavesTheSuccessorAlone) {
    Held("add", "usb", kDisk, 1004);
    EXPECT_EQ(held_->found({"", "usb", kDisk, 1005}, Ask::kIfChanged), "1005");
    Taken();
    Held("remove", "usb", kDisk, 1004);
    EXPECT_THAT(Taken(), IsEmpty());
    Held("remove", "usb", kDisk, 1005);
    EXPECT_THAT(Taken(), ElementsAre("removed 1-2.4#1005"));
}

// Its "add" may have been lost, and its bus is dead until somebody binds it.
TEST_F(HeldTrackerTest, RootHubThatIsFoundIsLookedAt) {
    const std::string root = "/sys/devices/pci0000:00/0000:00:08.0/usb1";
    EXPECT_EQ(held_->found({"", "usb", root, 1001}, Ask::kIfChanged), "");
    EXPECT_EQ(held_->found({"", "usb", root + "/1-0:1.0"}, Ask::kIfChanged), "");
    EXPECT_THAT(Taken(), ElementsAre("root usb1"));
}

TEST_F(HeldTrackerTest, HidDevicesThatAreNoInterfacesOwnAreHeldByThemselves) {
    constexpr char kWireless[] = "/sys/devices/virtual/misc/uhid/0005:0001:0002.0001";
    const std::string receiver = std::string(kDisk) + "/1-2.4:1.0/0003:046D:C52B.0002";
    Held("add", "usb", kDisk, 1004);
    Taken();
    Held("add", "hid", kWireless);
    Held("add", "hid", receiver + "/0003:046D:4008.0003");
    EXPECT_THAT(Taken(), ElementsAre("hid 0005:0001:0002.0001", "hid 0003:046D:4008.0003"));
    EXPECT_EQ(held_->found({"", "hid", kWireless}, Ask::kAlways), "0005:0001:0002.0001");
    EXPECT_THAT(Taken(), ElementsAre("hid 0005:0001:0002.0001"));
}

TEST_F(HeldTrackerTest, InputDeviceIsKnownBeforeItsEventNode) {
    const std::string input = "/sys/devices/virtual/misc/uhid/0005:0001:0002.0001/input/input7";
    Held("add", "input", input);
    Held("add", "input", input + "/event2");
    EXPECT_THAT(Taken(), ElementsAre("input7 of 0005:0001:0002.0001", "judge input7 by event2"));
}

TEST_F(HeldTrackerTest, DriversOfTheTwoBusesAreHeardOf) {
    Held("add", "drivers", "/sys/bus/usb/drivers/usbhid");
    Held("add", "drivers", "/sys/bus/hid/drivers/hid-generic");
    Held("add", "drivers", "/sys/bus/pci/drivers/xhci_hcd");
    Held("remove", "drivers", "/sys/bus/usb/drivers/usbhid");
    EXPECT_THAT(Taken(), ElementsAre("driver", "driver"));
    tracker_.handle({"add", "drivers", "/sys/bus/usb/drivers/usbhid"}, now_);
    EXPECT_THAT(Taken(), IsEmpty()) << "who holds nothing has nothing to let in";
}

TEST_F(TrackerTest, OtherSubsystemsSayNothing) {
    tracker_.handle({"add", "net", "/sys/devices/virtual/net/1-1"}, now_);
    tracker_.handle({"add", "", ""}, now_);
    Usb("add", "");
    EXPECT_THAT(Taken(), IsEmpty());
    EXPECT_EQ(tracker_.next_deadline(), std::nullopt);
}

TEST_F(TrackerTest, FoundDevicesAreJudged) {
    EXPECT_EQ(Found("usb", kDisk), "1-2.4");
    EXPECT_EQ(Found("usb", std::string(kDisk) + "/1-2.4:1.0"), "");
    EXPECT_EQ(Found("input", kEvent), "input5");
    EXPECT_EQ(Found("input", "/sys/devices/virtual/input/input5"), "");
    EXPECT_EQ(Found("input", "/sys/devices/virtual/input/mice"), "");
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4", "judge input5 by event3"));
}

TEST_F(TrackerTest, FoundDeviceThatStillSettlesIsPresentButNotJudgedYet) {
    Usb("add", kDisk);
    EXPECT_EQ(Found("usb", kDisk), "1-2.4");
    EXPECT_THAT(Taken(), IsEmpty());
    Usb("bind", kDisk);
    EXPECT_THAT(Taken(), ElementsAre("judge 1-2.4"));
}

}  // namespace
}  // namespace android::vus::hotplug
