// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/workbench/json.h"

namespace android::vus::workbench {
namespace {

using testing::ElementsAre;

struct NumberCase {
    const char* text;
    std::optional<int32_t> number;
};

class ParseNumber : public testing::TestWithParam<NumberCase> {};

TEST_P(ParseNumber, TakesDecimalAndHexadecimal) {
    EXPECT_EQ(parseNumber(GetParam().text), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(
        Texts, ParseNumber,
        testing::Values(NumberCase{"0", 0}, NumberCase{"007", 7},
                        NumberCase{"2147483647", 2147483647}, NumberCase{"2147483648", {}},
                        NumberCase{"-1", -1}, NumberCase{"-2147483648", INT32_MIN},
                        NumberCase{"-2147483649", {}}, NumberCase{"0x046d", 1133},
                        NumberCase{"0X1F", 31}, NumberCase{"0xFFFFFFFF", -1},
                        NumberCase{"0x100000000", {}}, NumberCase{"0x", {}}, NumberCase{"0x-5", {}},
                        NumberCase{"0X-5", {}}, NumberCase{"", {}}, NumberCase{"+1", {}},
                        NumberCase{" 1", {}}, NumberCase{"1 ", {}}, NumberCase{"1a", {}},
                        NumberCase{"046d", {}}, NumberCase{"99999999999999999999", {}}));

Device Disk() {
    Device device;
    device.claim = {0, {8, 255}, 0x951, 0x1666};
    device.id = 1005;
    device.name = "Flash Disk";
    return device;
}

Device Keyboard() {
    Device device;
    device.type = DeviceType::kInput;
    device.claim = {0x101, {}, 0x46d, 0xc31c};
    return device;
}

TEST(Device, IsDescribedOnOneLine) {
    EXPECT_EQ(describe(Disk()), "usb 0951:1666 interfaces 8,255 \"Flash Disk\"");
    EXPECT_EQ(describe(Keyboard()), "input 046d:c31c sources 0x101");
    Device hostile;
    hostile.claim.vendorId = 70000;
    hostile.vendorHid = true;
    hostile.name = "\x1b[2J\xE2\x80\xAE";
    EXPECT_EQ(describe(hostile), "usb 11170:0000 no interfaces vendor HID \"?[2J?\"");
}

TEST(Device, OptionsDescribeTheSameDevice) {
    Device hid;
    hid.claim = {0, {3}, 0xFFFF, 0};
    hid.vendorHid = true;
    Device bare;
    bare.claim = {9, {}, 1, 2};
    Device disk = Disk();
    disk.id.reset();
    disk.name.clear();
    for (const Device& device : {disk, Keyboard(), hid, bare}) {
        std::vector<std::string> words;
        std::istringstream stream(optionsOf(device));
        for (std::string word; stream >> word;) words.push_back(word);
        std::string error;
        const auto again = parseDevice(words, &error);
        ASSERT_TRUE(again) << error;
        EXPECT_EQ(*again, device) << optionsOf(device);
    }
    EXPECT_EQ(optionsOf(disk), "--vid 0x0951 --pid 0x1666 --interfaces 8,255");
}

TEST(Device, IsScreenedAsTheDaemonScreens) {
    Device device;
    device.claim.interfaceClasses = {3, 8};
    EXPECT_EQ(screeningOf(device), Screening::kJudged);
    for (const std::vector<int32_t>& only_hid : {std::vector<int32_t>{3, 3}, {}}) {
        device.claim.interfaceClasses = only_hid;
        device.vendorHid.reset();
        EXPECT_EQ(screeningOf(device), Screening::kUnknown);
        device.vendorHid = false;
        EXPECT_EQ(screeningOf(device), Screening::kLeftToInput);
        device.vendorHid = true;
        EXPECT_EQ(screeningOf(device), Screening::kJudged);
    }
    EXPECT_EQ(screeningOf(Keyboard()), Screening::kJudged);
}

TEST(DeviceJson, GoesRound) {
    Device device = Disk();
    device.vendorHid = false;
    device.vendorName = "Maker";
    device.productName = "Disk";
    device.serial = "0001";
    for (const Device& each : {device, Keyboard(), Disk()}) {
        std::string error;
        const auto again = deviceFromJson(toJson(each), &error);
        ASSERT_TRUE(again) << error;
        EXPECT_EQ(*again, each);
    }
    EXPECT_EQ(toJsonLine(toJson(Disk())),
              "{\"deviceClass\":0,\"deviceId\":1005,\"deviceName\":\"Flash Disk\",\"deviceType\":0,"
              "\"interfaceClassList\":[8,255],\"productId\":5734,\"vendorId\":2385}");
}

TEST(DeviceJson, IsFitForATerminal) {
    Device device;
    device.name = "\x1b[2J\x7f\xE2\x80\xAE\xC2\x9B\xFF";
    EXPECT_THAT(toJsonLine(toJson(device)),
                testing::HasSubstr(
                        "\"deviceName\":\"\\u001b[2J\\u007f\\u202e\\u009b\xEF\xBF\xBD\""));
}

TEST(DeviceJson, TakesNumbersAsPeopleWriteThem) {
    std::string error;
    int line = 0;
    const auto value = parseJson(R"({"deviceType": 0, "vendorId": "0x0951", "productId": "5734",
                                     "interfaceClassList": ["USB_CLASS_AUDIO", "0xff", 3],
                                     "status": 1, "category": {"other": []}})",
                                 &error, &line);
    ASSERT_TRUE(value) << error;
    const auto device = deviceFromJson(*value, &error);
    ASSERT_TRUE(device) << error;
    EXPECT_EQ(device->claim.vendorId, 0x951);
    EXPECT_EQ(device->claim.productId, 5734);
    EXPECT_THAT(device->claim.interfaceClasses, ElementsAre(1, 255, 3));
}

std::string ErrorOf(const std::string& text) {
    std::string error;
    int line = 0;
    const auto value = parseJson(text, &error, &line);
    if (value) {
        EXPECT_FALSE(deviceFromJson(*value, &error));
    }
    return error;
}

TEST(DeviceJson, SaysWhatIsWrong) {
    EXPECT_EQ(ErrorOf("[]"), "a device has to be an object");
    EXPECT_EQ(ErrorOf("{}"), "deviceType is missing");
    EXPECT_EQ(ErrorOf("{\"deviceType\":2}"), "deviceType is neither 0 (USB) nor 1 (input)");
    EXPECT_EQ(ErrorOf("{\"deviceType\":0}"), "vendorId is missing");
    EXPECT_EQ(ErrorOf("{\"deviceType\":0,\"vendorId\":\"1x\"}"),
              "vendorId is not a number of 32 bits");
    EXPECT_EQ(ErrorOf("{\"deviceType\":0,\"vendorId\":4294967296}"),
              "vendorId is not a number of 32 bits");
    EXPECT_EQ(ErrorOf("{\"deviceType\":0,\"vendorId\":1,\"productId\":1}"),
              "interfaceClassList is missing");
    EXPECT_EQ(ErrorOf("{\"deviceType\":1,\"vendorId\":1,\"productId\":1}"),
              "deviceClass is missing");
    const std::string begin = "{\"deviceType\":0,\"vendorId\":1,\"productId\":1,";
    EXPECT_EQ(ErrorOf(begin + "\"interfaceClassList\":8}"), "interfaceClassList is not a list");
    EXPECT_EQ(ErrorOf(begin + "\"interfaceClassList\":[\"HID\"]}"),
              "interfaceClassList holds what is no class");
    EXPECT_EQ(ErrorOf(begin + "\"interfaceClassList\":[],\"deviceName\":1}"),
              "deviceName is not a text");
    EXPECT_EQ(ErrorOf(begin + "\"interfaceClassList\":[],\"vendorHid\":1}"),
              "vendorHid is neither true nor false");
}

TEST(ParseJson, SaysWhereAndWhat) {
    std::string error;
    int line = 7;
    EXPECT_FALSE(parseJson("{\n\"a\":\n]}", &error, &line));
    EXPECT_EQ(line, 2);
    EXPECT_EQ(error, "Syntax error: value, object or array expected.");
    EXPECT_FALSE(parseJson("{\"a\":1,\"a\":2}", &error, &line));
    EXPECT_EQ(line, 0);
    EXPECT_EQ(error, "Duplicate key: 'a'");
    EXPECT_FALSE(parseJson("{} x", &error, &line));
    EXPECT_EQ(error, "Extra non-whitespace after JSON value.");
    EXPECT_FALSE(parseJson(std::string(100000, '['), &error, &line));
    EXPECT_EQ(error, "nested too deeply");
    EXPECT_FALSE(parseJson("", &error, &line));
}

}  // namespace
}  // namespace android::vus::workbench
