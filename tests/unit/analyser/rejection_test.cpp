// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/rejection.h"

#include <string>
#include <variant>

#include <gtest/gtest.h>

namespace android::vus::workbench {
namespace {

Rejection rejectionOf(const std::string& text) {
    const auto result = parsePolicy(text);
    if (const auto* failure = std::get_if<PolicyFailure>(&result)) return explain(*failure);
    ADD_FAILURE() << "accepted: " << text;
    return {};
}

struct Case {
    const char* rule;  // the third line
    const char* found;
    const char* hint;
};

class RejectionTest : public testing::TestWithParam<Case> {};

TEST_P(RejectionTest, SaysWhatWasProbablyMeant) {
    const Rejection rejection = rejectionOf("<usbconfig mode=\"whitelist\">\n\n" +
                                            std::string(GetParam().rule) + "</usbconfig>");
    EXPECT_EQ(rejection.line, 3);
    EXPECT_EQ(rejection.offender, GetParam().found);
    EXPECT_EQ(rejection.hint, GetParam().hint);
}

INSTANTIATE_TEST_SUITE_P(
        Classes, RejectionTest,
        testing::Values(
                Case{"<class> USB_CLASS_AUDIO\n</class>", " USB_CLASS_AUDIO\n",
                     "USB_CLASS_AUDIO, without the blanks around it"},
                Case{"<class>usb_class_audio</class>", "usb_class_audio", "USB_CLASS_AUDIO"},
                Case{"<class>USB_CLASS_ADUIO</class>", "USB_CLASS_ADUIO", "USB_CLASS_AUDIO"},
                Case{"<class>audio</class>", "audio", "USB_CLASS_AUDIO"},
                Case{"<class>keyboard</class>", "keyboard", "AINPUT_SOURCE_KEYBOARD"},
                Case{"<class>USB_CLASS_PHYSICAL</class>", "USB_CLASS_PHYSICAL",
                     "USB_CLASS_PHYSICA"},
                Case{"<class>8</class>", "8", "USB_CLASS_MASS_STORAGE"},
                Case{"<class>0x08</class>", "0x08", "USB_CLASS_MASS_STORAGE"},
                Case{"<class>220</class>", "220",
                     "a vid rule: class 220 has no name, and cannot be listed"},
                Case{"<class>USB_CLASS_HUB</class>", "USB_CLASS_HUB",
                     "a vid rule: USB_CLASS_HUB takes no part in class rules, so such devices are "
                     "matched by vendor only"},
                Case{"<class>USB_CLASS_HID</class>", "USB_CLASS_HID",
                     "AINPUT_SOURCE_KEYBOARD or AINPUT_SOURCE_MOUSE: HID devices are judged as "
                     "input devices"},
                Case{"<class>nothing of the kind</class>", "nothing of the kind", ""},
                Case{"<class/>", "", "<class>NAME</class>, with nothing before the name"}));

INSTANTIATE_TEST_SUITE_P(
        Ids, RejectionTest,
        testing::Values(Case{"<vid vendorid=\"046d\"/>", "046d",
                             "1133, which is hexadecimal 046d; ids are decimal here"},
                        Case{"<vid vendorid=\"0x046D\"/>", "0x046D",
                             "1133, which is hexadecimal 046D; ids are decimal here"},
                        Case{"<vid vendorid=\" 1133\"/>", " 1133",
                             "1133, without the blanks around it"},
                        Case{"<vid vendorid=\"99999999999\"/>", "99999999999",
                             "an id of a device: at most 65535"},
                        Case{"<vid vendorid=\"-1\"/>", "-1", "a decimal number, at most 65535"},
                        Case{"<vid vendorid=\"\"/>", "", "<vid vendorid=\"NUMBER\">"},
                        Case{"<vid/>", "", "<vid vendorid=\"NUMBER\">"},
                        Case{"<vid vendorid=\"1\"><pid>c31c</pid></vid>", "c31c",
                             "49948, which is hexadecimal c31c; ids are decimal here"},
                        Case{"<vid vendorid=\"1\"><pid/></vid>", "",
                             "<pid>NUMBER</pid>; a note belongs into a comment"}));

INSTANTIATE_TEST_SUITE_P(Tags, RejectionTest,
                         testing::Values(Case{"<pid>7</pid>", "pid", "<pid> inside a <vid>"},
                                         Case{"<Class>USB_CLASS_AUDIO</Class>", "Class", "<class>"},
                                         Case{"<vdi vendorid=\"1\"/>", "vdi",
                                              "<class> or <vid>; a note belongs into a comment"},
                                         Case{"<note/>", "note",
                                              "<class> or <vid>; a note belongs into a comment"}));

TEST(RejectionOfRootTest, SaysWhatWasProbablyMeant) {
    const Rejection mode = rejectionOf("<usbconfig\n mode='WhiteList'/>");
    EXPECT_EQ(mode.status, "INVALID MODE");
    EXPECT_EQ(mode.line, 2);
    EXPECT_EQ(mode.offender, "WhiteList");
    EXPECT_EQ(mode.hint, "whitelist");
    EXPECT_EQ(rejectionOf("<usbconfig mode='on'/>").hint, "whitelist, blacklist or default");
    EXPECT_EQ(rejectionOf("<usbconfig/>").hint, "<usbconfig mode=\"whitelist\">");
    const Rejection root = rejectionOf("<USBCONFIG mode='default'/>");
    EXPECT_EQ(root.offender, "USBCONFIG");
    EXPECT_EQ(root.hint, "<usbconfig mode=\"whitelist\">");
}

TEST(RejectionOfRootTest, TheLibrarysErrorsAreLeftAsTheyAre) {
    const Rejection rejection = rejectionOf("<usbconfig mode='default'>\n<class>\n");
    EXPECT_EQ(rejection.status.rfind("Error=XML_ERROR_", 0), 0U);
    EXPECT_FALSE(rejection.hasOffender);
    EXPECT_EQ(rejection.hint, "");
}

TEST(DistanceTest, CountsLetters) {
    EXPECT_EQ(distanceOf("", ""), 0U);
    EXPECT_EQ(distanceOf("", "abc"), 3U);
    EXPECT_EQ(distanceOf("abc", ""), 3U);
    EXPECT_EQ(distanceOf("abc", "abc"), 0U);
    EXPECT_EQ(distanceOf("abc", "axc"), 1U);
    EXPECT_EQ(distanceOf("kitten", "sitting"), 3U);
}

TEST(VisibleBlanksTest, EachHasASign) {
    EXPECT_EQ(withVisibleBlanks(" a\tb\r\n"), "\u00B7a\u2192b\u2190\u21B5");
    EXPECT_EQ(withVisibleBlanks("abc"), "abc");
}

}  // namespace
}  // namespace android::vus::workbench
