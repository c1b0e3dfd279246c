// SPDX-License-Identifier: Apache-2.0

#include "tools/common/input_sources.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <initializer_list>

namespace android::vus {

namespace {

bool has_key(const InputCapabilities& device, unsigned code) {
    return device.has_event(EV_KEY, code);
}

bool has_any(const InputCapabilities& device, unsigned type, unsigned first, unsigned end) {
    for (unsigned code = first; code < end; ++code) {
        if (device.has_event(type, code)) return true;
    }
    return false;
}

bool has_key_in(const InputCapabilities& device, unsigned first, unsigned end) {
    return has_any(device, EV_KEY, first, end);
}

bool has_all_keys(const InputCapabilities& device, std::initializer_list<unsigned> codes) {
    return std::all_of(codes.begin(), codes.end(),
                       [&](unsigned code) { return has_key(device, code); });
}

bool has_axes(const InputCapabilities& device, unsigned type, unsigned x, unsigned y) {
    return device.has_event(type, x) && device.has_event(type, y);
}

bool has_keyboard_keys(const InputCapabilities& device) {
    return has_key_in(device, KEY_ESC, BTN_MISC) || has_key_in(device, BTN_WHEEL, KEY_CNT);
}

// The buttons without a name of their own, too: pads of drawing tablets have them.
bool has_gamepad_buttons(const InputCapabilities& device) {
    return has_key_in(device, BTN_MISC, BTN_MOUSE) || has_key_in(device, BTN_JOYSTICK, BTN_DIGI);
}

bool is_dpad(const InputCapabilities& device) {
    return has_all_keys(device, {KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT}) &&
           (has_key(device, KEY_SELECT) || has_key(device, KEY_OK));
}

bool is_mouse(const InputCapabilities& device) {
    return has_key(device, BTN_MOUSE) &&
           (has_axes(device, EV_REL, REL_X, REL_Y) || has_axes(device, EV_ABS, ABS_X, ABS_Y));
}

bool is_touch(const InputCapabilities& device) {
    if (has_axes(device, EV_ABS, ABS_MT_POSITION_X, ABS_MT_POSITION_Y)) {
        // Some gamepads report the codes of touches without being touched.
        return has_key(device, BTN_TOUCH) || !has_gamepad_buttons(device);
    }
    return has_key(device, BTN_TOUCH) && has_axes(device, EV_ABS, ABS_X, ABS_Y);
}

bool has_pen(const InputCapabilities& device) {
    return has_key(device, BTN_TOOL_PEN) || has_key(device, BTN_TOOL_RUBBER) ||
           has_key(device, BTN_TOOL_BRUSH) || has_key(device, BTN_TOOL_PENCIL) ||
           has_key(device, BTN_TOOL_AIRBRUSH);
}

int32_t touch_sources(const InputCapabilities& device) {
    const bool direct = device.has_property(INPUT_PROP_DIRECT);
    return (direct ? kSourceTouchscreen : kSourceTouchpad) | (has_pen(device) ? kSourceStylus : 0);
}

// One that tells its pressure and leaves it to the screen to tell the place.
bool is_external_stylus(const InputCapabilities& device) {
    return !is_touch(device) &&
           (has_key(device, BTN_TOUCH) || device.has_event(EV_ABS, ABS_PRESSURE)) &&
           !device.has_event(EV_ABS, ABS_X) && !device.has_event(EV_ABS, ABS_Y);
}

// Axes that belong to the touch surface of a device that has one, and to no joystick then.
bool is_touch_axis(unsigned axis) {
    return axis == ABS_X || axis == ABS_Y || (axis >= ABS_PRESSURE && axis <= ABS_TOOL_WIDTH) ||
           axis >= ABS_MT_SLOT;
}

bool has_joystick_axis(const InputCapabilities& device) {
    const bool touch = is_touch(device);
    for (unsigned axis = 0; axis < ABS_CNT; ++axis) {
        if (device.has_event(EV_ABS, axis) && !(touch && is_touch_axis(axis))) return true;
    }
    return false;
}

bool is_rotary_encoder(const InputCapabilities& device) {
    return !is_mouse(device) && (device.has_event(EV_REL, REL_DIAL) ||
                                 (device.has_event(EV_REL, REL_WHEEL) &&
                                  !has_keyboard_keys(device) && !has_key(device, BTN_MOUSE)));
}

// They ask less of a device than the platform does: any button of a mouse makes one, any way of
// moving, and a pen that only hovers.
int32_t sources_of_other_readers(const InputCapabilities& device) {
    const bool is_pointer = has_key_in(device, BTN_MOUSE, BTN_JOYSTICK) ||
                            has_any(device, EV_REL, REL_X, REL_Y + 1);
    if (is_pointer) return kSourceMouse;
    const bool direct = device.has_property(INPUT_PROP_DIRECT);
    if (has_any(device, EV_ABS, ABS_X, ABS_Y + 1)) {
        const bool is_pen = has_pen(device) || has_key_in(device, BTN_STYLUS, BTN_STYLUS2 + 1);
        if (is_pen) return kSourceStylus;
        if (direct) return kSourceTouchscreen;
        if (has_key_in(device, BTN_DIGI, BTN_WHEEL)) return kSourceTouchpad;
    }
    if (has_any(device, EV_REL, REL_HWHEEL, REL_WHEEL + 1)) return kSourceRotaryEncoder;
    return has_any(device, EV_ABS, ABS_RX, ABS_PRESSURE) ? kSourceJoystick : 0;
}

bool can_press_or_roll(const InputCapabilities& device) {
    return has_key_in(device, 0, KEY_CNT) || has_any(device, EV_REL, 0, REL_CNT);
}

// What has axes by which it tells how it lies is taken for nothing else.
bool can_point(const InputCapabilities& device) {
    return has_any(device, EV_ABS, 0, ABS_CNT) && !device.has_property(INPUT_PROP_ACCELEROMETER);
}

}  // namespace

int32_t input_sources(const InputCapabilities& device) {
    int32_t sources = 0;
    if (has_keyboard_keys(device)) sources |= kSourceKeyboard;
    if (has_gamepad_buttons(device)) sources |= kSourceKeyboard | kSourceGamepad;
    if (is_dpad(device)) sources |= kSourceDpad;
    if (is_mouse(device)) sources |= kSourceMouse;
    if (is_touch(device)) sources |= touch_sources(device);
    if (is_external_stylus(device)) sources |= kSourceStylus;
    if (has_gamepad_buttons(device) && has_joystick_axis(device)) sources |= kSourceJoystick;
    if (is_rotary_encoder(device)) sources |= kSourceRotaryEncoder;
    return sources;
}

std::optional<int32_t> reported_sources(const InputCapabilities& device) {
    const int32_t sources = input_sources(device);
    if (sources != 0) return sources;
    if (!can_press_or_roll(device) && !can_point(device)) return std::nullopt;
    return sources_of_other_readers(device);
}

}  // namespace android::vus
