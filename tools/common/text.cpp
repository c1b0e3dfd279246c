// SPDX-License-Identifier: Apache-2.0

#include "tools/common/text.h"

#include <algorithm>

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

// `text` is valid UTF-8, so that U+0080 to U+009F are the two bytes C2 80 to C2 9F.
bool is_control(const std::string& text, size_t at) {
    const unsigned char first = byte_at(text, at);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && byte_at(text, at + 1) < 0xA0);
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
        clean += is_control(valid, at) ? "?" : valid.substr(at, length);
        at += length;
    }
    return clean;
}

size_t character_count(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return !is_continuation(static_cast<unsigned char>(byte));
    }));
}

}  // namespace android::vus
