// SPDX-License-Identifier: Apache-2.0
//
// What is told of a device, as a line.

#include "tools/hotplug/exposure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/workbench/json.h"

namespace android::vus::hotplug {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

TEST(ExposureLine, IsJsonWhateverTheDeviceIsCalled) {
    Exposure exposure;
    exposure.entry = "1-5";
    exposure.id = 1007;
    exposure.is_usb = true;
    exposure.vendor = 0x403;
    exposure.name = "\"}\n\\ \x1b[2J\xe2\x80\xae\xff\xc3\xa4" + std::string(5000, 'x');
    exposure.appeared = {milliseconds(61001),
                         std::chrono::system_clock::from_time_t(1'700'000'000) + milliseconds(7)};
    exposure.verdict = MeteredVerdict::kRefused;
    exposure.verdict_after = std::chrono::microseconds(12345);
    exposure.exposed = milliseconds(80);
    exposure.drivers = {{"ftdi_sio", milliseconds(80)}};
    exposure.on = exposure.held = true;
    const std::string json = to_json(exposure);
    std::string error;
    int line = 0;
    const auto value = workbench::parseJson(json, &error, &line);
    ASSERT_TRUE(value) << error;
    EXPECT_EQ((*value)["time"].asString(), "2023-11-14T22:13:20.007Z");
    EXPECT_EQ((*value)["uptimeMs"].asDouble(), 61001);
    EXPECT_EQ((*value)["verdict"].asString(), "refused");
    EXPECT_EQ((*value)["verdictMs"].asDouble(), 12.345);
    EXPECT_EQ((*value)["exposedMs"].asDouble(), 80);
    EXPECT_EQ((*value)["drivers"][0]["driver"].asString(), "ftdi_sio");
    EXPECT_TRUE((*value)["on"].asBool());
    EXPECT_FALSE(value->isMember("gone"));
    EXPECT_FALSE(value->isMember("driverMs"));
    EXPECT_THAT((*value)["deviceName"].asString(), HasSubstr("\"}?\\ ?[2J?"));
    EXPECT_EQ(json.find('\n'), std::string::npos);
    exposure.unmeasured = Unmeasured::kLost;
    EXPECT_THAT(to_json(exposure), HasSubstr("\"notMeasured\":\"lost\""));
    EXPECT_THAT(to_json(exposure), Not(HasSubstr("exposedMs")));
}

TEST(PresentMoment, IsBySystemClocks) {
    const Moment one = present_moment();
    const Moment other = present_moment();
    EXPECT_LE(one.up, other.up);
    EXPECT_GT(one.up.count(), 0);
    EXPECT_GT(one.wall.time_since_epoch().count(), 0);
}

}  // namespace
}  // namespace android::vus::hotplug
