// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace android::vus::ctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ParseDevice, TakesEveryWord) {
    std::string error;
    const auto info =
            parse_device({"--input", "--id", "7", "--name", "My device", "--class", "0x2103",
                          "--interfaces", "8,0xff", "--vid", "1133", "--pid", "0xC31C"},
                         &error);
    ASSERT_TRUE(info) << error;
    EXPECT_EQ(info->deviceType, 1);
    EXPECT_EQ(info->deviceId, 7);
    EXPECT_EQ(info->deviceName, "My device");
    EXPECT_EQ(info->deviceClass, 0x2103);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(8, 255));
    EXPECT_EQ(info->vendorId, 1133);
    EXPECT_EQ(info->productId, 0xC31C);
}

TEST(ParseDevice, IsUsbDeviceCalledAfterTheToolByDefault) {
    std::string error;
    const auto info = parse_device({}, &error);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->deviceType, 0);
    EXPECT_EQ(info->deviceName, "vusctl");
    EXPECT_THAT(info->interfaceClassList, IsEmpty());
}

TEST(ParseDevice, LastWordCounts) {
    std::string error;
    const auto info =
            parse_device({"--input", "--usb", "--interfaces", "1,2", "--interfaces", "3"}, &error);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->deviceType, 0);
    EXPECT_THAT(info->interfaceClassList, ElementsAre(3));
}

TEST(ParseDevice, EmptyListIsNoInterface) {
    std::string error;
    EXPECT_THAT(parse_device({"--interfaces", ""}, &error)->interfaceClassList, IsEmpty());
}

std::string ErrorOf(const Words& words) {
    std::string error;
    EXPECT_FALSE(parse_device(words, &error));
    return error;
}

TEST(ParseDevice, SaysWhatIsWrong) {
    EXPECT_EQ(ErrorOf({"--vendor", "1"}), "unknown argument: --vendor");
    EXPECT_EQ(ErrorOf({"8"}), "unknown argument: 8");
    EXPECT_EQ(ErrorOf({"--vid"}), "--vid needs a value");
    EXPECT_EQ(ErrorOf({"--usb", "--interfaces"}), "--interfaces needs a value");
    EXPECT_EQ(ErrorOf({"--vid", "046d"}), "--vid: not a number: 046d");
    EXPECT_EQ(ErrorOf({"--vid", "0403"}),
              "--vid: 0403 has a leading zero: write 0x0403 for hexadecimal, or 403 for decimal");
    EXPECT_EQ(ErrorOf({"--interfaces", "8,03"}),
              "--interfaces: 03 has a leading zero: write 0x03 for hexadecimal, or 3 for decimal");
    EXPECT_EQ(ErrorOf({"--interfaces", "8,"}), "--interfaces: not a number: 8,");
    EXPECT_EQ(ErrorOf({"--interfaces", "8;3"}), "--interfaces: not a number: 8;3");
}

}  // namespace
}  // namespace android::vus::ctl
