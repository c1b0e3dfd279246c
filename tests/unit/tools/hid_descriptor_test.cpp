// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/hid_descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/tools/reports.h"
#include "tools/common/input_sources.h"

namespace android::vus::hotplug {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int32_t> SourcesOf(const std::vector<uint8_t>& descriptor) {
    const auto nature = parse_report_descriptor(descriptor);
    if (!nature || !nature->is_input) return {};
    std::vector<int32_t> sources;
    for (const HidApplication& application : nature->applications) {
        sources.push_back(application.sources);
    }
    return sources;
}

bool IsTaken(const std::string& hexadecimal) {
    return parse_report_descriptor(Bytes(hexadecimal)).has_value();
}

TEST(HidDescriptor, TellsWhatInputDevicesWillBe) {
    EXPECT_THAT(SourcesOf(kBootKeyboard), ElementsAre(kSourceKeyboard));
    EXPECT_THAT(SourcesOf(kBootMouse), ElementsAre(kSourceMouse));
    EXPECT_THAT(SourcesOf(kGamepad),
                ElementsAre(kSourceKeyboard | kSourceGamepad | kSourceJoystick));
    EXPECT_THAT(SourcesOf(kTouchscreen), ElementsAre(kSourceTouchscreen));
    // The menu's arrows and its pick are a pad's.
    EXPECT_THAT(SourcesOf(kMediaKeys), ElementsAre(kSourceKeyboard | kSourceDpad));
}

TEST(HidDescriptor, TouchpadIsNoTouchscreen) {
    std::vector<uint8_t> touchpad = kTouchscreen;
    touchpad[3] = 0x05;
    EXPECT_THAT(SourcesOf(touchpad), ElementsAre(kSourceTouchpad));
}

TEST(HidDescriptor, TellsWhatOnlyADesktopTakesForAPointer) {
    EXPECT_THAT(SourcesOf(kMouseWithoutLeftButton), ElementsAre(kSourceMouse));
    EXPECT_THAT(SourcesOf(kLeftButtonAlone), ElementsAre(kSourceMouse));
    EXPECT_THAT(SourcesOf(kHoveringPen), ElementsAre(kSourceStylus));
}

TEST(HidDescriptor, EachApplicationIsADeviceOfItsOwn) {
    const auto nature = parse_report_descriptor(kBootKeyboard + Bytes("8502") + kBootMouse);
    ASSERT_TRUE(nature);
    ASSERT_EQ(nature->applications.size(), 2U);
    EXPECT_EQ(nature->applications[0].usage, 0x10006U);
    EXPECT_EQ(nature->applications[1].usage, 0x10002U);
    EXPECT_EQ(nature->applications[1].sources, kSourceMouse);
}

// The kernel gives a report to the application in which it begins.
TEST(HidDescriptor, ReportBelongsToWhomItBegan) {
    EXPECT_THAT(SourcesOf(kBootKeyboard + kBootMouse), ElementsAre(kSourceKeyboard | kSourceMouse));
}

TEST(HidDescriptor, TellsAVendorsOwn) {
    for (const auto& descriptor : {kVendorsOwn, kSecurityKey}) {
        const auto nature = parse_report_descriptor(descriptor);
        ASSERT_TRUE(nature);
        EXPECT_FALSE(nature->is_input);
    }
}

TEST(HidDescriptor, KeyboardHidesBehindNoVendorsPage) {
    const auto nature = parse_report_descriptor(kVendorsOwn + Bytes("8502") + kBootKeyboard);
    ASSERT_TRUE(nature);
    EXPECT_TRUE(nature->is_input);
    EXPECT_EQ(nature->applications[1].sources, kSourceKeyboard);
    // Nor inside a collection of such a page.
    EXPECT_THAT(SourcesOf(Bytes("0600ff 0901 a101") + kBootKeyboard + Bytes("c0")),
                ElementsAre(kSourceKeyboard));
    // Nor behind a physical collection that is all that is a mouse's.
    EXPECT_TRUE(parse_report_descriptor(Bytes("0600ff 0901 a101 0501 0902 a100 c0 c0"))->is_input);
}

TEST(HidDescriptor, PageMayFollowItsUsage) {
    EXPECT_THAT(SourcesOf(Bytes("0501 0906 a101 0904 0507 7501 9501 8102 c0")),
                ElementsAre(kSourceKeyboard));
    // A usage of four bytes has a page of its own.
    EXPECT_THAT(SourcesOf(Bytes("0501 0906 a101 0b04000700 050c 7501 9501 8102 c0")),
                ElementsAre(kSourceKeyboard));
}

TEST(HidDescriptor, PaddingIsNoInput) {
    EXPECT_THAT(SourcesOf(Bytes("0501 0906 a101 7508 9501 8101 c0")), IsEmpty());
    EXPECT_THAT(SourcesOf(Bytes("0501 0906 a101 0507 1904 2965 7508 9501 8101 c0")),
                ElementsAre(0));
    EXPECT_THAT(SourcesOf(Bytes("0501 0906 a101 0507 1904 2965 7508 9500 8100 c0")),
                ElementsAre(0));
}

TEST(HidDescriptor, WhatTheKernelDoesNotTakeIsNothing) {
    EXPECT_FALSE(IsTaken(""));
    EXPECT_FALSE(IsTaken("0501 0906 a101"));            // never closed
    EXPECT_FALSE(IsTaken("0501 0906 a101 c0 c0"));      // closed twice
    EXPECT_FALSE(IsTaken("0501 09"));                   // cut off
    EXPECT_FALSE(IsTaken("0501 0906 a101 fe0000 c0"));  // a long item
    EXPECT_FALSE(IsTaken("8500"));                      // a report 0
    EXPECT_FALSE(IsTaken("760101"));                    // a size of 257
    EXPECT_FALSE(IsTaken("960130"));                    // 12,289 of them
    EXPECT_FALSE(IsTaken("b4"));                        // popped, never pushed
    EXPECT_FALSE(IsTaken("a4 a4 a4 a4 a4"));            // pushed five times
    EXPECT_FALSE(IsTaken("a901 a901"));                 // a set within a set
    EXPECT_TRUE(IsTaken("a4 a4 a4 a4 b4"));
    EXPECT_TRUE(IsTaken("760001 960030"));
}

TEST(HidDescriptor, LongestIsTakenAndLongerIsNot) {
    std::vector<uint8_t> blanks(kMaxReportDescriptor, 0x0C);  // reserved items
    EXPECT_TRUE(parse_report_descriptor(blanks));
    blanks.push_back(0x0C);
    EXPECT_FALSE(parse_report_descriptor(blanks));
}

TEST(HidDescriptor, RangesAreBounded) {
    // Every usage of every page, as often as it fits.
    std::string text = "0501 0906 a101 7501 9501";
    for (int field = 0; field < 200; ++field) text += "1b00000000 2bffffffff 8102";
    EXPECT_TRUE(IsTaken(text + "c0"));
    EXPECT_FALSE(IsTaken("0501 1b00000000 2bffffffff 0904 8102"))
            << "there is no room for one more";
}

// Two configurations; in the second a disk, and a keyboard of two alternate settings.
const char kDescriptors[] =
        "12 01 0002 000000 40 0912 1100 0001 01 02 00 02"
        "09 02 1b00 01 01 00 80 32"
        "09 04 00 00 00 03 01 01 00  09 21 1101 00 01 22 3f00"
        "09 02 3d00 02 02 00 80 32"
        "09 04 00 00 00 08 06 50 00"
        "09 04 01 00 01 03 01 01 00  0c 21 1101 00 02 22 4100 23 1000  07 05 81 03 0800 0a"
        "09 04 01 01 01 03 01 01 00  09 21 1101 00 01 22 ff0f";

TEST(ReportLength, IsWhatTheHidDescriptorOfTheInterfaceAnnounces) {
    const std::vector<uint8_t> all = Bytes(kDescriptors);
    EXPECT_EQ(report_descriptor_length(all, 1, 0), 0x3F);
    EXPECT_EQ(report_descriptor_length(all, 2, 1), 0x41) << "in its first setting";
    EXPECT_FALSE(report_descriptor_length(all, 2, 0)) << "a disk has none";
    EXPECT_FALSE(report_descriptor_length(all, 1, 1));
    EXPECT_FALSE(report_descriptor_length(all, 3, 0));
}

TEST(ReportLength, MalformedDescriptorsAnnounceNothing) {
    const std::vector<uint8_t> all = Bytes(kDescriptors);
    for (size_t length = 0; length < 45; ++length) {
        EXPECT_FALSE(report_descriptor_length({all.begin(), all.begin() + length}, 1, 0));
    }
    const auto announced = [](const std::string& hid) {
        return report_descriptor_length(Bytes("0902 0000 01 01 00 80 32 0904 00 00 00 03 01 01 00" +
                                              hid),
                                        1, 0);
    };
    EXPECT_EQ(announced("09 21 1101 00 01 22 0010"), kMaxReportDescriptor);
    EXPECT_FALSE(announced("09 21 1101 00 01 22 0110")) << "too long";
    EXPECT_FALSE(announced("09 21 1101 00 01 22 0000"));
    EXPECT_FALSE(announced("09 21 1101 00 00 22 3f00")) << "it lists none";
    EXPECT_FALSE(announced("06 21 1101 00 01"));
    EXPECT_FALSE(announced("00 21 1101 00 01 22 3f00"));
    EXPECT_EQ(announced("0c 21 1101 00 ff 22 3f00 22 4000"), 0x40) << "those that fit";
}

}  // namespace
}  // namespace android::vus::hotplug
