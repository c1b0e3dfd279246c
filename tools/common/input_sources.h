// SPDX-License-Identifier: Apache-2.0
//
// What an evdev device is, in the platform's terms: its input source bits (AINPUT_SOURCE_*),
// derived from the event codes that it can send by the rules that the platform's own input
// subsystem follows. Where that subsystem consults a configuration file for a device, the rules
// here are these:
//  - a touch surface without INPUT_PROP_DIRECT is a touchpad, and stays one (the platform may turn
//    it into a mouse);
//  - a mouse may be an absolute one, as those of virtual machines and remote consoles are;
//  - a dial, or a wheel by itself, is a rotary encoder;
//  - a device with a stylus's pressure keeps its keyboard keys, which the platform takes from it:
//    a keyboard must not pass for a stylus;
//  - nothing is a trackball, a relative mouse or touch navigation: these are ways of using a mouse
//    or a touchpad, and no capability tells them.

#pragma once

#include <stdint.h>

#include <functional>
#include <optional>

namespace android::vus {

// The source values, class bits in the low byte included, as android/input.h has them.
inline constexpr int32_t kSourceKeyboard = 0x00000101;
inline constexpr int32_t kSourceDpad = 0x00000201;
inline constexpr int32_t kSourceGamepad = 0x00000401;
inline constexpr int32_t kSourceTouchscreen = 0x00001002;
inline constexpr int32_t kSourceMouse = 0x00002002;
inline constexpr int32_t kSourceStylus = 0x00004002;
inline constexpr int32_t kSourceTouchpad = 0x00100008;
inline constexpr int32_t kSourceRotaryEncoder = 0x00400000;
inline constexpr int32_t kSourceJoystick = 0x01000010;

// What is asked of a device. The functions take the numbers of linux/input-event-codes.h.
struct InputCapabilities {
    std::function<bool(unsigned type, unsigned code)> has_event;
    std::function<bool(unsigned property)> has_property;
};

// 0 for a device that is none of the platform's sources, such as a lid switch.
int32_t input_sources(const InputCapabilities& device);

// What is asked about a device that can be plugged in. That is the platform's sources; but what the
// platform passes over may serve the readers of another system: a pointer without a left button,
// say, beside a left button without a pointer. Such a device is what those take it for, or 0 if
// they take it for nothing. Nothing for one that can neither press, move nor point: a switch, or a
// sensor that tells how it lies.
std::optional<int32_t> reported_sources(const InputCapabilities& device);

}  // namespace android::vus
