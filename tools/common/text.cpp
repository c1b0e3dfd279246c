// SPDX-License-Identifier: Apache-2.0

#include "tools/common/text.h"

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <iterator>
#include <sstream>

namespace android::vus {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

unsigned char byte_at(const std::string& text, size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Overlong forms, surrogates, and what lies beyond U+10FFFF.
bool is_forbidden_pair(unsigned char lead, unsigned char second) {
    return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
           (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
}

// The character at `at` of a valid text.
uint32_t code_point(const std::string& text, size_t at) {
    const size_t length = utf8_length(text, at);
    if (length == 1) return byte_at(text, at);
    uint32_t code = byte_at(text, at) & (0xFFU >> (length + 1));
    for (size_t next = at + 1; next < at + length; ++next) {
        code = code << 6 | (byte_at(text, next) & 0x3F);
    }
    return code;
}

struct Range {
    uint32_t first, last;
};

// Controls of C0 and C1; the Arabic letter mark; direction marks; the separators of lines and
// paragraphs, embeddings and overrides; isolates.
constexpr Range kRuling[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x61C, 0x61C},
                             {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};

bool rules_others(uint32_t code) {
    return std::any_of(std::begin(kRuling), std::end(kRuling), [code](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

}  // namespace

size_t utf8_length(const std::string& text, size_t at) {
    const unsigned char lead = byte_at(text, at);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (at + length > text.size() || is_forbidden_pair(lead, byte_at(text, at + 1))) return 0;
    for (size_t next = at + 1; next < at + length; ++next) {
        if (!is_continuation(byte_at(text, next))) return 0;
    }
    return length;
}

std::string valid_utf8(const std::string& text) {
    std::string valid;
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        valid += length == 0 ? kReplacement : text.substr(at, length);
        at += std::max<size_t>(length, 1);
    }
    return valid;
}

std::string printable(const std::string& text) {
    const std::string valid = valid_utf8(text);
    std::string clean;
    for (size_t at = 0; at < valid.size();) {
        const size_t length = utf8_length(valid, at);
        clean += rules_others(code_point(valid, at)) ? "?" : valid.substr(at, length);
        at += length;
    }
    return clean;
}

std::string json_escaped_controls(const std::string& json) {
    std::string clean;
    for (size_t at = 0; at < json.size();) {
        const size_t length = std::max<size_t>(utf8_length(json, at), 1);
        const uint32_t code = code_point(json, at);
        if (code != '\n' && rules_others(code)) {
            char escape[7];
            snprintf(escape, sizeof(escape), "\\u%04x", code & 0xFFFF);
            clean += escape;
        } else {
            clean += json.substr(at, length);
        }
        at += length;
    }
    return clean;
}

std::string shortened(const std::string& text, size_t width) {
    constexpr size_t kDots = 3;
    if (character_count(text) <= width) return text;
    std::string cut;
    size_t left = width > kDots ? width - kDots : 0;
    for (size_t at = 0; left > 0 && at < text.size(); --left) {
        const size_t length = std::max<size_t>(utf8_length(text, at), 1);
        cut += text.substr(at, length);
        at += length;
    }
    return cut + std::string(std::min(width, kDots), '.');
}

size_t character_count(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return !is_continuation(static_cast<unsigned char>(byte));
    }));
}

std::string wrapped(const std::string& text, size_t indent, size_t width) {
    std::string lines, line;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!line.empty() && indent + character_count(line) + 1 + character_count(word) > width) {
            lines += std::string(indent, ' ') + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return line.empty() ? lines : lines + std::string(indent, ' ') + line + "\n";
}

}  // namespace android::vus
