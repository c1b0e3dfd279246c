// SPDX-License-Identifier: Apache-2.0

// The one vocabulary of the policy file, of the reasons and of the dump: the names of USB classes
// and of input sources, in both directions.
//
// Codes 0 to 255 are the USB-IF's base classes. From 256 up they are the platform's input sources
// (AINPUT_SOURCE_*) with their low eight bits, the source class, cleared, so that the two never
// collide. Constant: any thread may ask at any time.

#pragma once

#include <stdint.h>

#include <array>
#include <string_view>
#include <vector>

namespace android::vus {

inline constexpr int32_t kUsbClassHid = 3;
// What classCode() answers for a text that names no class.
inline constexpr uint32_t kNoClassCode = 0xFFFFFFFF;
// Input sources are the codes from here on.
inline constexpr int32_t kFirstInputSource = 0x100;

struct ClassName {
    int32_t code;
    std::string_view name;
};

// Every name, in ascending order of its code.
inline constexpr std::array<ClassName, 29> kClassNames = {{
        {0x00, "USB_CLASS_PER_INTERFACE"},
        {0x01, "USB_CLASS_AUDIO"},
        {0x02, "USB_CLASS_COMM"},
        {0x03, "USB_CLASS_HID"},
        {0x05, "USB_CLASS_PHYSICA"},  // policies spell it so; kept: oddity 17
        {0x06, "USB_CLASS_STILL_IMAGE"},
        {0x07, "USB_CLASS_PRINTER"},
        {0x08, "USB_CLASS_MASS_STORAGE"},
        {0x09, "USB_CLASS_HUB"},
        {0x0A, "USB_CLASS_CDC_DATA"},
        {0x0B, "USB_CLASS_CSCID"},
        {0x0D, "USB_CLASS_CONTENT_SEC"},
        {0x0E, "USB_CLASS_VIDEO"},
        {0xE0, "USB_CLASS_WIRELESS_CONTROLLER"},
        {0xEF, "USB_CLASS_MISC"},
        {0xFE, "USB_CLASS_APP_SPEC"},
        {0xFF, "USB_CLASS_VENDOR_SPEC"},
        {0x100, "AINPUT_SOURCE_KEYBOARD"},
        {0x200, "AINPUT_SOURCE_DPAD"},
        {0x400, "AINPUT_SOURCE_GAMEPAD"},
        {0x1000, "AINPUT_SOURCE_TOUCHSCREEN"},
        {0x2000, "AINPUT_SOURCE_MOUSE"},
        {0x4000, "AINPUT_SOURCE_STYLUS"},
        {0x10000, "AINPUT_SOURCE_TRACKBALL"},
        {0x20000, "AINPUT_SOURCE_MOUSE_RELATIVE"},
        {0x100000, "AINPUT_SOURCE_TOUCHPAD"},
        {0x200000, "AINPUT_SOURCE_TOUCH_NAVIGATION"},
        {0x400000, "AINPUT_SOURCE_ROTARY_ENCODER"},
        {0x1000000, "AINPUT_SOURCE_JOYSTICK"},
}};

// The classes that no rule may name and that no decision looks at: their interfaces ride along.
inline constexpr std::array<int32_t, 6> kRestrictedClasses = {0x00, 0x03, 0x09, 0xEF, 0xFE, 0xFF};

// The code of a name, spelled exactly; kNoClassCode for any other text.
uint32_t classCode(std::string_view name);
// The name of a code; one blank for a code without one.
std::string_view className(int32_t code);
bool isRestrictedClass(int32_t code);

// What an input device's source bits (AINPUT_SOURCE_*, source class included) hold.
struct InputSources {
    int32_t bits;                  // without the source class
    bool single;                   // the bits as they are name one source
    std::vector<int32_t> sources;  // ascending
};
InputSources inputSourcesOf(int32_t sourceBits);

}  // namespace android::vus
