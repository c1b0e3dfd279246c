// SPDX-License-Identifier: Apache-2.0
//
// The parts of a gate, and what is written down of closings: each of their system calls fails once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libevdev/libevdev.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "android/vus/paths.h"
#include "tests/support/fault_walk.h"
#include "tests/support/faulty_call.h"
#include "tests/support/world.h"
#include "tests/unit/tools/sysfs_kernel.h"
#include "tools/common/input_sources.h"
#include "tools/hotplug/closings.h"
#include "tools/hotplug/device_reader.h"
#include "tools/hotplug/gate.h"
#include "tools/hotplug/preview.h"
#include "tools/hotplug/sysfs_paths.h"
#include "tools/hotplug/sysfs_switches.h"

namespace android::vus::hotplug {
namespace {

using testing::AnyOf;
using testing::SizeIs;

constexpr char kClosed[] = "/run/closings/closed";
constexpr char kKeyboardInput[] = "input7";
const std::string kInhibited = std::string(kInputClassDir) + "/" + kKeyboardInput + "/inhibited";

class GateFaultTest : public testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }
};

// What is behind it decides what is closed with it, and in which order.
TEST_F(GateFaultTest, InputDeviceIsKnownForWhatItIsOrUnread) {
    SysfsKernel kernel;
    const Subject keyboard = kernel.Plug("1-2", Keyboard(), /*was_there=*/true);
    const std::unique_ptr<libevdev, void (*)(libevdev*)> device(libevdev_new(), libevdev_free);
    libevdev_enable_event_code(device.get(), EV_KEY, KEY_POWER, nullptr);
    for (const Fault& fault : kFaults) {
        const int calls = WalkCalls("input", fault, [&](int n) {
            Sighting seen;
            bool is_of_a_bus = false;
            const auto failed = FaultyCall::run(n, fault.error, [&] {
                seen = sighting_of_input(kKeyboardInput, device.get());
                is_of_a_bus = SysfsGate().is_of_a_bus(kKeyboardInput);
            });
            EXPECT_TRUE(is_of_a_bus);
            EXPECT_TRUE(seen.info && seen.info->deviceClass == kSourceKeyboard);
            EXPECT_FALSE(seen.unread && (IsForAMoment(fault) || !failed));
            if (seen.unread) return failed.has_value();
            EXPECT_EQ(seen.hid_device, "0003:046D:C31C.0001");
            EXPECT_EQ(seen.usb_device.name, keyboard.name);
            EXPECT_EQ(seen.usb_device.key(), keyboard.key());
            return failed.has_value();
        });
        EXPECT_GT(calls, 20);
    }
}

// The node here never answers; what is behind it is still not the board's own.
TEST_F(GateFaultTest, InputDeviceThatDoesNotAnswerIsUnread) {
    SysfsKernel kernel;
    kernel.Plug("1-2", Keyboard(), /*was_there=*/true);
    WriteFile("/dev/input/event7", "");
    for (const Fault& fault : kFaults) {
        const int calls = WalkCalls("input_node", fault, [&](int n) {
            Sighting seen;
            const auto failed = FaultyCall::run(n, fault.error, [&] {
                seen = read_input_device(kKeyboardInput, "event7");
            });
            EXPECT_TRUE(seen.unread);
            EXPECT_FALSE(seen.settled);
            EXPECT_FALSE(seen.info);
            return failed.has_value();
        });
        EXPECT_GT(calls, 10);
    }
    RemoveTree("/dev/input");
}

TEST_F(GateFaultTest, InputDeviceThatComesIsSilentUnlessTheKernelRefuses) {
    for (const Fault& fault : kFaults) {
        int heard = 0;
        WalkCalls("input_arrival", fault, [&](int n) {
            SysfsKernel kernel;
            kernel.Plug("1-2", Keyboard(), /*was_there=*/true);
            SysfsGate system;
            std::vector<std::string> complaints;
            SysfsSwitches switches([&](const std::string& line) { complaints.push_back(line); });
            PolicyPreview preview;
            Gate gate(&system, &switches, &preview, [](const std::string&) {});
            const auto failed =
                    FaultyCall::run(n, fault.error, [&] { gate.input_appeared(kKeyboardInput); });
            const bool is_silent = ReadFile(kInhibited).substr(0, 1) == "1";
            EXPECT_THAT(complaints, SizeIs(is_silent ? 0 : 1));
            heard += is_silent ? 0 : 1;
            gate.input_appeared(kKeyboardInput);
            EXPECT_EQ(ReadFile(kInhibited).substr(0, 1), "1");
            return failed.has_value();
        });
        RecordProperty(std::string("input_arrival_inevitable_") + fault.name, heard);
        EXPECT_LE(heard, IsForAMoment(fault) ? 0 : 2) << fault.name;
    }
}

TEST_F(GateFaultTest, DoorIsShutByTheNextRound) {
    const std::string by_default = UsbPath("usb1", kInterfaceDefault);
    for (const Fault& fault : kFaults) {
        const int calls = WalkCalls("door", fault, [&](int n) {
            const SysfsKernel kernel;
            for (const std::string& file :
                 {std::string(kUsbAutoprobeFile), std::string(kHidAutoprobeFile), by_default}) {
                WriteFile(file, "1\n");
            }
            SysfsGate system;
            SysfsSwitches switches([](const std::string&) {});
            PolicyPreview preview;
            Gate gate(&system, &switches, &preview, [](const std::string&) {});
            const auto failed = FaultyCall::run(n, fault.error, [&] { gate.shut(); });
            gate.driver_came();
            gate.root_hub("usb1");
            EXPECT_EQ(ReadFile(kUsbAutoprobeFile).substr(0, 1), "0");
            EXPECT_EQ(ReadFile(kHidAutoprobeFile).substr(0, 1), "0");
            EXPECT_EQ(ReadFile(by_default).substr(0, 1), "0");
            return failed.has_value();
        });
        EXPECT_GT(calls, 5);
    }
}

// What cannot be read is left to the daemon.
TEST_F(GateFaultTest, NothingWrongIsForeseen) {
    const std::string policy =
            "<usbconfig mode=\"whitelist\"><class>USB_CLASS_MASS_STORAGE</class></usbconfig>";
    WriteFile(kPolicyFile, policy);
    WriteFile(kPolicyBackupFile, policy);
    const Claim disk = {0, {8}, 0x0781, 0x5583}, speaker = {0, {1}, 0x0781, 0x5583};
    for (const Fault& fault : kFaults) {
        const int calls = WalkCalls("preview", fault, [&](int n) {
            PolicyPreview preview;
            Foreseen of_disk = Foreseen::kUnknown, of_speaker = Foreseen::kUnknown;
            bool refuses_disk = false, speaker_by_class = false;
            const auto failed = FaultyCall::run(n, fault.error, [&] {
                of_disk = preview.of(disk);
                of_speaker = preview.of(speaker);
                refuses_disk = preview.refuses(disk);
                speaker_by_class = preview.admits_by_class(speaker);
            });
            EXPECT_NE(of_disk, Foreseen::kRefused);
            EXPECT_NE(of_speaker, Foreseen::kAllowed);
            EXPECT_FALSE(refuses_disk || speaker_by_class);
            EXPECT_EQ(preview.of(disk), Foreseen::kAllowed);
            EXPECT_EQ(preview.of(speaker), Foreseen::kRefused);
            return failed.has_value();
        });
        EXPECT_GT(calls, 10);
    }
}

// What is in it is opened by a "yes" without another question of whose doing it was: never more
// than was written, and nothing that an earlier reporter has left is lost.
TEST_F(GateFaultTest, ClosingsAreWholeOrThoseBefore) {
    const Subject stick = {"1-2", 1005}, keyboard = {kKeyboardInput}, other = {"input9"};
    const std::string before_it = "1-2 1005\n", with_it = before_it + "input7\n";
    for (const Fault& fault : kFaults) {
        int lost = 0;
        const int calls = WalkCalls("closings", fault, [&](int n) {
            RemoveTree("/run/closings");
            MakeDir("/run");
            Closings(kClosed).add(stick);
            const size_t before = OpenDescriptors();
            std::optional<Closings> closings;
            const auto failed = FaultyCall::run(n, fault.error, [&] {
                closings.emplace(kClosed);
                closings->add(keyboard);
            });
            EXPECT_EQ(OpenDescriptors(), before);
            const std::string written = ReadFile(kClosed);
            EXPECT_THAT(written, AnyOf(with_it, before_it));
            lost += written == with_it ? 0 : 1;
            EXPECT_TRUE(closings->take_earlier(stick));
            EXPECT_FALSE(closings->take_earlier(keyboard)) << "it is this one's own";
            closings->add(other);
            EXPECT_EQ(ReadFile(kClosed), with_it + "input9\n");
            return failed.has_value();
        });
        EXPECT_GT(calls, 5);
        RecordProperty(std::string("closings_not_written_") + fault.name, lost);
        EXPECT_LE(lost, IsForAMoment(fault) ? 0 : 3) << fault.name;
    }
}

}  // namespace
}  // namespace android::vus::hotplug
