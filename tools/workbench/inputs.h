// SPDX-License-Identifier: Apache-2.0
//
// What the analysing commands share: the files they are given, and devices as examples.

#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "android/vus/judge.h"
#include "tools/workbench/device.h"

namespace android::vus::workbench {

// A whole file, or the standard input for "-". If it cannot be read, nothing, and `err` is told.
std::optional<std::string> readFile(const std::string& path, std::ostream& err);

// A policy that the daemon would accept. If it would not, nothing, and `err` is told; `status` is
// what to end with.
std::optional<Policy> readPolicy(const std::string& path, std::ostream& err, int* status);

// A claim as a device to be shown.
Device exampleOf(const Claim& claim);

// The reason, and the line of the rule, if one decided.
std::string reasonOf(const Judgement& judgement);

}  // namespace android::vus::workbench
