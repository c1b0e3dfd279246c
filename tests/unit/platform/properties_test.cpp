// SPDX-License-Identifier: Apache-2.0
//
// The functions of cutils/properties.h, over the directory that the daemon uses. The test
// program's own root holds it, so that nothing of the host is read or written.
#include <errno.h>
#include <stdint.h>

#include <string>

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "tests/support/world.h"

namespace android::vus::platform {
namespace {

class PropertiesTest : public ::testing::Test {
  protected:
    void SetUp() override { EmptyWorld(); }

    static std::string Get(const char* key, const char* fallback) {
        char value[PROPERTY_VALUE_MAX];
        int length = property_get(key, value, fallback);
        std::string text = value;
        EXPECT_EQ(static_cast<int>(text.size()), length);
        return text;
    }
};

TEST_F(PropertiesTest, UnsetGivesTheDefault) {
    EXPECT_EQ("user", Get("ro.build.type", "user"));
    EXPECT_EQ("", Get("ro.build.type", nullptr));
    EXPECT_EQ(7, property_get_int32("ro.config.device.vus_automation", 7));
}

TEST_F(PropertiesTest, SetIsRead) {
    EXPECT_EQ(0, property_set("persist.vendor.monitor.undock", "true"));
    EXPECT_EQ("true", Get("persist.vendor.monitor.undock", "false"));
}

TEST_F(PropertiesTest, NullIsSetAsAnEmptyTextWhichReadsAsUnset) {
    ASSERT_EQ(0, property_set("a", "1"));
    EXPECT_EQ(0, property_set("a", nullptr));
    EXPECT_EQ("default", Get("a", "default"));
    EXPECT_EQ(3, property_get_int32("a", 3));
}

TEST_F(PropertiesTest, SetFailsWithANegativeResult) {
    EXPECT_GT(0, property_set("not a name", "1"));
    EXPECT_GT(0, property_set("a", std::string(92, 'x').c_str()));
    ASSERT_EQ(0, property_set("ro.a", "1"));
    EXPECT_GT(0, property_set("ro.a", "1"));
}

TEST_F(PropertiesTest, NeverFillsMoreThanTheBuffer) {
    ASSERT_EQ(0, property_set("ro.long", std::string(500, 'x').c_str()));
    EXPECT_EQ(std::string(91, 'x'), Get("ro.long", nullptr));
    EXPECT_EQ(std::string(91, 'd'), Get("unset", std::string(92, 'd').c_str()));
}

TEST_F(PropertiesTest, Int32) {
    struct Case {
        const char* text;
        int32_t expected;
    };
    for (const Case& c :
         {Case{"1", 1}, Case{"-1", -1}, Case{"+5", 5}, Case{"0x1F", 31}, Case{"010", 8},
          Case{"12abc", 12}, Case{" 7", 7}, Case{"2147483647", INT32_MAX},
          Case{"-2147483648", INT32_MIN}, Case{"2147483648", 99}, Case{"-2147483649", 99},
          Case{"99999999999999999999999", 99}, Case{"abc", 99}, Case{"-", 99}}) {
        ASSERT_EQ(0, property_set("a", c.text));
        EXPECT_EQ(c.expected, property_get_int32("a", 99)) << c.text;
    }
    EXPECT_EQ(99, property_get_int32(nullptr, 99));
}

TEST_F(PropertiesTest, Int64) {
    ASSERT_EQ(0, property_set("a", "9223372036854775807"));
    EXPECT_EQ(INT64_MAX, property_get_int64("a", 1));
    ASSERT_EQ(0, property_set("a", "9223372036854775808"));
    EXPECT_EQ(1, property_get_int64("a", 1));
    ASSERT_EQ(0, property_set("a", "-9223372036854775808"));
    EXPECT_EQ(INT64_MIN, property_get_int64("a", 1));
}

TEST_F(PropertiesTest, Bool) {
    for (const char* text : {"1", "y", "yes", "true", "on"}) {
        ASSERT_EQ(0, property_set("a", text));
        EXPECT_EQ(1, property_get_bool("a", 0)) << text;
    }
    for (const char* text : {"0", "n", "no", "false", "off"}) {
        ASSERT_EQ(0, property_set("a", text));
        EXPECT_EQ(0, property_get_bool("a", 1)) << text;
    }
    for (const char* text : {"", "2", "TRUE", " on", "yes "}) {
        ASSERT_EQ(0, property_set("a", text));
        EXPECT_EQ(5, property_get_bool("a", 5)) << text;
    }
    EXPECT_EQ(5, property_get_bool(nullptr, 5));
}

TEST_F(PropertiesTest, ReadingKeepsErrno) {
    errno = ENOTTY;
    property_get_int32("unset", 0);
    EXPECT_EQ(ENOTTY, errno);
}

}  // namespace
}  // namespace android::vus::platform
