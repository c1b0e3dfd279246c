// SPDX-License-Identifier: Apache-2.0
//
// Drivers that are tried unasked: by their own modules as they are loaded, or by the kernel after a
// reset.

#include "tests/unit/tools/gate_fixture.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(GateTest, InputDeviceThatWaitsForHidsDriverIsOpenToNoOther) {
    preview_.sources = {kSourceKeyboard};
    kernel_.drivers = {"hub"};
    Plug({{0, Keyboard()}});
    Of(0).takers.emplace_back("ftdi_sio");
    EXPECT_FALSE(Admit().held);
    kernel_.load_pushing("ftdi_sio");
    EXPECT_THAT(Tried(), IsEmpty());
    EXPECT_FALSE(Of(0).authorized);
    kernel_.drivers = {"hub", kHidDriver};
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(), ElementsAre("usbhid 1-1:1.0", "hid 0003:1209:0011.0001"));
}

// Its disk may keep the kernel busy for long.
TEST_F(GateTest, InputDeviceIsOpenToNoOtherDriverWhileItsNeighbourGetsIts) {
    preview_.classes = {kDiskClass};
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Disk()}, {1, Keyboard()}});
    Of(1).takers.emplace_back("pushing");
    kernel_.after_attempt = [this] { kernel_.load_pushing("pushing"); };
    EXPECT_FALSE(Admit().held);
    EXPECT_THAT(Tried(),
                ElementsAre("usb-storage 1-1:1.0", "usbhid 1-1:1.1", "hid 0003:1209:0011.0001"));
}

// The module waits for HID's driver to be done with the device.
TEST_F(GateTest, WhatHidsDriverDoesNotTakeIsTakenFromADriverThatWaitedForThat) {
    preview_.sources = {kSourceKeyboard};
    Plug({{0, Keyboard()}});
    Of(0).takers = {"pushing"};
    kernel_.after_attempt = [this] { kernel_.load_pushing("pushing"); };
    EXPECT_TRUE(Admit().held);
    EXPECT_EQ(Of(0).driver, "");
    EXPECT_FALSE(Of(0).authorized);
}

}  // namespace
}  // namespace android::vus::hotplug
