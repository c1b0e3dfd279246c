// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/render.h"

#include <algorithm>
#include <array>

#include <android-base/stringprintf.h>

#include "tools/common/text.h"

namespace android::vus::ctl {

namespace {

using base::StringPrintf;

// The character of a valid text at `at`, as it stands in a JSON string.
std::string json_character(const std::string& text, size_t at) {
    const char first = text[at];
    if (first == '"' || first == '\\') return std::string("\\") + first;
    if (static_cast<unsigned char>(first) < 0x20 || first == 0x7F) {
        return StringPrintf("\\u%04x", first);
    }
    return text.substr(at, utf8_length(text, at));
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

// Widths are in characters; printf() would count bytes.
std::string line_of(const Row& row, const std::array<size_t, 6>& widths) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        line += row[column] + std::string(widths[column] - character_count(row[column]) + 2, ' ');
    }
    return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

}  // namespace

std::string json_string(const std::string& text) {
    const std::string valid = valid_utf8(text);
    std::string json = "\"";
    for (size_t at = 0; at < valid.size(); at += utf8_length(valid, at)) {
        json += json_character(valid, at);
    }
    return json + "\"";
}

std::string text_table(const std::vector<DeviceInfo>& devices) {
    std::vector<Row> rows = {{"ID", "TYPE", "DEVICE", "STATUS", "NAME", "REASON"}};
    for (const DeviceInfo& device : devices) rows.push_back(row_of(device));
    std::array<size_t, 6> widths = {};
    for (const Row& row : rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], character_count(row[column]));
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
