// SPDX-License-Identifier: Apache-2.0
//
// What the meter tells of input devices, and of those that a gate holds.

#include "tests/unit/tools/meter_fixture.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST_F(MeterTest, AKeyboardIsOnUntilItsHidDeviceHasNoDriver) {
    PlugKeyboard();
    Pass(20);
    Judge(kKeys, SeenInput(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("and still on")));
    // The same input comes by hidraw.
    meter_.silenced("input5", true);
    Pass(2);
    EXPECT_THAT(Told(), IsEmpty());
    Input("remove");
    Hid("unbind");
    EXPECT_THAT(Told(), ElementsAre("input5 input 0403:6001 refused after 25.0 ms, exposed 27.0 ms "
                                    "(hid-generic 27.0 ms), gone"));
    // The USB device was not the daemon's to judge.
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, AnInputDeviceWithoutHidIsOffWhenItIsSilenced) {
    const std::string path = "/sys/devices/platform/gpio-keys/input/input5";
    Input("add", path);
    Pass(6);
    Sighting seen = SeenInput();
    seen.hid_device = "";
    seen.usb_device = {};
    Judge(kKeys, seen, false);
    Pass(1);
    meter_.silenced("input5", true);
    ASSERT_THAT(told_, SizeIs(2));
    EXPECT_EQ(told_[1].exposed, milliseconds(7));
    EXPECT_FALSE(told_[1].on);
    meter_.silenced("input5", false);
    Pass(3);
    Input("remove", path);
    EXPECT_EQ(told_.back().exposed, milliseconds(10));
}

TEST_F(MeterTest, WhatIsNoSourceOfInputIsNotTold) {
    Input("add", "/sys/devices/LNXSYSTM:00/LNXPWRBN:00/input/input0");
    Pass(1000);
    meter_.finish();
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, AKeyboardThatIsHeldHasNothing) {
    Usb("add", kMeteredPort);
    Pass(15);
    Judge(kHeldKeys, SeenHeld(), false);
    EXPECT_THAT(Told(), ElementsAre("1-5:1.0 input 0403:6001 refused after 15.0 ms, held until "
                                    "then, exposed 0.0 ms"));
    Pass(1000);
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, WhatHadAHeldKeyboardIsToldOfIt) {
    Usb("add", kMeteredPort);
    Usb("bind", kFirstPart, "usbhid");
    Usb("bind", kSecondPart, "usb-storage");
    Pass(15);
    Usb("unbind", kFirstPart);
    Pass(15);
    Judge(kHeldKeys, SeenHeld(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 15.0 ms (usbhid 15.0 ms)")));
    Usb("bind", kFirstPart, "usbhid");
    Pass(3);
    Usb("unbind", kFirstPart);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 18.0 ms (usbhid 18.0 ms)")));
}

TEST_F(MeterTest, WhatIsLetInAfterAllIsJudgedAsWhatItBecomes) {
    Usb("add", kMeteredPort);
    Judge(kHeldKeys, SeenHeld(), false);
    told_.clear();
    LetKeyboardIn();
    Judge(kKeys, SeenInput(), true);
    Usb("remove", kMeteredPort);
    for (const std::string& line : Told()) EXPECT_THAT(line, Not(HasSubstr("1-5:1.0")));
    Usb("add", kMeteredPort);
    Judge(kHeldKeys, SeenHeld(), true);
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, AHeldDeviceOfAnotherBusAppearedWhenItsHidDeviceDid) {
    const std::string path = "/sys/devices/virtual/misc/uhid/0005:046D:B342.0003";
    meter_.heard({"add", "hid", path, 0, ""});
    Pass(8);
    Sighting seen = SeenHeld();
    seen.hid_device = "0005:046D:B342.0003";
    seen.usb_device = {};
    Judge(kHeldKeys, seen, false);
    EXPECT_THAT(Told(), ElementsAre("0005:046D:B342.0003 input 0403:6001 refused after 8.0 ms, "
                                    "held until then, exposed 0.0 ms"));
    meter_.heard({"bind", "hid", path, 0, "hid-generic"});
    Pass(2);
    meter_.heard({"remove", "hid", path, 0, ""});
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 2.0 ms (hid-generic 2.0 ms)")));
}

TEST_F(MeterTest, AHeldKeyboardGoesWithItsDeviceAlsoIfNobodyHeardIt) {
    Usb("add", kMeteredPort);
    Judge(kHeldKeys, SeenHeld(), false);
    told_.clear();
    meter_.heard({"add", "usb", kMeteredPort, 1008, ""});
    meter_.heard({"bind", "usb", kFirstPart, 0, "usb-storage"});
    Pass(5);
    Usb("unbind", kFirstPart);
    meter_.answered(kHeldKeys, false);
    EXPECT_THAT(Told(), IsEmpty());
}

}  // namespace
}  // namespace android::vus::hotplug
