// SPDX-License-Identifier: Apache-2.0

// The loader, as a table: a policy file, and everything that its load leaves and says.

#include <ostream>

#include "loader_test.h"

namespace android::vus {
namespace {

constexpr int32_t kWhole = -1;

struct LoadCase {
    const char* name;
    std::string xml;
    bool success;
    std::string mode;
    Classes classes;
    Names names;
    Vendors vendors;
    std::string message;  // statusMessage
    std::string status;   // the status file
    Strings log;
};

void PrintTo(const LoadCase& test, std::ostream* out) {
    *out << test.xml.substr(0, 200);
}

LoadCase Accepted(const char* name, const std::string& xml, const std::string& mode,
                  const Classes& classes, const Names& names, const Vendors& vendors,
                  const Strings& log) {
    return {name, xml, true, mode, classes, names, vendors, kOldStatus, kUntouched, log};
}

// A file that is rejected after `before` was logged and the given rules were read. The failure is
// logged in front of the status file's writing.
struct Partial {
    Classes classes = {};
    Names names = {};
    Vendors vendors = {};
};

LoadCase Rejected(const char* name, const std::string& xml, const std::string& message,
                  const std::string& logged, Strings before, const Partial& read = {}) {
    before.insert(before.begin(), "I attribute--whitelist");
    before.insert(before.end(), {"E " + logged + message, Written(message)});
    return {name,       xml,          false,   "whitelist", read.classes,
            read.names, read.vendors, message, message,     before};
}

// Nothing of the file has been read. The status file is written before the failure is logged.
LoadCase RejectedRoot(const char* name, const std::string& xml, const std::string& message) {
    const Strings log = {Written(message), "E Invalid root element --" + message};
    return {name, xml, false, kOldMode, {}, {}, {}, message, message, log};
}

LoadCase RejectedForItsMode(const char* name, const std::string& xml, const std::string& message) {
    const Strings log = {"E error in ATTRIBUTE MODE value= " + message, Written(message)};
    return {name, xml, false, kOldMode, {}, {}, {}, message, message, log};
}

LoadCase RejectedClass(const char* name, const std::string& rules, const std::string& message,
                       const Strings& before = {}, const Partial& read = {}) {
    return Rejected(name, Whitelist(rules), message, "error in class val= ", before, read);
}

LoadCase RejectedVendor(const char* name, const std::string& rules, const std::string& message,
                        const Strings& before) {
    return Rejected(name, Whitelist(rules), message, "error in vid val= ", before);
}

LoadCase RejectedProduct(const char* name, const std::string& rules, const std::string& message,
                         const Strings& before, const Vendors& vendors = {}) {
    return Rejected(name, Whitelist(rules), message, "error in pid val= ", before,
                    {{}, {}, vendors});
}

class LoadCaseTest : public LoaderTest, public ::testing::WithParamInterface<LoadCase> {};

TEST_P(LoadCaseTest, LeavesAndSays) {
    const LoadCase& test = GetParam();
    Util::xml_parse_status = !test.success;
    EXPECT_EQ(LogOf([&] { Load(test.xml); }), test.log);
    EXPECT_EQ(Util::xml_parse_status, test.success);
    EXPECT_EQ(Util::configMode, test.mode);
    EXPECT_EQ(Util::classList, test.classes);
    EXPECT_EQ(Util::classMap, test.names);
    EXPECT_EQ(Util::vidPidMap, test.vendors);
    EXPECT_EQ(Util::statusMessage, test.message);
    EXPECT_EQ(ReadFile(kStatusFile), test.status);
}

std::string NameOf(const ::testing::TestParamInfo<LoadCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
        Accepted, LoadCaseTest,
        ::testing::Values(
                Accepted("Example",
                         "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                         "<usbconfig mode=\"whitelist\">\n"
                         "<class>USB_CLASS_MASS_STORAGE</class>\n"
                         "<class>USB_CLASS_AUDIO</class>\n"
                         "<class>AINPUT_SOURCE_KEYBOARD</class>\n"
                         "<vid vendorid=\"1234\">\n"
                         "<pid>22136</pid>\n"
                         "<pid>4097</pid>\n"
                         "</vid>\n"
                         "<vid vendorid=\"2385\"/>\n"
                         "</usbconfig>\n",
                         "whitelist", {8, 1, 256},
                         {{1, "USB_CLASS_AUDIO"},
                          {8, "USB_CLASS_MASS_STORAGE"},
                          {256, "AINPUT_SOURCE_KEYBOARD"}},
                         {{1234, 22136}, {1234, 4097}, {2385, kWhole}},
                         {"I attribute--whitelist", "I class val--8", "I class val--1",
                          "I class val--256", "I isValidNumber s--1234", "I isValidNumber s--22136",
                          "I isValidNumber s--4097", "I isValidNumber s--2385"}),
                Accepted("Blacklist", PolicyXml("blacklist", "<class>USB_CLASS_PHYSICA</class>"),
                         "blacklist", {5}, {{5, "USB_CLASS_PHYSICA"}}, {},
                         {"I attribute--blacklist", "I class val--5"}),
                Accepted("DefaultEmpty", "<usbconfig mode=\"default\"/>", "default", {}, {}, {},
                         {"I attribute--default"}),
                Accepted("DefaultDoesNotReadItsChildren",
                         PolicyXml("default",
                                   "<class>nonsense</class><vid/><vid vendorid=\"x\"/><any/>"),
                         "default", {}, {}, {}, {"I attribute--default"}),
                Accepted("DuplicateClasses",
                         Whitelist("<class>USB_CLASS_AUDIO</class><class>USB_CLASS_VIDEO</class>"
                                   "<class>USB_CLASS_AUDIO</class>"),
                         "whitelist", {1, 14, 1}, {{1, "USB_CLASS_AUDIO"}, {14, "USB_CLASS_VIDEO"}},
                         {},
                         {"I attribute--whitelist", "I class val--1", "I class val--14",
                          "I class val--1"}),
                Accepted("DuplicateVendorsKeepTheirOrder",
                         Whitelist("<vid vendorid=\"9\"><pid>3</pid></vid><vid vendorid=\"9\"/>"
                                   "<vid vendorid=\"9\"><pid>1</pid><pid>3</pid></vid>"
                                   "<vid vendorid=\"2\"/>"),
                         "whitelist", {}, {}, {{2, kWhole}, {9, 3}, {9, kWhole}, {9, 1}, {9, 3}},
                         {"I attribute--whitelist", "I isValidNumber s--9", "I isValidNumber s--3",
                          "I isValidNumber s--9", "I isValidNumber s--9", "I isValidNumber s--1",
                          "I isValidNumber s--3", "I isValidNumber s--2"}),
                Accepted("SiblingsOfTheFirstProductAreProducts",
                         Whitelist("<vid vendorid=\"5\"><pid>7</pid><other>9</other></vid>"),
                         "whitelist", {}, {}, {{5, 7}, {5, 9}},
                         {"I attribute--whitelist", "I isValidNumber s--5", "I isValidNumber s--7",
                          "I isValidNumber s--9"}),
                Accepted("ChildrenBeforeTheFirstProductAreIgnored",
                         Whitelist("<vid vendorid=\"5\"><other>9</other><x/><pid>7</pid></vid>"),
                         "whitelist", {}, {}, {{5, 7}},
                         {"I attribute--whitelist", "I isValidNumber s--5",
                          "I isValidNumber s--7"}),
                Accepted("NoProductIsTheWholeVendor",
                         Whitelist("<vid vendorid=\"5\"><other>9</other></vid>"), "whitelist", {},
                         {}, {{5, kWhole}}, {"I attribute--whitelist", "I isValidNumber s--5"}),
                Accepted("TextInAVendorIsNoProduct", Whitelist("<vid vendorid=\"5\">7</vid>"),
                         "whitelist", {}, {}, {{5, kWhole}},
                         {"I attribute--whitelist", "I isValidNumber s--5"}),
                Accepted("ProductsOfAnotherCaseAreNone",
                         Whitelist("<vid vendorid=\"5\"><PID>x</PID></vid>"), "whitelist", {}, {},
                         {{5, kWhole}}, {"I attribute--whitelist", "I isValidNumber s--5"}),
                Accepted("NestedProductsAreNone",
                         Whitelist("<vid vendorid=\"5\"><list><pid>7</pid></list></vid>"),
                         "whitelist", {}, {}, {{5, kWhole}},
                         {"I attribute--whitelist", "I isValidNumber s--5"}),
                Accepted("LeadingZeros",
                         Whitelist("<vid vendorid=\"0046\"><pid>0000000000000000000007</pid>"
                                   "</vid>"),
                         "whitelist", {}, {}, {{46, 7}},
                         {"I attribute--whitelist", "I isValidNumber s--0046",
                          "I isValidNumber s--0000000000000000000007"}),
                Accepted("SmallestAndLargestNumbers",
                         Whitelist("<vid vendorid=\"0\"><pid>0</pid><pid>2147483647</pid></vid>"
                                   "<vid vendorid=\"2147483647\"/>"),
                         "whitelist", {}, {}, {{0, 0}, {0, INT_MAX}, {INT_MAX, kWhole}},
                         {"I attribute--whitelist", "I isValidNumber s--0", "I isValidNumber s--0",
                          "I isValidNumber s--2147483647", "I isValidNumber s--2147483647"}),
                Accepted("OtherAttributesAreIgnored",
                         "<usbconfig a=\"1\" mode=\"whitelist\" b=\"2\">"
                         "<class x=\"y\">USB_CLASS_AUDIO</class>"
                         "<vid name=\"n\" vendorid=\"5\"><pid x=\"y\">7</pid></vid></usbconfig>",
                         "whitelist", {1}, {{1, "USB_CLASS_AUDIO"}}, {{5, 7}},
                         {"I attribute--whitelist", "I class val--1", "I isValidNumber s--5",
                          "I isValidNumber s--7"})),
        NameOf);

INSTANTIATE_TEST_SUITE_P(
        Xml, LoadCaseTest,
        ::testing::Values(
                Accepted("ByteOrderMark", "\xEF\xBB\xBF" + PolicyXml("default", ""), "default", {},
                         {}, {}, {"I attribute--default"}),
                Accepted("CommentsEverywhere",
                         "<!-- a --><usbconfig mode=\"whitelist\"><!-- b -->"
                         "<class><!-- c -->USB_CLASS_AUDIO</class><!-- d --></usbconfig><!-- e -->",
                         "whitelist", {1}, {{1, "USB_CLASS_AUDIO"}}, {},
                         {"I attribute--whitelist", "I class val--1"}),
                Accepted("DocumentType",
                         "<!DOCTYPE usbconfig>" + Whitelist("<class>USB_CLASS_AUDIO</class>"),
                         "whitelist", {1}, {{1, "USB_CLASS_AUDIO"}}, {},
                         {"I attribute--whitelist", "I class val--1"}),
                Accepted("TextBesidesElements",
                         "text" + Whitelist("text<class>USB_CLASS_AUDIO</class>text"), "whitelist",
                         {1}, {{1, "USB_CLASS_AUDIO"}}, {},
                         {"I attribute--whitelist", "I class val--1"}),
                Accepted("CharacterData",
                         Whitelist("<class><![CDATA[USB_CLASS_AUDIO]]></class>"
                                   "<vid vendorid=\"5\"><pid><![CDATA[7]]></pid></vid>"),
                         "whitelist", {1}, {{1, "USB_CLASS_AUDIO"}}, {{5, 7}},
                         {"I attribute--whitelist", "I class val--1", "I isValidNumber s--5",
                          "I isValidNumber s--7"}),
                Accepted("Entities",
                         "<usbconfig mode=\"&#119;hitelist\"><class>USB&#95;CLASS_AUDI&#x4F;"
                         "</class><vid vendorid=\"&#53;\"/></usbconfig>",
                         "whitelist", {1}, {{1, "USB_CLASS_AUDIO"}}, {{5, kWhole}},
                         {"I attribute--whitelist", "I class val--1", "I isValidNumber s--5"}),
                Accepted("SingleQuotes", "<usbconfig mode='default'/>", "default", {}, {}, {},
                         {"I attribute--default"}),
                Accepted("ASecondRootIsNotRead",
                         "<usbconfig mode=\"default\"/><usbconfig mode=\"whitelist\"/>", "default",
                         {}, {}, {}, {"I attribute--default"}),
                Accepted("NothingIsReadBehindAZeroByte",
                         PolicyXml("default", "") + std::string("\0<garbage", 9), "default", {}, {},
                         {}, {"I attribute--default"}),
                // Only the text up to the first comment or element counts.
                RejectedClass("TextEndsAtAComment", "<class>USB_CLASS_<!-- c -->AUDIO</class>",
                              "INVALID CLASS VALUE:USB_CLASS_"),
                RejectedClass("ElementInFrontOfTheText", "<class><b/>USB_CLASS_AUDIO</class>",
                              "EMPTY CLASS VALUE")),
        NameOf);

INSTANTIATE_TEST_SUITE_P(
        Root, LoadCaseTest,
        ::testing::Values(
                RejectedRoot("AnotherCase", "<USBCONFIG mode=\"default\"/>",
                             "INVALID ROOT ELEMENT : USBCONFIG"),
                RejectedRoot("AnotherRootFirst", "<a/><usbconfig mode=\"default\"/>",
                             "INVALID ROOT ELEMENT : a"),
                RejectedRoot("Longer", "<usbconfigs mode=\"default\"/>",
                             "INVALID ROOT ELEMENT : usbconfigs"),
                RejectedRoot("Prefixed", "<a:usbconfig mode=\"default\"/>",
                             "INVALID ROOT ELEMENT : a:usbconfig"),
                // The XML library finds no error in a document without an element.
                RejectedRoot("CommentOnly", "<!-- nothing -->", "INVALID ROOT ELEMENT : "),
                RejectedRoot("ClosingTagOnly", "</usbconfig>", "INVALID ROOT ELEMENT : "),
                RejectedForItsMode("NoMode",
                                   "<usbconfig><class>USB_CLASS_AUDIO</class></usbconfig>",
                                   "MODE NOT PRESENT"),
                RejectedForItsMode("ModeOfAnotherCase", "<usbconfig MODE=\"default\"/>",
                                   "MODE NOT PRESENT")),
        NameOf);

INSTANTIATE_TEST_SUITE_P(
        Class, LoadCaseTest,
        ::testing::Values(
                RejectedClass("Blanks", "<class> USB_CLASS_AUDIO </class>",
                              "INVALID CLASS VALUE: USB_CLASS_AUDIO "),
                RejectedClass("Number", "<class>8</class>", "INVALID CLASS VALUE:8"),
                RejectedClass("LowerCase", "<class>usb_class_audio</class>",
                              "INVALID CLASS VALUE:usb_class_audio"),
                RejectedClass("TwoNames", "<class>USB_CLASS_AUDIO USB_CLASS_VIDEO</class>",
                              "INVALID CLASS VALUE:USB_CLASS_AUDIO USB_CLASS_VIDEO"),
                RejectedClass("Physical", "<class>USB_CLASS_PHYSICAL</class>",
                              "INVALID CLASS VALUE:USB_CLASS_PHYSICAL"),
                RejectedClass("Empty", "<class></class>", "EMPTY CLASS VALUE"),
                RejectedClass("Closed", "<class/>", "EMPTY CLASS VALUE"),
                RejectedClass("BlanksOnly", "<class> \n </class>", "EMPTY CLASS VALUE"),
                RejectedClass("EmptyCharacterData", "<class><![CDATA[]]></class>",
                              "INVALID CLASS VALUE:"),
                RejectedClass("Restricted", "<class>USB_CLASS_HID</class>",
                              "INVALID CLASS VALUE:USB_CLASS_HID",
                              {"I Found CLASS : 3 in restricted class list"}),
                RejectedClass("ThreeHundredCharacters",
                              "<class>" + std::string(300, 'A') + "</class>",
                              "INVALID CLASS VALUE:" + std::string(300, 'A')),
                RejectedClass("WhatWasReadBeforeStays",
                              "<class>USB_CLASS_AUDIO</class><vid vendorid=\"5\"/>"
                              "<class>8</class><class>USB_CLASS_VIDEO</class>",
                              "INVALID CLASS VALUE:8", {"I class val--1", "I isValidNumber s--5"},
                              {{1}, {{1, "USB_CLASS_AUDIO"}}, {{5, kWhole}}}),
                Rejected("UnknownTag", Whitelist("<unknown>x</unknown>"), "INVALID TAG:unknown",
                         "error in class value= ", {}),
                Rejected("TagOfAnotherCase", Whitelist("<Class>USB_CLASS_AUDIO</Class>"),
                         "INVALID TAG:Class", "error in class value= ", {}),
                Rejected("ProductWithoutVendor", Whitelist("<pid>5</pid>"), "INVALID TAG:pid",
                         "error in class value= ", {}),
                Rejected("LongTag", Whitelist("<" + std::string(300, 't') + "/>"),
                         "INVALID TAG:" + std::string(300, 't'), "error in class value= ", {}),
                Rejected("UnknownTagAfterRules",
                         Whitelist("<class>USB_CLASS_AUDIO</class><vid vendorid=\"5\"><pid>7</pid>"
                                   "</vid><x/>"),
                         "INVALID TAG:x", "error in class value= ",
                         {"I class val--1", "I isValidNumber s--5", "I isValidNumber s--7"},
                         {{1}, {{1, "USB_CLASS_AUDIO"}}, {{5, 7}}})),
        NameOf);

INSTANTIATE_TEST_SUITE_P(
        Vendor, LoadCaseTest,
        ::testing::Values(
                Rejected("NoId", Whitelist("<vid><pid>7</pid></vid>"), "vendorid TAG NOT PRESENT",
                         "error in ATTRIBUTE value= ", {}),
                Rejected("IdOfAnotherCase", Whitelist("<vid vendorId=\"5\"/>"),
                         "vendorid TAG NOT PRESENT", "error in ATTRIBUTE value= ", {}),
                RejectedVendor("EmptyId", "<vid vendorid=\"\"/>", "EMPTY VENDOR ID VALUE",
                               {"I isValidNumber s--"}),
                RejectedVendor("Hexadecimal", "<vid vendorid=\"0x046d\"/>",
                               "INVALID VENDOR ID VALUE:0x046d", {"I isValidNumber s--0x046d"}),
                RejectedVendor("Negative", "<vid vendorid=\"-1\"/>", "INVALID VENDOR ID VALUE:-1",
                               {"I isValidNumber s---1"}),
                RejectedVendor("Blanks", "<vid vendorid=\" 5 \"/>", "INVALID VENDOR ID VALUE: 5 ",
                               {"I isValidNumber s-- 5 "}),
                RejectedVendor("BlankOnly", "<vid vendorid=\" \"/>",
                               "INVALID VENDOR ID VALUE: ", {"I isValidNumber s-- "}),
                RejectedVendor("OneTooLarge", "<vid vendorid=\"2147483648\"/>",
                               "INVALID VENDOR ID VALUE:2147483648",
                               {"I isValidNumber s--2147483648"}),
                RejectedVendor("WrapsToOne", "<vid vendorid=\"4294967297\"/>",
                               "INVALID VENDOR ID VALUE:4294967297",
                               {"I isValidNumber s--4294967297"}),
                RejectedVendor("WrapsToOneIn64Bits", "<vid vendorid=\"18446744073709551617\"/>",
                               "INVALID VENDOR ID VALUE:18446744073709551617",
                               {"I isValidNumber s--18446744073709551617"}),
                RejectedVendor("HundredDigits", "<vid vendorid=\"" + std::string(100, '9') + "\"/>",
                               "INVALID VENDOR ID VALUE:" + std::string(100, '9'),
                               {"I isValidNumber s--" + std::string(100, '9')}),
                RejectedVendor("LeadingZerosOneTooLarge", "<vid vendorid=\"00002147483648\"/>",
                               "INVALID VENDOR ID VALUE:00002147483648",
                               {"I isValidNumber s--00002147483648"}),
                // The products of a vendor whose id is invalid are not looked at.
                RejectedVendor("InvalidIdBeforeInvalidProduct", "<vid vendorid=\"x\"><pid/></vid>",
                               "INVALID VENDOR ID VALUE:x", {"I isValidNumber s--x"})),
        NameOf);

INSTANTIATE_TEST_SUITE_P(
        Product, LoadCaseTest,
        ::testing::Values(
                RejectedProduct("Empty", "<vid vendorid=\"5\"><pid></pid></vid>",
                                "EMPTY PRODUCT ID VALUE", {"I isValidNumber s--5"}),
                RejectedProduct("BlanksOnly", "<vid vendorid=\"5\"><pid>  </pid></vid>",
                                "EMPTY PRODUCT ID VALUE", {"I isValidNumber s--5"}),
                RejectedProduct("EmptyCharacterData",
                                "<vid vendorid=\"5\"><pid><![CDATA[]]></pid></vid>",
                                "INVALID PRODUCT ID VALUE:",
                                {"I isValidNumber s--5", "I isValidNumber s--"}),
                RejectedProduct("Blanks", "<vid vendorid=\"5\"><pid> 7</pid></vid>",
                                "INVALID PRODUCT ID VALUE: 7",
                                {"I isValidNumber s--5", "I isValidNumber s-- 7"}),
                RejectedProduct("Hexadecimal", "<vid vendorid=\"5\"><pid>c31c</pid></vid>",
                                "INVALID PRODUCT ID VALUE:c31c",
                                {"I isValidNumber s--5", "I isValidNumber s--c31c"}),
                RejectedProduct("WholeVendorByNumber", "<vid vendorid=\"5\"><pid>-1</pid></vid>",
                                "INVALID PRODUCT ID VALUE:-1",
                                {"I isValidNumber s--5", "I isValidNumber s---1"}),
                RejectedProduct("OneTooLarge", "<vid vendorid=\"5\"><pid>2147483648</pid></vid>",
                                "INVALID PRODUCT ID VALUE:2147483648",
                                {"I isValidNumber s--5", "I isValidNumber s--2147483648"}),
                RejectedProduct("WrapsToMinusOne",
                                "<vid vendorid=\"5\"><pid>4294967295</pid></vid>",
                                "INVALID PRODUCT ID VALUE:4294967295",
                                {"I isValidNumber s--5", "I isValidNumber s--4294967295"}),
                RejectedProduct(
                        "HundredDigits",
                        "<vid vendorid=\"5\"><pid>" + std::string(100, '1') + "</pid></vid>",
                        "INVALID PRODUCT ID VALUE:" + std::string(100, '1'),
                        {"I isValidNumber s--5", "I isValidNumber s--" + std::string(100, '1')}),
                RejectedProduct("PairsBeforeAnErrorStay",
                                "<vid vendorid=\"5\"><pid>7</pid><pid>8</pid><other>x</other>"
                                "<pid>9</pid></vid>",
                                "INVALID PRODUCT ID VALUE:x",
                                {"I isValidNumber s--5", "I isValidNumber s--7",
                                 "I isValidNumber s--8", "I isValidNumber s--x"},
                                {{5, 7}, {5, 8}}),
                RejectedProduct("EmptySiblingOfAProduct",
                                "<vid vendorid=\"5\"><pid>7</pid><other/></vid>",
                                "EMPTY PRODUCT ID VALUE",
                                {"I isValidNumber s--5", "I isValidNumber s--7"}, {{5, 7}})),
        NameOf);

}  // namespace
}  // namespace android::vus
