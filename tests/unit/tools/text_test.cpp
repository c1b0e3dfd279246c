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

// U+061C, U+200E, U+2028, U+202E (right-to-left override), U+2066, U+2069.
TEST(Printable, HasNoMarkThatTurnsOrBreaksALine) {
    EXPECT_EQ(printable("a\xD8\x9C"
                        "b\xE2\x80\x8E"
                        "c\xE2\x80\xA8"
                        "d\xE2\x80\xAE"
                        "e\xE2\x81\xA6"
                        "f\xE2\x81\xA9"
                        "g"),
              "a?b?c?d?e?f?g");
    // Their neighbours stay: U+061B, U+200D, U+2027, U+202F, U+2065's neighbour U+2064, U+206A.
    const std::string neighbours =
            "\xD8\x9B\xE2\x80\x8D\xE2\x80\xA7\xE2\x80\xAF\xE2\x81\xA4\xE2\x81\xAA";
    EXPECT_EQ(printable(neighbours), neighbours);
    // Arabic and Hebrew letters themselves are no marks, and four bytes are no control.
    EXPECT_EQ(printable("\xD7\x90\xD8\xA7\xF0\x9F\x94\x8C"), "\xD7\x90\xD8\xA7\xF0\x9F\x94\x8C");
}

TEST(JsonEscapedControls, EscapesWhatATerminalWouldObey) {
    EXPECT_EQ(json_escaped_controls("{\"a\":\"\x7f\xC2\x9B\xE2\x80\xAE\xC3\xA4\"}\n"),
              "{\"a\":\"\\u007f\\u009b\\u202e\xC3\xA4\"}\n");
}

TEST(Shortened, CutsCharactersAndNotBytes) {
    EXPECT_EQ(shortened("abcdef", 6), "abcdef");
    EXPECT_EQ(shortened("abcdefg", 6), "abc...");
    EXPECT_EQ(shortened("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\xA4\xC3\xB6", 4), "\xC3\xA4...");
    EXPECT_EQ(shortened("abcdef", 2), "..");
    EXPECT_EQ(shortened("abcdef", 0), "");
}

TEST(Wrapped, BreaksBetweenWords) {
    EXPECT_EQ(wrapped("one two three", 2, 9), "  one two\n  three\n");
    EXPECT_EQ(wrapped("one two three", 2, 8), "  one\n  two\n  three\n");
    EXPECT_EQ(wrapped("a much-too-long b", 0, 5), "a\nmuch-too-long\nb\n");
    EXPECT_EQ(wrapped("\xC3\xA4\xC3\xB6 \xC3\xBC", 0, 4), "\xC3\xA4\xC3\xB6 \xC3\xBC\n");
    EXPECT_EQ(wrapped("", 2, 9), "");
}

TEST(CharacterCount, CountsCharactersAndNotBytes) {
    EXPECT_EQ(character_count(""), 0u);
    EXPECT_EQ(character_count("abc"), 3u);
    EXPECT_EQ(character_count("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x94\x8C"), 3u);
}

}  // namespace
}  // namespace android::vus
