// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/render.h"

#include <algorithm>
#include <array>

#include <android-base/stringprintf.h>

namespace android::vus::ctl {

namespace {

using base::StringPrintf;

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

bool is_control(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// How many bytes the first character of `text` at `at` takes; 0 if they are no UTF-8.
size_t utf8_length(const std::string& text, size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return 1;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || at + length > text.size()) return 0;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    // Overlong forms, surrogates, and what lies beyond U+10FFFF.
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
        (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
        return 0;
    }
    for (size_t next = at + 1; next < at + length; ++next) {
        if (!is_continuation(static_cast<unsigned char>(text[next]))) return 0;
    }
    return length;
}

std::string json_character(const std::string& text, size_t at, size_t length) {
    const char first = text[at];
    if (length == 0) return kReplacement;
    if (first == '"' || first == '\\') return std::string("\\") + first;
    if (is_control(static_cast<unsigned char>(first))) return StringPrintf("\\u%04x", first);
    return text.substr(at, length);
}

std::string json_numbers(const std::vector<int32_t>& numbers) {
    std::string text;
    for (const int32_t number : numbers) {
        if (!text.empty()) text += ",";
        text += std::to_string(number);
    }
    return "[" + text + "]";
}

using Row = std::array<std::string, 6>;

Row row_of(const DeviceInfo& device) {
    return {std::to_string(device.deviceId),
            device.deviceType == 0 ? "usb" : "input",
            StringPrintf("%04x:%04x", device.vendorId & 0xFFFF, device.productId & 0xFFFF),
            device.status == 1 ? "allowed" : "refused",
            printable(device.deviceName),
            printable(device.reason)};
}

std::string line_of(const Row& row, const std::array<size_t, 6>& widths) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        line += StringPrintf("%-*s  ", static_cast<int>(widths[column]), row[column].c_str());
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

}  // namespace

std::string printable(const std::string& text) {
    std::string clean = text;
    std::replace_if(
            clean.begin(), clean.end(),
            [](char c) { return is_control(static_cast<unsigned char>(c)); }, '?');
    return clean;
}

std::string json_string(const std::string& text) {
    std::string json = "\"";
    for (size_t at = 0; at < text.size();) {
        const size_t length = utf8_length(text, at);
        json += json_character(text, at, length);
        at += std::max<size_t>(length, 1);
    }
    return json + "\"";
}

std::string text_table(const std::vector<DeviceInfo>& devices) {
    std::vector<Row> rows = {{"ID", "TYPE", "DEVICE", "STATUS", "NAME", "REASON"}};
    for (const DeviceInfo& device : devices) rows.push_back(row_of(device));
    std::array<size_t, 6> widths = {};
    for (const Row& row : rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    std::string text;
    for (const Row& row : rows) text += line_of(row, widths);
    return text;
}

std::string json_object(const DeviceInfo& device) {
    return "{\"deviceId\":" + std::to_string(device.deviceId) +
           ",\"deviceName\":" + json_string(device.deviceName) +
           ",\"deviceType\":" + std::to_string(device.deviceType) +
           ",\"deviceClass\":" + std::to_string(device.deviceClass) +
           ",\"interfaceClassList\":" + json_numbers(device.interfaceClassList) +
           ",\"vendorId\":" + std::to_string(device.vendorId) +
           ",\"productId\":" + std::to_string(device.productId) +
           ",\"status\":" + std::to_string(device.status) +
           ",\"reason\":" + json_string(device.reason) +
           ",\"category\":" + std::to_string(device.category) +
           ",\"categoryPath\":" + json_string(device.categoryPath) + "}";
}

std::string json_array(const std::vector<DeviceInfo>& devices) {
    std::string text;
    for (const DeviceInfo& device : devices) {
        text += (text.empty() ? "\n" : ",\n") + json_object(device);
    }
    return "[" + text + (text.empty() ? "]\n" : "\n]\n");
}

}  // namespace android::vus::ctl
