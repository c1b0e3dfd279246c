// SPDX-License-Identifier: Apache-2.0

#include "tools/common/text.h"

#include <gtest/gtest.h>

namespace android::vus {
namespace {

#define REPLACED "\xEF\xBF\xBD"

struct Case {
    const char* text;
    const char* valid;
};

class ValidUtf8 : public testing::TestWithParam<Case> {};

TEST_P(ValidUtf8, ReplacesEveryByteThatIsNone) {
    EXPECT_EQ(valid_utf8(GetParam().text), GetParam().valid);
    EXPECT_EQ(valid_utf8(GetParam().valid), GetParam().valid);
}

INSTANTIATE_TEST_SUITE_P(
        Texts, ValidUtf8,
        testing::Values(Case{"", ""}, Case{"plain\n\x7f", "plain\n\x7f"},
                        Case{"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x8C",
                             "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x8C"},
                        Case{"\x80", REPLACED}, Case{"\xFF\xFE", REPLACED REPLACED},
                        Case{"\xC3", REPLACED}, Case{"\xC3(", REPLACED "("},
                        Case{"\xE2\x82", REPLACED REPLACED}, Case{"a\xE2(b", "a" REPLACED "(b"},
                        Case{"\xC0\xAF", REPLACED REPLACED},               // overlong
                        Case{"\xC1\xBF", REPLACED REPLACED},               // overlong
                        Case{"\xE0\x9F\xBF", REPLACED REPLACED REPLACED},  // overlong
                        Case{"\xE0\xA0\x80", "\xE0\xA0\x80"},              // the first of three
                        Case{"\xED\x9F\xBF", "\xED\x9F\xBF"},              // before the surrogates
                        Case{"\xED\xA0\x80", REPLACED REPLACED REPLACED},  // a surrogate
                        Case{"\xF0\x8F\xBF\xBF", REPLACED REPLACED REPLACED REPLACED},
                        Case{"\xF0\x90\x80\x80", "\xF0\x90\x80\x80"},  // the first of four
                        Case{"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},  // the last one
                        Case{"\xF4\x90\x80\x80", REPLACED REPLACED REPLACED REPLACED},
                        Case{"\xF5\x80\x80\x80", REPLACED REPLACED REPLACED REPLACED}));

TEST(Printable, HasNoControlCharacter) {
    EXPECT_EQ(printable("a\tb\nc\x1b[31m\x7f"), "a?b?c?[31m?");
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a?b");
    EXPECT_EQ(printable("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0\xC3\x9B"), "???\xC2\xA0\xC3\x9B");
    EXPECT_EQ(printable("\x9B"
                        "31m"),
              REPLACED "31m");
}

TEST(CharacterCount, CountsCharactersAndNotBytes) {
    EXPECT_EQ(character_count(""), 0u);
    EXPECT_EQ(character_count("abc"), 3u);
    EXPECT_EQ(character_count("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x8C"), 3u);
}

}  // namespace
}  // namespace android::vus
