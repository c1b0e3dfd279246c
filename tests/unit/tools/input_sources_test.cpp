// SPDX-License-Identifier: Apache-2.0
//
// The source bits of an evdev device, by tables of what real devices can send.

#include "tools/common/input_sources.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace android::vus {
namespace {

using Codes = std::set<std::pair<unsigned, unsigned>>;

struct Device {
    Codes codes;
    std::set<unsigned> properties;
};

InputCapabilities CapabilitiesOf(const Device& device) {
    return {[&device](unsigned type, unsigned code) {
                return device.codes.count({type, code}) != 0;
            },
            [&device](unsigned property) { return device.properties.count(property) != 0; }};
}

int32_t SourcesOf(const Device& device) {
    return input_sources(CapabilitiesOf(device));
}

Codes Keys(const std::vector<unsigned>& keys) {
    Codes codes;
    for (const unsigned key : keys) codes.insert({EV_KEY, key});
    return codes;
}

Codes Axes(unsigned type, const std::vector<unsigned>& axes) {
    Codes codes;
    for (const unsigned axis : axes) codes.insert({type, axis});
    return codes;
}

Codes operator+(Codes left, Codes right) {
    left.merge(right);
    return left;
}

const Codes kKeyboardKeys = Keys({KEY_ESC, KEY_Q, KEY_UP, KEY_DOWN, KEY_LEFT, KEY_RIGHT});
const Codes kRelativeXY = Axes(EV_REL, {REL_X, REL_Y});
const Codes kAbsoluteXY = Axes(EV_ABS, {ABS_X, ABS_Y});
const Codes kMultiTouch = Axes(EV_ABS, {ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y});
const Codes kGamepadButtons = Keys({BTN_A, BTN_B, BTN_X, BTN_Y, BTN_START});

struct Case {
    const char* name;
    Device device;
    int32_t sources;
};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

class InputSourcesTest : public testing::TestWithParam<Case> {};

TEST_P(InputSourcesTest, AreThePlatforms) {
    EXPECT_EQ(SourcesOf(GetParam().device), GetParam().sources)
            << std::hex << SourcesOf(GetParam().device) << " and not " << GetParam().sources;
}

TEST_P(InputSourcesTest, AreReportedWhereThePlatformHasAny) {
    if (GetParam().sources == 0) return;
    EXPECT_EQ(reported_sources(CapabilitiesOf(GetParam().device)), GetParam().sources);
}

const Case kCases[] = {
        {"Nothing", {}, 0},
        {"LidSwitch", {Axes(EV_SW, {SW_LID}), {}}, 0},
        {"Accelerometer", {kAbsoluteXY + Axes(EV_ABS, {ABS_Z}), {INPUT_PROP_ACCELEROMETER}}, 0},
        {"Keyboard", {kKeyboardKeys, {}}, 0x101},
        {"PowerButton", {Keys({KEY_POWER}), {}}, 0x101},
        {"FirstKey", {Keys({KEY_ESC}), {}}, 0x101},
        {"LastKeyBelowTheButtons", {Keys({BTN_MISC - 1}), {}}, 0x101},
        {"FirstKeyAboveTheButtons", {Keys({BTN_WHEEL}), {}}, 0x101},
        {"LastKey", {Keys({KEY_MAX}), {}}, 0x101},
        {"ReservedKeyIsNone", {Keys({KEY_RESERVED}), {}}, 0},
        {"RemoteControl", {kKeyboardKeys + Keys({KEY_OK}), {}}, 0x301},
        {"RemoteControlWithSelect", {kKeyboardKeys + Keys({KEY_SELECT}), {}}, 0x301},
        {"CentreWithoutAllDirections", {Keys({KEY_UP, KEY_DOWN, KEY_LEFT, KEY_OK}), {}}, 0x101},
        {"Mouse",
         {Keys({BTN_LEFT, BTN_RIGHT}) + kRelativeXY + Axes(EV_REL, {REL_WHEEL}), {}},
         0x2002},
        {"MouseWithoutButton", {kRelativeXY, {}}, 0},
        {"MouseWithOneAxis", {Keys({BTN_LEFT}) + Axes(EV_REL, {REL_X}), {}}, 0},
        {"AbsoluteMouse",
         {Keys({BTN_LEFT, BTN_RIGHT}) + kAbsoluteXY + Axes(EV_REL, {REL_WHEEL}), {}},
         0x2002},
        {"KeyboardWithMouse", {kKeyboardKeys + Keys({BTN_LEFT}) + kRelativeXY, {}}, 0x2103},
        {"TouchScreen",
         {Keys({BTN_TOUCH}) + kMultiTouch + kAbsoluteXY, {INPUT_PROP_DIRECT}},
         0x1002},
        {"TouchScreenWithoutButton", {kMultiTouch, {INPUT_PROP_DIRECT}}, 0x1002},
        {"SingleTouchScreen", {Keys({BTN_TOUCH}) + kAbsoluteXY, {INPUT_PROP_DIRECT}}, 0x1002},
        {"TouchScreenWithPen",
         {Keys({BTN_TOUCH, BTN_TOOL_PEN, BTN_TOOL_FINGER}) + kMultiTouch, {INPUT_PROP_DIRECT}},
         0x5002},
        {"Touchpad",
         {Keys({BTN_TOUCH, BTN_TOOL_FINGER}) + kMultiTouch + kAbsoluteXY, {INPUT_PROP_POINTER}},
         0x100008},
        {"TouchSurfaceThatDoesNotSay", {Keys({BTN_TOUCH}) + kMultiTouch, {}}, 0x100008},
        {"DrawingTablet",
         {Keys({BTN_TOUCH, BTN_TOOL_PEN, BTN_TOOL_RUBBER}) + kAbsoluteXY +
                  Axes(EV_ABS, {ABS_PRESSURE}),
          {INPUT_PROP_POINTER}},
         0x10400A},
        {"ExternalStylusByButton", {Keys({BTN_TOUCH}), {}}, 0x4002},
        {"ExternalStylusByPressure", {Axes(EV_ABS, {ABS_PRESSURE}), {}}, 0x4002},
        {"KeyboardThatClaimsPressure", {kKeyboardKeys + Axes(EV_ABS, {ABS_PRESSURE}), {}}, 0x4103},
        {"Gamepad",
         {kGamepadButtons + kAbsoluteXY + Axes(EV_ABS, {ABS_HAT0X, ABS_HAT0Y}), {}},
         0x1000511},
        {"GamepadWithoutAxes", {kGamepadButtons, {}}, 0x501},
        {"GamepadWithTouchCodes", {kGamepadButtons + kMultiTouch, {}}, 0x1000511},
        {"GamepadWithTouchpad",
         {kGamepadButtons + Keys({BTN_TOUCH}) + kMultiTouch + kAbsoluteXY, {}},
         0x100509},
        {"GamepadWithTouchpadAndThrottle",
         {kGamepadButtons + Keys({BTN_TOUCH}) + kMultiTouch + Axes(EV_ABS, {ABS_THROTTLE}), {}},
         0x1100519},
        {"Joystick", {Keys({BTN_TRIGGER, BTN_THUMB}) + kAbsoluteXY, {}}, 0x1000511},
        {"FirstNamelessButton", {Keys({BTN_0}), {}}, 0x501},
        {"ButtonAfterTheGamepads", {Keys({BTN_DIGI}), {}}, 0},
        {"Dial", {Axes(EV_REL, {REL_DIAL}), {}}, 0x400000},
        {"WheelByItself", {Axes(EV_REL, {REL_WHEEL}), {}}, 0x400000},
        {"KeyboardWithWheel", {kKeyboardKeys + Axes(EV_REL, {REL_WHEEL}), {}}, 0x101},
        {"KeyboardWithDial", {kKeyboardKeys + Axes(EV_REL, {REL_DIAL}), {}}, 0x400101},
};

INSTANTIATE_TEST_SUITE_P(Devices, InputSourcesTest, testing::ValuesIn(kCases), NameOf);

// Devices that the platform passes over.
struct OtherCase {
    const char* name;
    Device device;
    std::optional<int32_t> reported;
};

std::string NameOfOther(const testing::TestParamInfo<OtherCase>& info) {
    return info.param.name;
}

class OtherReadersTest : public testing::TestWithParam<OtherCase> {};

TEST_P(OtherReadersTest, TakeItForWhatIsReported) {
    ASSERT_EQ(SourcesOf(GetParam().device), 0);
    EXPECT_EQ(reported_sources(CapabilitiesOf(GetParam().device)), GetParam().reported);
}

const OtherCase kOtherCases[] = {
        {"Nothing", {}, std::nullopt},
        {"LidSwitch", {Axes(EV_SW, {SW_LID}), {}}, std::nullopt},
        {"LampsAndSounds", {Axes(EV_LED, {LED_CAPSL}) + Axes(EV_SND, {SND_BELL}), {}}, {}},
        {"Accelerometer",
         {kAbsoluteXY + Axes(EV_ABS, {ABS_Z, ABS_RX}), {INPUT_PROP_ACCELEROMETER}},
         std::nullopt},
        {"AccelerometerThatClicks",
         {kAbsoluteXY + Keys({BTN_LEFT + 1}), {INPUT_PROP_ACCELEROMETER}},
         0x2002},
        {"AccelerometerThatMoves",
         {Axes(EV_REL, {REL_X}) + Axes(EV_ABS, {ABS_Z}), {INPUT_PROP_ACCELEROMETER}},
         0x2002},
        {"MouseWithoutLeftButton", {Keys({BTN_RIGHT}) + kRelativeXY, {}}, 0x2002},
        {"LeftButtonByItself", {Keys({BTN_LEFT}), {}}, 0x2002},
        {"LastButtonOfAMouse", {Keys({BTN_JOYSTICK - 1}), {}}, 0x2002},
        {"MouseWithoutButton", {kRelativeXY, {}}, 0x2002},
        {"MouseWithOneAxis", {Axes(EV_REL, {REL_Y}), {}}, 0x2002},
        {"AbsoluteMouseWithoutLeftButton", {Keys({BTN_RIGHT}) + kAbsoluteXY, {}}, 0x2002},
        {"PenThatOnlyHovers",
         {Keys({BTN_TOOL_PEN}) + kAbsoluteXY + Axes(EV_ABS, {ABS_PRESSURE}), {INPUT_PROP_DIRECT}},
         0x4002},
        {"PenOfWhichAButtonIsKnown", {Keys({BTN_STYLUS}) + kAbsoluteXY, {}}, 0x4002},
        {"FingerThatIsOnlyNear", {Keys({BTN_TOOL_FINGER}) + kAbsoluteXY, {}}, 0x100008},
        {"ScreenThatDoesNotTellTouches", {kAbsoluteXY, {INPUT_PROP_DIRECT}}, 0x1002},
        {"WheelForTheOtherWay", {Axes(EV_REL, {REL_HWHEEL}), {}}, 0x400000},
        {"Pedals", {kAbsoluteXY + Axes(EV_ABS, {ABS_RZ}), {}}, 0x1000010},
        {"PlaceByItself", {kAbsoluteXY, {}}, 0},
        {"VolumeByItself", {Axes(EV_ABS, {ABS_VOLUME}), {}}, 0},
        {"ToolByItself", {Keys({BTN_TOOL_PEN}), {}}, 0},
        {"WayThatNobodyKnows", {Axes(EV_REL, {REL_MISC}), {}}, 0},
};

INSTANTIATE_TEST_SUITE_P(Devices, OtherReadersTest, testing::ValuesIn(kOtherCases), NameOfOther);

}  // namespace
}  // namespace android::vus
