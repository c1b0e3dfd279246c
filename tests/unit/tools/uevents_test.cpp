// SPDX-License-Identifier: Apache-2.0
//
// The kernel's events, through the kernel itself: sent, forged, lost and malformed.

#include "tools/hotplug/uevents.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/fault_walk.h"
#include "tests/support/faulty_call.h"
#include "tests/support/usb_tree.h"
#include "tests/support/world.h"
#include "tests/unit/tools/uevents.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using Heard = UeventSocket::Heard;

// Lines in place of the zero bytes.
std::string Message(std::string lines) {
    std::replace(lines.begin(), lines.end(), '\n', '\0');
    return lines;
}

TEST(UeventTest, DeviceIsReadWithItsNumber) {
    const auto event = parse_uevent(
            Message("add@/devices/usb1/1-2\nACTION=add\nDEVPATH=/devices/usb1/1-2\nSUBSYSTEM=usb\n"
                    "MAJOR=189\nDEVNAME=bus/usb/001/005\nDEVTYPE=usb_device\nBUSNUM=001\n"
                    "DEVNUM=005\nSEQNUM=4711\n"));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->action, "add");
    EXPECT_EQ(event->subsystem, "usb");
    EXPECT_EQ(event->path, "/sys/devices/usb1/1-2");
    EXPECT_EQ(event->number, 1005);
}

TEST(UeventTest, InterfaceHasNoNumberButADriver) {
    const auto event = parse_uevent(
            Message("bind@/devices/usb1/1-2/1-2:1.0\nACTION=bind\n"
                    "DEVPATH=/devices/usb1/1-2/1-2:1.0\nSUBSYSTEM=usb\nDRIVER=usbhid\n"));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->number, 0);
    EXPECT_EQ(event->driver, "usbhid");
}

// The last line may lack its end, and what the kernel has never sent must do no harm.
TEST(UeventTest, OnlyWholeMessagesOfOurSubsystemsAreEvents) {
    const std::string whole = "x\nACTION=add\nDEVPATH=/devices/1-2\nSUBSYSTEM=";
    for (const char* subsystem : {"usb", "hid", "input", "drivers"}) {
        EXPECT_TRUE(parse_uevent(Message(whole + subsystem))) << subsystem;
    }
    for (const std::string& message :
         {whole + "usbmisc", whole + "us", whole, std::string(), std::string("SUBSYSTEM"),
          std::string("\n\n\n"), std::string("ACTION=add\nSUBSYSTEM=usb\n"),
          std::string("DEVPATH=/devices/1-2\nSUBSYSTEM=usb\n"),
          std::string("ACTION=\nDEVPATH=/devices/1-2\nSUBSYSTEM=usb\n"),
          std::string("ACTION=add\nDEVPATH=devices/1-2\nSUBSYSTEM=usb\n"),
          std::string("ACTION=add\nDEVPATH=/devices/1-2\nXSUBSYSTEM=usb\n"),
          std::string("libudev\nACTION=add\nDEVPATH=/devices/1-2\n")}) {
        EXPECT_FALSE(parse_uevent(Message(message))) << message;
    }
}

TEST(UeventTest, NumbersThatNoDeviceHasAreNone) {
    for (const char* number : {"-1", "1000", "99999999999", "1x", "", "0"}) {
        const auto event = parse_uevent(
                Message("ACTION=add\nDEVPATH=/1-2\nSUBSYSTEM=usb\nBUSNUM=001\nDEVNUM=" +
                        std::string(number)));
        ASSERT_TRUE(event) << number;
        EXPECT_EQ(event->number, 0) << number;
    }
}

TEST(PresentDevicesTest, TheirPathsAreToldParentsFirst) {
    EmptyWorld();
    UsbTree tree;
    tree.AddDevice("1-2", {0x1d6b, 2, "", ""}, 3);
    tree.AddDevice("1-2.4", {0x0951, 0x1666, "", ""}, 4);
    tree.AddDevice("1-1", {0x0951, 0x1666, "", ""}, 5);
    EXPECT_THAT(present_devices("usb").value(),
                ElementsAre(EndsWith(".auto/1-1"), EndsWith(".auto/1-2"),
                            EndsWith(".auto/1-2/1-2.4")));
}

TEST(PresentDevicesTest, DeviceThatIsGoneIsNotToldOf) {
    EmptyWorld();
    MakeDir("/sys/class/input");
    EXPECT_THAT(present_devices("input").value(), IsEmpty());
    MakeDir("/sys/devices/virtual/input/input3");
    std::filesystem::create_directory_symlink("../../devices/virtual/input/input3",
                                              "/sys/class/input/input3");
    std::filesystem::create_directory_symlink("../../devices/gone", "/sys/class/input/input4");
    EXPECT_THAT(present_devices("input").value(), ElementsAre("/sys/devices/virtual/input/input3"));
    EXPECT_THAT(present_devices("hid").value(), IsEmpty());
}

// Who is not told of is taken for gone.
TEST(PresentDevicesTest, AllAreToldOrNone) {
    EmptyWorld();
    UsbTree tree;
    tree.AddDevice("1-1", {0x0951, 0x1666, "", ""}, 5);
    tree.AddDevice("1-2", {0x0951, 0x1666, "", ""}, 3);
    const auto all = present_devices("usb");
    int without = 0;
    const int calls = WalkCalls("present", kBroken, [&](int n) {
        std::optional<std::vector<std::string>> told;
        const auto failed = FaultyCall::run(n, EIO, [&] { told = present_devices("usb"); });
        EXPECT_TRUE(!told || told == all);
        without += told ? 0 : 1;
        return failed.has_value();
    });
    EXPECT_GT(calls, 5);
    EXPECT_GT(without, 2);
}

class UeventSocketTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { private_network_ = EnterPrivateNetwork(); }

    void SetUp() override {
        if (!private_network_) GTEST_SKIP() << "the kernel allows no network namespace";
        ASSERT_TRUE(socket_.open()) << strerror(errno);
    }

    // What is heard until there is no more: an event's path, or what else.
    std::vector<std::string> Everything() {
        std::vector<std::string> all;
        Event event;
        while (true) {
            const Heard heard = socket_.hear(&event);
            if (heard == Heard::kNothing || heard == Heard::kFailed) return all;
            if (heard == Heard::kEvent) all.push_back(event.path);
            if (heard == Heard::kOther) all.emplace_back("other");
            if (heard == Heard::kLost) all.emplace_back("lost");
        }
    }

    uint32_t Port() {
        sockaddr_nl own = {};
        socklen_t size = sizeof(own);
        EXPECT_EQ(getsockname(socket_.fd(), reinterpret_cast<sockaddr*>(&own), &size), 0);
        return own.nl_pid;
    }

    static bool private_network_;
    UeventSocket socket_;
};

bool UeventSocketTest::private_network_ = false;

TEST_F(UeventSocketTest, EventsAreHeardInTheirOrder) {
    EXPECT_THAT(Everything(), IsEmpty());
    SendEvent("add", "/devices/1-2", "usb");
    SendEvent("add", "/devices/net/eth0", "net");
    SendEvent("remove", "/devices/1-2", "usb");
    EXPECT_THAT(Everything(), ElementsAre("/sys/devices/1-2", "other", "/sys/devices/1-2"));
}

// Who may send to the group is root already, but may be root of a container of its own.
TEST_F(UeventSocketTest, WhatTheKernelHasNotSentIsNoEvent) {
    ForgeEvent("/devices/1-3", Port(), 0);
    ForgeEvent("/devices/1-4", 0, 1);
    SendEvent("bind", "/devices/1-2", "usb");
    EXPECT_THAT(Everything(), ElementsAre("other", "other", "/sys/devices/1-2"));
}

TEST_F(UeventSocketTest, RoomIsWhatTheKernelGives) {
    EXPECT_GE(socket_.room_bytes(), UeventSocket::kWishedBytes) << "of who may have it";
    const int little = 64 << 10;
    ASSERT_EQ(setsockopt(socket_.fd(), SOL_SOCKET, SO_RCVBUF, &little, sizeof(little)), 0);
    EXPECT_EQ(socket_.room_bytes(), little);
}

TEST_F(UeventSocketTest, OverflowIsToldOnceAndTheRestIsHeard) {
    const std::string path = "/devices/" + std::string(700, 'x');
    for (int event = 0; event < 8000; ++event) SendEvent("change", path, "usb");
    const std::vector<std::string> all = Everything();
    EXPECT_EQ(std::count(all.begin(), all.end(), "lost"), 1);
    EXPECT_GT(std::count(all.begin(), all.end(), "/sys" + path), 100);
}

}  // namespace
}  // namespace android::vus::hotplug
