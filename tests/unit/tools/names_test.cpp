// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/names.h"

#include <gtest/gtest.h>

namespace android::vus::hotplug {
namespace {

std::string Times(int count, const std::string& text) {
    std::string all;
    for (int time = 0; time < count; ++time) all += text;
    return all;
}

TEST(CleanName, KeepsWhatPeopleRead) {
    for (const char* name :
         {"", "Flash Disk", "Clé USB", "\xE6\x97\xA5\xE6\x9C\xAC", "\xF0\x9F\x96\xB1"}) {
        EXPECT_EQ(clean_name(name), name);
    }
}

TEST(CleanName, HasNoControlCharacters) {
    EXPECT_EQ(clean_name("a\nb\x1b[2J\x7f\xC2\x9B"), "a?b?[2J??");
    EXPECT_EQ(clean_name("a\xff"), "a\xEF\xBF\xBD");
}

TEST(CleanName, HasNothingThatTurnsTheDirectionOrHasNoWidth) {
    const char* const unseen[] = {
            "\xC2\xAD",          // U+00AD
            "\xCD\x8F",          // U+034F
            "\xD8\x9C",          // U+061C
            "\xE2\x80\x8B",      // U+200B
            "\xE2\x80\x8F",      // U+200F
            "\xE2\x80\xA8",      // U+2028
            "\xE2\x80\xAA",      // U+202A
            "\xE2\x80\xAE",      // U+202E
            "\xE2\x81\xA0",      // U+2060
            "\xE2\x81\xA6",      // U+2066
            "\xE2\x81\xA9",      // U+2069
            "\xEF\xB8\x8F",      // U+FE0F
            "\xEF\xBB\xBF",      // U+FEFF
            "\xF3\xA0\x81\x81",  // U+E0041
    };
    for (const std::string character : unseen) {
        EXPECT_EQ(clean_name("a" + character + "b"), "a?b");
    }
    // Their neighbours.
    for (const char* name :
         {"\xE2\x80\x8A", "\xE2\x80\x90", "\xE2\x80\xA7", "\xE2\x80\xAF", "\xE2\x81\x9F"}) {
        EXPECT_EQ(clean_name(name), name);
    }
}

TEST(CleanName, IsBounded) {
    EXPECT_EQ(clean_name(Times(126, "x")), Times(126, "x"));
    EXPECT_EQ(clean_name(Times(127, "x")), Times(126, "x") + "...");
    EXPECT_EQ(clean_name(Times(300, "\xE6\x97\xA5")), Times(126, "\xE6\x97\xA5") + "...");
}

}  // namespace
}  // namespace android::vus::hotplug
