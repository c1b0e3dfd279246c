// SPDX-License-Identifier: Apache-2.0
//
// Names as devices give them, made fit for lists, logs and terminals. Stateless; any thread.

#pragma once

#include <string>

namespace android::vus::hotplug {

// `text` as valid UTF-8 without anything that people would not see, or that would make them see
// something else: "?" for each control character, each that turns the direction of writing, and
// each that has no width. No longer than a USB device's own strings can be; a name that is ends
// in "...".
std::string clean_name(const std::string& text);

}  // namespace android::vus::hotplug
