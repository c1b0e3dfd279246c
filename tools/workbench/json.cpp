// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/json.h"

#include <string.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <json/reader.h>
#include <json/writer.h>

#include "android/vus/class_names.h"
#include "tools/common/text.h"

namespace android::vus::workbench {

namespace {

// Deeper than any of our formats. The library would throw beyond its own limit.
constexpr int kDeepest = 24;

// How deep brackets nest outside strings; what is no JSON may give any answer.
int depthOf(std::string_view text) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (inString) {
            if (c == '\\') ++at;
            inString = c != '"';
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

std::unique_ptr<Json::CharReader> makeReader() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;  // a depth of one is judged by those who want an object
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

// "* Line 2, Column 3\n  Syntax error: ...\n" to its message and line.
void readLibraryError(const std::string& errors, std::string* error, int* line) {
    constexpr std::string_view kLine = "* Line ";
    int number = 0;
    if (errors.compare(0, kLine.size(), kLine) == 0 &&
        base::ParseInt(errors.substr(kLine.size(), errors.find(',') - kLine.size()), &number)) {
        *line = number - 1;
    }
    size_t from = errors.find('\n');
    from = from == std::string::npos ? 0 : errors.find_first_not_of(' ', from + 1);
    if (from == std::string::npos) from = 0;
    *error = printable(errors.substr(from, errors.find('\n', from) - from));
}

std::string written(const Json::Value& value, const char* indentation) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["emitUTF8"] = true;
    builder["enableYAMLCompatibility"] = false;
    return json_escaped_controls(Json::writeString(builder, value));
}

// Reads the members of one object. The first that is wrong is the error.
class MemberReader {
  public:
    MemberReader(const Json::Value& object, std::string* error) : object_(object), error_(*error) {}

    bool ok() const { return ok_; }

    std::string text(const char* name) {
        const Json::Value* member = find(name);
        if (member == nullptr) return "";
        if (!member->isString()) fail(name, "is not a text");
        return ok_ ? valid_utf8(member->asString()) : "";
    }

    std::optional<bool> flag(const char* name) {
        const Json::Value* member = find(name);
        if (member == nullptr) return std::nullopt;
        if (!member->isBool()) fail(name, "is neither true nor false");
        return ok_ ? std::optional<bool>(member->asBool()) : std::nullopt;
    }

    std::optional<int32_t> number(const char* name) {
        const Json::Value* member = find(name);
        if (member == nullptr) return std::nullopt;
        const auto value = numberOf(*member);
        if (!value) fail(name, "is not a number of 32 bits");
        return value;
    }

    int32_t requiredNumber(const char* name) {
        const auto value = number(name);
        if (!value) fail(name, "is missing");
        return value.value_or(0);
    }

    std::vector<int32_t> numbers(const char* name, bool required) {
        std::vector<int32_t> values;
        const Json::Value* member = find(name);
        if (member == nullptr) {
            if (required) fail(name, "is missing");
            return values;
        }
        if (!member->isArray()) fail(name, "is not a list");
        if (!ok_) return values;
        for (const Json::Value& each : *member) {
            const auto value = numberOf(each);
            if (!value) fail(name, "holds what is no class");
            values.push_back(value.value_or(0));
        }
        return values;
    }

    void fail(const char* name, const char* what) {
        if (ok_) error_ = std::string(name) + " " + what;
        ok_ = false;
    }

  private:
    const Json::Value* find(const char* name) const {
        const Json::Value* member = object_.find(name, name + strlen(name));
        return member == nullptr || member->isNull() ? nullptr : member;
    }

    static std::optional<int32_t> numberOf(const Json::Value& value) {
        if (value.isInt()) return value.asInt();
        if (!value.isString()) return std::nullopt;
        const std::string text = value.asString();
        if (const auto number = parseNumber(text)) return number;
        const uint32_t code = classCode(text);
        if (code == kNoClassCode) return std::nullopt;
        return static_cast<int32_t>(code);
    }

    const Json::Value& object_;
    std::string& error_;
    bool ok_ = true;
};

void setText(Json::Value* object, const char* name, const std::string& text) {
    if (!text.empty()) (*object)[name] = valid_utf8(text);
}

}  // namespace

std::optional<Json::Value> parseJson(std::string_view text, std::string* error, int* line) {
    *line = 0;
    if (depthOf(text) > kDeepest) {
        *error = "nested too deeply";
        return std::nullopt;
    }
    Json::Value value;
    std::string errors;
    if (makeReader()->parse(text.data(), text.data() + text.size(), &value, &errors)) return value;
    readLibraryError(errors, error, line);
    return std::nullopt;
}

std::string toJsonLine(const Json::Value& value) {
    return written(value, "");
}

std::string toJsonText(const Json::Value& value) {
    return written(value, "  ") + "\n";
}

Json::Value toJson(const Device& device) {
    Json::Value value(Json::objectValue);
    if (device.id) value["deviceId"] = *device.id;
    value["deviceName"] = valid_utf8(device.name);
    value["deviceType"] = static_cast<int>(device.type);
    value["deviceClass"] = device.claim.deviceClass;
    Json::Value& interfaces = value["interfaceClassList"] = Json::Value(Json::arrayValue);
    for (const int32_t code : device.claim.interfaceClasses) interfaces.append(code);
    value["vendorId"] = device.claim.vendorId;
    value["productId"] = device.claim.productId;
    if (device.vendorHid) value["vendorHid"] = *device.vendorHid;
    setText(&value, "vendorName", device.vendorName);
    setText(&value, "productName", device.productName);
    setText(&value, "serial", device.serial);
    return value;
}

std::optional<Device> deviceFromJson(const Json::Value& value, std::string* error) {
    if (!value.isObject()) {
        *error = "a device has to be an object";
        return std::nullopt;
    }
    MemberReader members(value, error);
    Device device;
    const int32_t type = members.requiredNumber("deviceType");
    if (type != 0 && type != 1) members.fail("deviceType", "is neither 0 (USB) nor 1 (input)");
    device.type = type == 0 ? DeviceType::kUsb : DeviceType::kInput;
    device.claim.vendorId = members.requiredNumber("vendorId");
    device.claim.productId = members.requiredNumber("productId");
    device.claim.deviceClass = type == 0 ? members.number("deviceClass").value_or(0)
                                         : members.requiredNumber("deviceClass");
    device.claim.interfaceClasses = members.numbers("interfaceClassList", /*required=*/type == 0);
    device.vendorHid = members.flag("vendorHid");
    device.id = members.number("deviceId");
    device.name = members.text("deviceName");
    device.vendorName = members.text("vendorName");
    device.productName = members.text("productName");
    device.serial = members.text("serial");
    if (!members.ok()) return std::nullopt;
    return device;
}

}  // namespace android::vus::workbench
