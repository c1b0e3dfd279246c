// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/render.h"

#include <algorithm>
#include <array>
#include <utility>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

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

constexpr size_t kColumns = 7;
constexpr size_t kGap = 2;
// The columns that may be cut short, and to what at least.
constexpr size_t kClassesColumn = 4, kNameColumn = 5, kReasonColumn = 6;
constexpr size_t kLeastClasses = 9, kLeastName = 8, kLeastReason = 8;

using Row = std::array<std::string, kColumns>;
using Widths = std::array<size_t, kColumns>;

// The classes of the interfaces; of an input device its source bits.
std::string classes_of(const DeviceInfo& device) {
    if (device.deviceType != 0) {
        return StringPrintf("0x%x", static_cast<uint32_t>(device.deviceClass));
    }
    return device.interfaceClassList.empty() ? "none" : base::Join(device.interfaceClassList, ',');
}

Row row_of(const DeviceInfo& device) {
    return {std::to_string(device.deviceId),
            device.deviceType == 0 ? "usb" : "input",
            StringPrintf("%04x:%04x", device.vendorId & 0xFFFF, device.productId & 0xFFFF),
            device.status == 1 ? "allowed" : "refused",
            classes_of(device),
            printable(device.deviceName),
            printable(device.reason)};
}

Widths widths_of(const std::vector<Row>& rows) {
    Widths widths = {};
    for (const Row& row : rows) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], character_count(row[column]));
        }
    }
    return widths;
}

// Takes from the columns that may be cut until they fit, from the last one first.
void fit(Widths* widths, size_t width) {
    size_t sum = kGap * (kColumns - 1);
    for (const size_t each : *widths) sum += each;
    const std::pair<size_t, size_t> least[] = {{kReasonColumn, 3 * kLeastReason},
                                               {kNameColumn, kLeastName},
                                               {kClassesColumn, kLeastClasses},
                                               {kReasonColumn, kLeastReason}};
    for (const auto& [column, at_least] : least) {
        const size_t now = (*widths)[column];
        if (sum <= width || now <= at_least) continue;
        const size_t cut = std::min(sum - width, now - at_least);
        (*widths)[column] -= cut;
        sum -= cut;
    }
}

// Widths are in characters; printf() would count bytes.
std::string line_of(const Row& row, const Widths& widths) {
    std::string line;
    for (size_t column = 0; column < row.size(); ++column) {
        const std::string cell = shortened(row[column], widths[column]);
        line += cell + std::string(widths[column] - character_count(cell) + kGap, ' ');
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
    return json_escaped_controls(json + "\"");
}

std::string text_table(const std::vector<DeviceInfo>& devices, size_t width) {
    std::vector<Row> rows = {{"ID", "TYPE", "DEVICE", "STATUS", "CLASSES", "NAME", "REASON"}};
    for (const DeviceInfo& device : devices) rows.push_back(row_of(device));
    Widths widths = widths_of(rows);
    if (width > 0) fit(&widths, width);
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
