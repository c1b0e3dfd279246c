// SPDX-License-Identifier: Apache-2.0
//
// The words of a command line that describe a device to the daemon.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "android/vus/DeviceInfo.h"

namespace android::vus::ctl {

using Words = std::vector<std::string>;

// The device that the words of `vusctl judge` describe. With a wrong word, nothing, and `error`
// says what is wrong.
std::optional<DeviceInfo> parse_device(const Words& words, std::string* error);

}  // namespace android::vus::ctl
