// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/rejection.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <functional>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "android/vus/class_names.h"

namespace android::vus::workbench {

namespace {

constexpr std::string_view kAround = " \t\r\n";
constexpr std::string_view kAfterBlank = ", without the blanks around it";
// Texts that are longer are no misspelt name, and not worth the time.
constexpr size_t kLongestName = 64;

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kAround);
    if (begin == std::string_view::npos) return "";
    return text.substr(begin, text.find_last_not_of(kAround) - begin + 1);
}

std::string upper(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return result;
}

// The nearest of some words, whatever their case, if it is near enough to have been meant.
std::string nearest(std::string_view text, const std::vector<std::string_view>& words) {
    std::string_view best;
    size_t least = std::numeric_limits<size_t>::max();
    if (text.size() > kLongestName) return "";
    for (const std::string_view word : words) {
        const size_t distance = distanceOf(upper(text), upper(word));
        if (distance < least && distance <= word.size() / 3) {
            least = distance;
            best = word;
        }
    }
    return std::string(best);
}

std::vector<std::string_view> admissibleNames() {
    std::vector<std::string_view> names;
    for (const ClassName& row : kClassNames) {
        if (!isRestrictedClass(row.code)) names.push_back(row.name);
    }
    return names;
}

std::optional<int32_t> wholeNumber(std::string_view text, int base) {
    int32_t value = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || end.ec != std::errc() || end.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::string hintOfClassCode(int32_t code) {
    if (code < 0) return "";
    if (code == kUsbClassHid) {
        return "AINPUT_SOURCE_KEYBOARD or AINPUT_SOURCE_MOUSE: HID devices are judged as input "
               "devices";
    }
    if (isRestrictedClass(code)) {
        return "a vid rule: " + std::string(className(code)) +
               " takes no part in class rules, so such devices are matched by vendor only";
    }
    const std::string_view name = className(code);
    if (name == className(-1)) {
        return "a vid rule: class " + std::to_string(code) + " has no name, and cannot be listed";
    }
    return std::string(name);
}

std::string hintOfClass(const std::string& offender) {
    const std::string_view text = trimmed(offender);
    const uint32_t code = classCode(upper(text));
    if (code != kNoClassCode) {
        const std::string hint = hintOfClassCode(static_cast<int32_t>(code));
        return hint + (hint == text ? std::string(kAfterBlank) : "");
    }
    const bool hexadecimal = upper(text.substr(0, 2)) == "0X";
    if (const auto byNumber =
                wholeNumber(hexadecimal ? text.substr(2) : text, hexadecimal ? 16 : 10)) {
        return hintOfClassCode(*byNumber);
    }
    std::string name = nearest(text, admissibleNames());
    if (name.empty()) name = nearest("USB_CLASS_" + std::string(text), admissibleNames());
    if (name.empty()) name = nearest("AINPUT_SOURCE_" + std::string(text), admissibleNames());
    return name;
}

std::string hintOfId(const std::string& offender) {
    const std::string_view text = trimmed(offender);
    if (isDecimal(text)) {
        return wholeNumber(text, 10) ? std::string(text) + std::string(kAfterBlank)
                                     : "an id of a device: at most 65535";
    }
    const bool prefix = upper(text.substr(0, 2)) == "0X";
    const std::string_view digits = prefix ? text.substr(2) : text;
    const auto value = wholeNumber(digits, 16);
    if (!value || *value < 0) return "a decimal number, at most 65535";
    return std::to_string(*value) + ", which is hexadecimal " + std::string(digits) +
           "; ids are decimal here";
}

std::string hintOfTag(const std::string& offender) {
    if (nearest(offender, {"pid"}) == "pid") return "<pid> inside a <vid>";
    const std::string name = nearest(offender, {"class", "vid"});
    return name.empty() ? "<class> or <vid>; a note belongs into a comment" : "<" + name + ">";
}

std::string hintOfRoot(const std::string&) {
    return "<usbconfig mode=\"whitelist\">";
}

std::string hintOfMode(const std::string& offender) {
    const std::string name =
            nearest(trimmed(offender), {kModeDefault, kModeWhitelist, kModeBlacklist});
    return name.empty() ? "whitelist, blacklist or default" : name;
}

// A status text: the text in question stands behind it, where it ends with a colon.
struct Row {
    std::string_view status;
    std::function<std::string(const std::string&)> hint;
};

std::function<std::string(const std::string&)> always(std::string_view hint) {
    return [hint](const std::string&) { return std::string(hint); };
}

const std::vector<Row>& rows() {
    static const std::vector<Row> kRows = {
            {"INVALID ROOT ELEMENT : ", hintOfRoot},
            {"INVALID CLASS VALUE:", hintOfClass},
            {"INVALID VENDOR ID VALUE:", hintOfId},
            {"INVALID PRODUCT ID VALUE:", hintOfId},
            {"INVALID TAG:", hintOfTag},
            {"MODE NOT PRESENT", always("<usbconfig mode=\"whitelist\">")},
            {"EMPTY CLASS VALUE", always("<class>NAME</class>, with nothing before the name")},
            {"vendorid TAG NOT PRESENT", always("<vid vendorid=\"NUMBER\">")},
            {"EMPTY VENDOR ID VALUE", always("<vid vendorid=\"NUMBER\">")},
            {"EMPTY PRODUCT ID VALUE", always("<pid>NUMBER</pid>; a note belongs into a comment")},
    };
    return kRows;
}

}  // namespace

size_t distanceOf(std::string_view one, std::string_view other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

Rejection explain(const PolicyFailure& failure) {
    Rejection rejection{failure.status, failure.line, "", false, ""};
    if (std::holds_alternative<XmlError>(failure.library)) return rejection;
    if (failure.status == "INVALID MODE") {
        rejection.offender = failure.read.mode;
        rejection.hasOffender = true;
        rejection.hint = hintOfMode(rejection.offender);
        return rejection;
    }
    for (const Row& row : rows()) {
        if (failure.status.compare(0, row.status.size(), row.status) != 0) continue;
        rejection.offender = failure.status.substr(row.status.size());
        rejection.hasOffender = row.status.back() == ':' || row.status.back() == ' ';
        rejection.hint = row.hint(rejection.offender);
        break;
    }
    return rejection;
}

std::string withVisibleBlanks(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
            case ' ':
                result += "\u00B7";
                break;
            case '\t':
                result += "\u2192";
                break;
            case '\n':
                result += "\u21B5";
                break;
            case '\r':
                result += "\u2190";
                break;
            default:
                result += c;
        }
    }
    return result;
}

}  // namespace android::vus::workbench
