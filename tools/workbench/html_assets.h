// SPDX-License-Identifier: Apache-2.0
//
// What every HTML report has in it: how it looks, and the script that sorts and filters.

#pragma once

#include <string_view>

namespace android::vus::workbench {

extern const std::string_view kHtmlStyle;
extern const std::string_view kHtmlScript;

}  // namespace android::vus::workbench
