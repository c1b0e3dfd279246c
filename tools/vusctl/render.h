// SPDX-License-Identifier: Apache-2.0
//
// How vusctl writes device records: as text for people, as JSON for programs. Names come from the
// devices themselves and may hold anything; neither form lets a control character through.

#pragma once

#include <string>
#include <vector>

#include "android/vus/DeviceInfo.h"

namespace android::vus::ctl {

// `text` as a JSON string, quotes included. Bytes that are no UTF-8 become U+FFFD.
std::string json_string(const std::string& text);

// One line of text each, with a line of titles, in columns; no trailing blanks. No line is longer
// than `width` characters, or however long it has to be if that is 0: the widest columns, which are
// the devices' own texts, are cut short.
std::string text_table(const std::vector<DeviceInfo>& devices, size_t width = 0);

// One object; an array of objects, one a line.
std::string json_object(const DeviceInfo& device);
std::string json_array(const std::vector<DeviceInfo>& devices);

}  // namespace android::vus::ctl
