// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/arguments.h"

#include <charconv>
#include <limits>
#include <map>

#include <android-base/strings.h>

namespace android::vus::ctl {

namespace {

// "8,255" to {8, 255}; an empty text is no interface at all.
bool parse_list(const std::string& text, std::vector<int32_t>* numbers) {
    numbers->clear();
    if (text.empty()) return true;
    for (const std::string& piece : base::Split(text, ",")) {
        const auto number = parse_number(piece);
        if (!number) return false;
        numbers->push_back(*number);
    }
    return true;
}

int32_t DeviceInfo::*const kNoField = nullptr;

int32_t DeviceInfo::*number_field(const std::string& word) {
    static const std::map<std::string, int32_t DeviceInfo::*> fields = {
            {"--id", &DeviceInfo::deviceId},
            {"--class", &DeviceInfo::deviceClass},
            {"--vid", &DeviceInfo::vendorId},
            {"--pid", &DeviceInfo::productId},
    };
    const auto field = fields.find(word);
    return field == fields.end() ? kNoField : field->second;
}

bool set_value(DeviceInfo* info, const std::string& word, const std::string& value) {
    if (word == "--name") {
        info->deviceName = value;
        return true;
    }
    if (word == "--interfaces") return parse_list(value, &info->interfaceClassList);
    const auto number = parse_number(value);
    if (number) info->*number_field(word) = *number;
    return number.has_value();
}

bool takes_value(const std::string& word) {
    return word == "--name" || word == "--interfaces" || number_field(word) != kNoField;
}

}  // namespace

std::optional<int32_t> parse_number(const std::string& text) {
    const bool hexadecimal = base::StartsWith(text, "0x") || base::StartsWith(text, "0X");
    if (base::StartsWith(text, "0x-") || base::StartsWith(text, "0X-")) return std::nullopt;
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    int64_t number = 0;
    const auto result = std::from_chars(first, last, number, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != last) return std::nullopt;
    // 0xff000000 and the like are bits, and stay them.
    const int64_t highest = hexadecimal ? int64_t{std::numeric_limits<uint32_t>::max()}
                                        : int64_t{std::numeric_limits<int32_t>::max()};
    if (number > highest || number < std::numeric_limits<int32_t>::min()) return std::nullopt;
    return static_cast<int32_t>(number);
}

std::optional<DeviceInfo> parse_device(const Words& words, std::string* error) {
    DeviceInfo info;
    for (size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (word == "--usb" || word == "--input") {
            info.deviceType = word == "--input" ? 1 : 0;
            continue;
        }
        if (!takes_value(word)) {
            *error = "unknown argument: " + word;
            return std::nullopt;
        }
        if (++at == words.size()) {
            *error = word + " needs a value";
            return std::nullopt;
        }
        if (!set_value(&info, word, words[at])) {
            *error = word + ": not a number: " + words[at];
            return std::nullopt;
        }
    }
    if (info.deviceName.empty()) info.deviceName = "vusctl";
    return info;
}

}  // namespace android::vus::ctl
