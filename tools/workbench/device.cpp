// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/device.h"

#include <charconv>
#include <limits>
#include <system_error>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "tools/common/text.h"

namespace android::vus::workbench {

namespace {

using base::StringPrintf;

// Two digits and more that begin with a zero: an id copied from a tool that prints hexadecimal.
bool isDecimalWithLeadingZero(const std::string& text) {
    return text.size() > 1 && text[0] == '0' && isDecimal(text);
}

std::string joined(const std::vector<int32_t>& numbers) {
    return base::Join(numbers, ',');
}

// Reads the options of a description.
class WordReader {
  public:
    explicit WordReader(std::string* error) : error_(*error) {}

    bool read(const std::vector<std::string>& words) {
        for (size_t at = 0; at < words.size(); ++at) {
            const std::string& word = words[at];
            if (readFlag(word)) continue;
            if (!takesValue(word)) return fails("unknown argument: " + word);
            if (++at == words.size()) return fails(word + " needs a value");
            if (!readValue(word, words[at])) return false;
        }
        return true;
    }

    Device device;

  private:
    bool fails(const std::string& message) {
        error_ = message;
        return false;
    }

    bool readFlag(const std::string& word) {
        if (word == "--usb") device.type = DeviceType::kUsb;
        if (word == "--input") device.type = DeviceType::kInput;
        if (word == "--vendor-hid") device.vendorHid = true;
        return word == "--usb" || word == "--input" || word == "--vendor-hid";
    }

    static bool takesValue(const std::string& word) {
        return word == "--name" || word == "--interfaces" || word == "--id" || word == "--class" ||
               word == "--vid" || word == "--pid";
    }

    bool readValue(const std::string& word, const std::string& value) {
        if (word == "--name") {
            device.name = value;
            return true;
        }
        if (word == "--interfaces") return readInterfaces(word, value);
        int32_t number = 0;
        if (!readNumber(word, value, value, &number)) return false;
        if (word == "--id") device.id = number;
        if (word == "--class") device.claim.deviceClass = number;
        if (word == "--vid") device.claim.vendorId = number;
        if (word == "--pid") device.claim.productId = number;
        return true;
    }

    // "8,255"; an empty text is no interface at all.
    bool readInterfaces(const std::string& word, const std::string& value) {
        std::vector<int32_t>& interfaces = device.claim.interfaceClasses;
        interfaces.clear();
        if (value.empty()) return true;
        for (const std::string& piece : base::Split(value, ",")) {
            int32_t number = 0;
            if (!readNumber(word, value, piece, &number)) return false;
            interfaces.push_back(number);
        }
        return true;
    }

    bool readNumber(const std::string& word, const std::string& value, const std::string& piece,
                    int32_t* number) {
        const auto parsed = parseNumber(piece);
        if (!parsed) return fails(word + ": not a number: " + value);
        if (isDecimalWithLeadingZero(piece)) {
            return fails(
                    StringPrintf("%s: %s has a leading zero: write 0x%s for hexadecimal, or "
                                 "%d for decimal",
                                 word.c_str(), piece.c_str(), piece.c_str(), *parsed));
        }
        *number = *parsed;
        return true;
    }

    std::string& error_;
};

}  // namespace

bool operator==(const Device& one, const Device& other) {
    return one.type == other.type && one.claim.deviceClass == other.claim.deviceClass &&
           one.claim.interfaceClasses == other.claim.interfaceClasses &&
           one.claim.vendorId == other.claim.vendorId &&
           one.claim.productId == other.claim.productId && one.vendorHid == other.vendorHid &&
           one.id == other.id && one.name == other.name && one.vendorName == other.vendorName &&
           one.productName == other.productName && one.serial == other.serial;
}

Screening screeningOf(const Device& device) {
    if (device.type == DeviceType::kInput) return Screening::kJudged;
    if (firstClassOtherThanHid(device.claim.interfaceClasses)) return Screening::kJudged;
    if (!device.vendorHid) return Screening::kUnknown;
    return *device.vendorHid ? Screening::kJudged : Screening::kLeftToInput;
}

std::string idPair(int32_t vendor, int32_t product) {
    return StringPrintf("%04x:%04x", static_cast<uint32_t>(vendor), static_cast<uint32_t>(product));
}

std::string classesOf(const Device& device) {
    const Claim& claim = device.claim;
    if (device.type == DeviceType::kInput) {
        return StringPrintf("0x%x", static_cast<uint32_t>(claim.deviceClass));
    }
    return claim.interfaceClasses.empty() ? "none" : joined(claim.interfaceClasses);
}

std::string describe(const Device& device) {
    const Claim& claim = device.claim;
    const bool input = device.type == DeviceType::kInput;
    std::string text = (input ? "input " : "usb ") + idPair(claim.vendorId, claim.productId);
    if (!input && claim.interfaceClasses.empty()) {
        text += " no interfaces";
    } else {
        text += (input ? " sources " : " interfaces ") + classesOf(device);
    }
    if (device.vendorHid.value_or(false)) text += " vendor HID";
    return device.name.empty() ? text : text + " \"" + printable(device.name) + "\"";
}

std::string optionsOf(const Device& device) {
    const Claim& claim = device.claim;
    const bool input = device.type == DeviceType::kInput;
    std::string text = input ? "--input " : "";
    text += StringPrintf("--vid 0x%04x --pid 0x%04x", static_cast<uint32_t>(claim.vendorId),
                         static_cast<uint32_t>(claim.productId));
    if (input || claim.interfaceClasses.empty()) {
        text += StringPrintf(" --class 0x%x", static_cast<uint32_t>(claim.deviceClass));
    }
    if (!claim.interfaceClasses.empty()) text += " --interfaces " + joined(claim.interfaceClasses);
    return device.vendorHid.value_or(false) ? text + " --vendor-hid" : text;
}

std::optional<int32_t> parseNumber(std::string_view text) {
    const std::string_view prefix = text.substr(0, 2);
    const bool hexadecimal = prefix == "0x" || prefix == "0X";
    if (hexadecimal) text.remove_prefix(2);
    if (hexadecimal && text.substr(0, 1) == "-") return std::nullopt;
    const char* const last = text.data() + text.size();
    int64_t number = 0;
    const auto result = std::from_chars(text.data(), last, number, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != last) return std::nullopt;
    // 0xff000000 and the like are bits, and stay them.
    const int64_t highest = hexadecimal ? int64_t{std::numeric_limits<uint32_t>::max()}
                                        : int64_t{std::numeric_limits<int32_t>::max()};
    if (number > highest || number < std::numeric_limits<int32_t>::min()) return std::nullopt;
    return static_cast<int32_t>(number);
}

std::optional<Device> parseDevice(const std::vector<std::string>& words, std::string* error) {
    WordReader reader(error);
    if (!reader.read(words)) return std::nullopt;
    return reader.device;
}

}  // namespace android::vus::workbench
