// SPDX-License-Identifier: Apache-2.0
//
// What a new policy changes for the devices that the daemon lists, told before it is put in force.

#pragma once

#include <string>
#include <vector>

#include "android/vus/policy.h"
#include "tools/workbench/verify.h"

namespace android::vus::ctl {

// For people, lines of at most 80 characters: each device whose verdict changes, and a warning if
// no keyboard is left.
std::string preview_of(const Policy& policy, const std::vector<workbench::ListedDevice>& listed);

}  // namespace android::vus::ctl
