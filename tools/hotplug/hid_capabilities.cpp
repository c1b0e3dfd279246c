// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hid_capabilities.h"

#include "tools/common/input_sources.h"

namespace android::vus::hotplug {

namespace {

constexpr uint32_t kDesktopPage = 0x01;
constexpr uint32_t kKeyboardPage = 0x07;
constexpr uint32_t kLedPage = 0x08;
constexpr uint32_t kButtonPage = 0x09;
constexpr uint32_t kConsumerPage = 0x0C;
constexpr uint32_t kDigitizerPage = 0x0D;
constexpr uint32_t kForcePage = 0x0F;
// Pages of a vendor's own that the kernel knows to mean no input.
constexpr uint32_t kCustomPage = 0xFF;
constexpr uint32_t kVendorPage = 0xFF00;

constexpr uint32_t kPointer = 0x10001;
constexpr uint32_t kMouse = 0x10002;
constexpr uint32_t kJoystick = 0x10004;
constexpr uint32_t kGamepad = 0x10005;
constexpr uint32_t kPen = 0xD0002;
constexpr uint32_t kTouchscreen = 0xD0004;
constexpr uint32_t kTouchpad = 0xD0005;
constexpr uint32_t kPuck = 0xD0021;
constexpr uint32_t kFinger = 0xD0022;

constexpr unsigned kButtonsOfAKind = 0x10;

bool is_touch(uint32_t application) {
    return application == kTouchscreen || application == kTouchpad;
}

// The first button of a device of that kind; 0 if it is none.
unsigned first_button(uint32_t usage) {
    switch (usage) {
        case kPointer:
        case kMouse:
        case kTouchpad:
            return BTN_MOUSE;
        case kJoystick:
            return BTN_JOYSTICK;
        case kGamepad:
            return BTN_GAMEPAD;
        default:
            return 0;
    }
}

}  // namespace

void HidCapabilities::add(const HidField& field, uint32_t usage) {
    const unsigned id = usage & 0xFFFF;
    switch (usage >> 16) {
        case kDesktopPage:
            return add_desktop(field, id);
        case kKeyboardPage:
            // Which key it is makes no difference to what the device is: the arrows of this page
            // have no "select" beside them.
            if (id != 0) keys_.set(KEY_A);
            return;
        case kButtonPage:
            return add_button(field, id);
        case kConsumerPage:
            return add_consumer(field, id);
        case kDigitizerPage:
            return add_digitizer(field, id);
        case kLedPage:
        case kForcePage:
        case kCustomPage:
        case kVendorPage:
            return;
        default:
            return add_unknown(field);
    }
}

void HidCapabilities::add_desktop(const HidField& field, unsigned id) {
    const bool is_axis = id >= 0x30 && id <= 0x38;
    if (is_axis && field.relative) {
        relative_.set(id & 0xF);
    } else if (is_axis) {
        absolute_.set(id & 0xF);
        if (!is_touch(field.application) || id > 0x31) return;
        absolute_.set(id == 0x30 ? ABS_MT_POSITION_X : ABS_MT_POSITION_Y);
    } else if (id == 0x39 || (id >= 0x90 && id <= 0x93)) {
        absolute_.set(ABS_HAT0X);
        absolute_.set(ABS_HAT0Y);
    } else if (id == 0x3D || id == 0x3E) {
        keys_.set(id == 0x3D ? BTN_START : BTN_SELECT);
    } else if (id >= 0x80) {
        keys_.set(KEY_POWER);  // switches of the system and of displays
    }
}

void HidCapabilities::add_button(const HidField& field, unsigned id) {
    if (id == 0) return;
    unsigned first = first_button(field.application);
    if (first == 0) first = first_button(field.physical);
    if (first == 0) first = BTN_MISC;
    const unsigned button = id - 1 < kButtonsOfAKind ? first + id - 1 : BTN_TRIGGER_HAPPY;
    keys_.set(button);
}

void HidCapabilities::add_digitizer(const HidField& field, unsigned id) {
    // A pen moves over the display itself; what other digitizers lie on is not said.
    direct_ |= field.application == kPen || field.application == kTouchscreen;
    switch (id) {
        case 0x30:
            absolute_.set(ABS_PRESSURE);
            break;
        case 0x32:
            if (is_touch(field.application)) break;
            keys_.set(field.physical == kPuck     ? BTN_TOOL_MOUSE
                      : field.physical == kFinger ? BTN_TOOL_FINGER
                                                  : BTN_TOOL_PEN);
            break;
        case 0x33:
        case 0x42:
        case 0x43:
        case 0x45:
            keys_.set(BTN_TOUCH);
            break;
        case 0x3C:
            keys_.set(BTN_TOOL_RUBBER);
            break;
        case 0x44:
        case 0x5A:
            keys_.set(BTN_STYLUS);
            break;
        default:
            break;  // tilt, contacts and the like tell nothing more
    }
}

void HidCapabilities::add_consumer(const HidField& field, unsigned id) {
    constexpr unsigned kMenuPick = 0x41, kMenuKeys[] = {KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT};
    if (id == 0) return;
    if (id == kMenuPick) {
        keys_.set(KEY_SELECT);
    } else if (id > kMenuPick && id <= kMenuPick + 4) {
        keys_.set(kMenuKeys[id - kMenuPick - 1]);
    } else if (id == 0xE0) {
        absolute_.set(ABS_VOLUME);
    } else if (id == 0x238 && field.relative) {
        relative_.set(REL_HWHEEL);
    } else {
        keys_.set(KEY_PLAYPAUSE);
    }
}

void HidCapabilities::add_unknown(const HidField& field) {
    if (field.single_bit) {
        keys_.set(BTN_MISC);
    } else if (field.relative) {
        relative_.set(REL_MISC);
    } else {
        absolute_.set(ABS_MISC);
    }
}

int32_t HidCapabilities::sources() const {
    return reported_sources(
                   {[this](unsigned type, unsigned code) {
                        switch (type) {
                            case EV_KEY:
                                return code < keys_.size() && keys_[code];
                            case EV_REL:
                                return code < relative_.size() && relative_[code];
                            case EV_ABS:
                                return code < absolute_.size() && absolute_[code];
                            default:
                                return false;
                        }
                    },
                    [this](unsigned property) { return property == INPUT_PROP_DIRECT && direct_; }})
            .value_or(0);
}

}  // namespace android::vus::hotplug
