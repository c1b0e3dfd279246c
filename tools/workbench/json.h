// SPDX-License-Identifier: Apache-2.0
//
// JSON in and out, by libjsoncpp. Nothing here throws, whatever the text holds. Stateless.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <json/value.h>

#include "tools/workbench/device.h"

namespace android::vus::workbench {

// The value that `text` is, and nothing else beside it. With any other text, nothing: `error` says
// what is wrong, and `line`, counted from 0, where.
std::optional<Json::Value> parseJson(std::string_view text, std::string* error, int* line);

// On one line, without a line end; fit for a terminal whatever the texts in it hold.
std::string toJsonLine(const Json::Value& value);
// Over several lines, for people; ends with a line feed.
std::string toJsonText(const Json::Value& value);

// A device as a value: the members that `vusctl list --json` prints of a claim (deviceId,
// deviceName, deviceType, deviceClass, interfaceClassList, vendorId, productId), and vendorHid,
// vendorName, productName and serial where they are known.
Json::Value toJson(const Device& device);

// The device that a value describes. deviceType, vendorId, productId and what the type is judged
// by (interfaceClassList, or deviceClass) are required, other members may be missing, and those
// that are none of a device's are ignored. A number may be a text, such as "0x0951", and a class
// its name. With any other value, nothing, and `error` says what is wrong.
std::optional<Device> deviceFromJson(const Json::Value& value, std::string* error);

}  // namespace android::vus::workbench
