// SPDX-License-Identifier: Apache-2.0
//
// What the meter tells of devices, by the kernel's events.

#include <algorithm>
#include <thread>

#include "tests/unit/tools/meter_fixture.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

TEST_F(MeterTest, ARefusedDeviceIsExposedFromItsDriverUntilItIsOff) {
    PlugAdapter();
    Pass(80);
    Judge(kAdapter, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0403:6001 refused after 90.0 ms, exposed 80.0 ms "
                                    "(ftdi_sio 80.0 ms), and still on"));
    Pass(3);
    Usb("unbind", kFirstPart);
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0403:6001 refused after 90.0 ms, exposed 83.0 ms "
                                    "(ftdi_sio 83.0 ms)"));
    Pass(1000);
    Usb("remove", kFirstPart);
    Usb("remove", kMeteredPort);
    meter_.finish();
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, WhatIsOffBeforeItsVerdictIsToldOnce) {
    PlugAdapter();
    Pass(80);
    Usb("unbind", kFirstPart);
    Pass(1);
    Judge(kAdapter, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0403:6001 refused after 91.0 ms, exposed 80.0 ms "
                                    "(ftdi_sio 80.0 ms)"));
}

TEST_F(MeterTest, WhatAGateHoldsIsNotExposed) {
    Usb("add", kMeteredPort);
    Usb("add", kFirstPart);
    Usb("bind", kMeteredPort, "usb");
    Pass(12);
    Sighting seen = SeenUsb();
    seen.held = true;
    Judge(kAdapter, seen, false);
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0403:6001 refused after 12.0 ms, held until then, "
                                    "exposed 0.0 ms"));
    Pass(60000);
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, PartsThatAreOnAtTheSameTimeCountOnce) {
    PlugAdapter();
    Pass(10);
    Usb("bind", kSecondPart, "cdc_acm");
    Pass(10);
    Usb("unbind", kFirstPart);
    Pass(5);
    Usb("unbind", kSecondPart);
    Judge(kAdapter, SeenUsb(), false);
    ASSERT_THAT(told_, SizeIs(1));
    EXPECT_EQ(told_[0].exposed, milliseconds(25));
    EXPECT_EQ(told_[0].off_after, milliseconds(35));
    EXPECT_EQ(told_[0].driver_after, milliseconds(10));
    EXPECT_THAT(told_[0].drivers, ElementsAre(std::pair("cdc_acm", milliseconds(15)),
                                              std::pair("ftdi_sio", milliseconds(20))));
}

TEST_F(MeterTest, ARefusedDeviceThatComesBackIsToldAgain) {
    PlugAdapter();
    Usb("unbind", kFirstPart);
    Judge(kAdapter, SeenUsb(), false);
    told_.clear();
    Pass(500);
    Usb("bind", kSecondPart, "cdc_ether");
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 0.0 ms (ftdi_sio 0.0 ms), and still on")));
    Pass(7);
    Usb("remove", kSecondPart);
    EXPECT_THAT(Told(),
                ElementsAre(HasSubstr("exposed 7.0 ms (cdc_ether 7.0 ms, ftdi_sio 0.0 ms)")));
}

TEST_F(MeterTest, WhoComesBackAllTheTimeFillsNoDisk) {
    PlugAdapter();
    Judge(kAdapter, SeenUsb(), false);
    for (int round = 0; round < 100; ++round) {
        Usb("unbind", kFirstPart);
        Pass(1);
        Usb("bind", kFirstPart, "ftdi_sio");
        Pass(1);
    }
    EXPECT_THAT(told_, SizeIs(Meter::kMostTold));
    told_.clear();
    Usb("remove", kFirstPart);
    Usb("remove", kMeteredPort);
    ASSERT_THAT(told_, SizeIs(1));
    EXPECT_TRUE(told_[0].gone);
    EXPECT_EQ(told_[0].exposed, milliseconds(100));
}

TEST_F(MeterTest, AnAllowedDeviceIsToldWhenItHasADriver) {
    Usb("add", kMeteredPort);
    Pass(12);
    Judge(kAdapter, SeenUsb(), true);
    EXPECT_THAT(Told(), IsEmpty());
    Pass(4);
    Usb("bind", kFirstPart, "ftdi_sio");
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0403:6001 allowed after 12.0 ms, before that in use "
                                    "for 0.0 ms, first driver after 16.0 ms"));
    Pass(1000);
    Usb("unbind", kFirstPart);
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, AnAllowedDeviceForWhichThereIsNoDriverIsToldInTheEnd) {
    Usb("add", kMeteredPort);
    Judge(kAdapter, SeenUsb(), true);
    meter_.finish();
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("allowed after 0.0 ms")));
}

TEST_F(MeterTest, ItIsSaidThatThePolicyWasForeseen) {
    PlugAdapter();
    Sighting seen = SeenUsb();
    seen.vouched = true;
    Pass(2);
    Judge(kAdapter, seen, true);
    ASSERT_THAT(told_, SizeIs(1));
    EXPECT_TRUE(told_[0].foreseen);
    EXPECT_EQ(told_[0].exposed, milliseconds(2));
}

TEST_F(MeterTest, AnotherVerdictIsAnotherTurn) {
    PlugAdapter();
    Judge(kAdapter, SeenUsb(), true);
    meter_.answered(kAdapter, true);  // said again, to a daemon that came back
    ASSERT_THAT(told_, SizeIs(1));
    Pass(60000);
    meter_.answered(kAdapter, false);
    Pass(4);
    Usb("unbind", kFirstPart);
    ASSERT_THAT(told_, SizeIs(3));
    EXPECT_EQ(told_[2].turn, 2);
    EXPECT_EQ(told_[2].exposed, milliseconds(4));
}

TEST_F(MeterTest, NobodyJudgedIt) {
    PlugAdapter();
    Pass(30);
    Usb("remove", kFirstPart);
    Usb("remove", kMeteredPort);
    EXPECT_THAT(Told(), ElementsAre("1-5 usb 0000:0000 not judged, exposed 30.0 ms (ftdi_sio 30.0 "
                                    "ms), gone"));
}

TEST_F(MeterTest, AnAnswerAboutWhatWasThereBeforeIsNoneAboutWhatIs) {
    PlugAdapter();
    meter_.answered({"1-5", 1006}, false);
    EXPECT_THAT(Told(), IsEmpty());
    // Its removal was not heard.
    meter_.heard({"add", "usb", kMeteredPort, 1008, ""});
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("not judged")));
    Judge({"1-5", 1008}, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("refused after 0.0 ms, exposed 0.0 ms")));
}

TEST_F(MeterTest, HubsAndTheKernelsOwnDriverAreNoExposure) {
    Usb("add", kMeteredPort);
    Usb("bind", kFirstPart, "hub");
    Usb("bind", kSecondPart, "usbfs");
    Usb("bind", kMeteredPort, "usb");
    Usb("add", "/sys/devices/pci0000:00/0000:00:08.0/usb1");
    Usb("bind", "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-0:1.0", "hub");
    Pass(1000);
    Usb("remove", kMeteredPort);
    meter_.finish();
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, WhatTakesADeviceAsAWholeIsAnExposure) {
    Usb("add", kMeteredPort);
    Usb("bind", kMeteredPort, "usbip-host");
    Pass(9);
    Usb("unbind", kMeteredPort);
    Judge(kAdapter, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 9.0 ms (usbip-host 9.0 ms)")));
}

TEST_F(MeterTest, WhatWasThereBeforeIsNotMeasured) {
    meter_.found({"", "usb", kMeteredPort, 1007});
    meter_.found({"", "input", kMeteredInputPath});
    Judge(kAdapter, SeenUsb(), false);
    Judge(kKeys, SeenInput(), false);
    const std::vector<std::string> told = Told();
    ASSERT_THAT(told, SizeIs(2));
    for (const std::string& line : told) {
        EXPECT_THAT(line, HasSubstr("exposure not measured: it was there before"));
        EXPECT_THAT(line, Not(HasSubstr("exposed 0")));
    }
}

TEST_F(MeterTest, WhatIsFoundBeforeItIsAnnouncedIsMeasured) {
    meter_.found({"", "usb", kMeteredPort, 1007});
    Pass(1);
    PlugAdapter();
    Judge(kAdapter, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("refused after 11.0 ms, exposed 0.0 ms")));
    meter_.found({"", "usb", kMeteredPort, 1007});
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, WhatWasJudgedBeforeItIsAnnouncedIsToldAgain) {
    meter_.found({"", "usb", kMeteredPort, 1007});
    Judge(kAdapter, SeenUsb(), false);
    Judge(kHeldKeys, SeenHeld(), false);
    for (const std::string& line : Told()) EXPECT_THAT(line, HasSubstr("not measured"));
    Usb("add", kMeteredPort);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposed 0.0 ms"), HasSubstr("exposed 0.0 ms")));
}

TEST_F(MeterTest, WhatIsHeldGoesWithWhatItIsHeldIn) {
    Usb("add", kMeteredPort);
    meter_.asked(kHeldKeys, SeenHeld());
    meter_.keep_only({"1007"});
    meter_.answered(kHeldKeys, false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("1-5:1.0 input 0403:6001 refused")));
    meter_.keep_only({});
    meter_.found({"", "usb", kMeteredPort, 1007});
    meter_.answered(kHeldKeys, true);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(MeterTest, NothingIsMeasuredAcrossLostEvents) {
    PlugAdapter();
    meter_.events_lost();
    EXPECT_EQ(losses_, 1);
    Judge(kAdapter, SeenUsb(), false);
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("exposure not measured: events were lost")));
    meter_.found({"", "usb", "/sys/devices/x/usb1/1-6", 1009});
    Judge({"1-6", 1009}, SeenUsb(), true);
    meter_.keep_only({"1009"});
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("1-5 usb 0403:6001 refused")));
    meter_.keep_only({});
    EXPECT_THAT(Told(), ElementsAre(HasSubstr("1-6 usb 0403:6001 allowed after 0.0 ms, exposure "
                                              "not measured: events were lost")));
}

TEST_F(MeterTest, TooManyDevicesAreAsEventsThatWereLost) {
    for (size_t number = 0; number <= Meter::kMostDevices; ++number) {
        EXPECT_EQ(losses_, 0);
        Input("add", "/sys/devices/virtual/input/input" + std::to_string(number));
    }
    EXPECT_EQ(losses_, 1);
    Input("remove", "/sys/devices/virtual/input/input0");
    Input("add", "/sys/devices/virtual/input/input5000");
    EXPECT_EQ(losses_, 1);
}

// What is told is one after the other, and of each device in its order.
TEST(MeterThreads, EventsAndAnswersComeTogether) {
    constexpr int kRounds = 500;
    std::vector<int> told;
    Meter meter(present_moment,
                {[&told](const Exposure& exposure) { told.push_back(exposure.turn); },
                 [](const Moment&) {}});
    meter.heard({"add", "usb", kMeteredPort, 1007, ""});
    std::thread answers([&meter] {
        for (int round = 0; round < kRounds; ++round) {
            meter.asked(kAdapter, SeenUsb());
            meter.answered(kAdapter, round % 2 == 1);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        meter.heard({"bind", "usb", kFirstPart, 0, "ftdi_sio"});
        meter.heard({"unbind", "usb", kFirstPart, 0, ""});
    }
    answers.join();
    meter.finish();
    EXPECT_EQ(told.back(), kRounds);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
}

}  // namespace
}  // namespace android::vus::hotplug
