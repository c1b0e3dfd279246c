// SPDX-License-Identifier: Apache-2.0
//
// The steps of a judgement in words. Stateless; any thread.

#pragma once

#include <string>
#include <vector>

#include "android/vus/judge.h"

namespace android::vus::workbench {

// A line for each interface or source that was looked at, and one or two for the vendor. The rules
// are those by which the claim was judged.
std::vector<std::string> walkOf(const Judgement& judgement, const Claim& claim, const Rules& rules);

// "line 4", or "no line" of what stands in no file.
std::string lineOf(const Rule& rule);

// "8 USB_CLASS_MASS_STORAGE", or the number alone; a source in hexadecimal.
std::string codeAndName(int32_t code);

}  // namespace android::vus::workbench
