// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/names.h"

#include <stdint.h>

#include <algorithm>

#include "tools/common/text.h"

namespace android::vus::hotplug {

namespace {

// What a USB string descriptor holds. Names of input devices have no such bound.
constexpr size_t kMaxCharacters = 126;
constexpr char kCut[] = "...";

struct Range {
    uint32_t first, last;
};

// Control characters aside, what Unicode calls formats, separators of lines, fillers without ink
// and selectors of variants.
constexpr Range kUnseen[] = {
        {0x00AD, 0x00AD},    // soft hyphen
        {0x034F, 0x034F},    // grapheme joiner
        {0x061C, 0x061C},    // Arabic letter mark
        {0x115F, 0x1160},    // Hangul fillers
        {0x17B4, 0x17B5},    // Khmer vowels without ink
        {0x180B, 0x180F},    // Mongolian selectors and vowel separator
        {0x200B, 0x200F},    // zero width, and the marks of direction
        {0x2028, 0x202E},    // separators, embeddings and overrides of direction
        {0x2060, 0x206F},    // word joiner, isolates, deprecated formats
        {0x3164, 0x3164},    // Hangul filler
        {0xFE00, 0xFE0F},    // selectors
        {0xFEFF, 0xFEFF},    // byte order mark
        {0xFFA0, 0xFFA0},    // half-width Hangul filler
        {0xFFF0, 0xFFFB},    // interlinear annotation
        {0xE0000, 0xE0FFF},  // tags, and more selectors
};

// The character of `text`, which is valid, at `at`.
uint32_t code_point(const std::string& text, size_t at, size_t length) {
    constexpr uint32_t kLeadMasks[] = {0x7F, 0x7F, 0x1F, 0x0F, 0x07};
    uint32_t code = static_cast<unsigned char>(text[at]) & kLeadMasks[length];
    for (size_t next = at + 1; next < at + length; ++next) {
        code = code << 6 | (static_cast<unsigned char>(text[next]) & 0x3F);
    }
    return code;
}

bool is_unseen(uint32_t code) {
    return std::any_of(std::begin(kUnseen), std::end(kUnseen), [code](const Range& range) {
        return range.first <= code && code <= range.last;
    });
}

}  // namespace

std::string clean_name(const std::string& text) {
    const std::string valid = printable(text);
    std::string clean;
    size_t characters = 0;
    for (size_t at = 0; at < valid.size(); ++characters) {
        if (characters == kMaxCharacters) return clean + kCut;
        const size_t length = utf8_length(valid, at);
        clean += is_unseen(code_point(valid, at, length)) ? "?" : valid.substr(at, length);
        at += length;
    }
    return clean;
}

}  // namespace android::vus::hotplug
