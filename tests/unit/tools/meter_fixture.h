// SPDX-License-Identifier: Apache-2.0
//
// A meter, with events and a clock that the test makes.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/hotplug/meter.h"

namespace android::vus::hotplug {

inline const std::string kMeteredPort = "/sys/devices/pci0000:00/0000:00:08.0/usb1/1-5";
inline const std::string kFirstPart = kMeteredPort + "/1-5:1.0";
inline const std::string kSecondPart = kMeteredPort + "/1-5:1.1";
inline const std::string kMeteredHidPath = kFirstPart + "/0003:0627:0001.0001";
inline const std::string kMeteredInputPath = kMeteredHidPath + "/input/input5";
inline const Subject kAdapter = {"1-5", 1007};
inline const Subject kKeys = {"input5"};
inline const Subject kHeldKeys = {"input1000001280"};

inline Sighting SeenUsb(const std::string& name = "Adapter") {
    Sighting seen;
    seen.info.emplace();
    seen.info->deviceId = 1007;
    seen.info->vendorId = 0x403;
    seen.info->productId = 0x6001;
    seen.info->deviceName = name;
    return seen;
}

inline Sighting SeenInput() {
    Sighting seen = SeenUsb("Keyboard");
    seen.info->deviceType = kInputType;
    seen.info->deviceId = 5;
    seen.usb_device = kAdapter;
    seen.hid_device = "0003:0627:0001.0001";
    return seen;
}

inline Sighting SeenHeld() {
    Sighting seen = SeenInput();
    seen.hid_device = "1-5:1.0";
    seen.held = true;
    return seen;
}

class MeterTest : public testing::Test {
  protected:
    void Pass(int time) { now_.up += std::chrono::milliseconds(time); }
    void Usb(const std::string& action, const std::string& path, const std::string& driver = "") {
        meter_.heard({action, "usb", path, path == kMeteredPort ? 1007 : 0, driver});
    }
    void Hid(const std::string& action, const std::string& driver = "") {
        meter_.heard({action, "hid", kMeteredHidPath, 0, driver});
    }
    void Input(const std::string& action, const std::string& path = kMeteredInputPath) {
        meter_.heard({action, "input", path});
    }
    void Judge(const Subject& device, const Sighting& seen, bool allowed) {
        meter_.asked(device, seen);
        meter_.answered(device, allowed);
    }
    // As the kernel announces a device whose driver takes its one interface after 10 ms.
    void PlugAdapter() {
        Usb("add", kMeteredPort);
        Usb("add", kFirstPart);
        Pass(10);
        Usb("bind", kFirstPart, "ftdi_sio");
        Usb("bind", kMeteredPort, "usb");
    }
    // As it does a keyboard, whose HID device has its driver 5 ms after its input device is there.
    void PlugKeyboard() {
        Usb("add", kMeteredPort);
        LetKeyboardIn();
    }
    void LetKeyboardIn() {
        Hid("add");
        Input("add");
        Pass(5);
        Hid("bind", "hid-generic");
        Usb("bind", kFirstPart, "usbhid");
    }
    std::vector<std::string> Told() {
        std::vector<std::string> lines;
        for (const Exposure& each : std::exchange(told_, {})) lines.push_back(to_text(each));
        return lines;
    }

    Moment now_{std::chrono::milliseconds(1000), {}};
    std::vector<Exposure> told_;
    int losses_ = 0;
    Meter meter_{[this] { return now_; },
                 {[this](const Exposure& exposure) { told_.push_back(exposure); },
                  [this](const Moment&) { ++losses_; }}};
};

}  // namespace android::vus::hotplug
