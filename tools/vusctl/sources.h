// SPDX-License-Identifier: Apache-2.0
//
// What commands are given to work on: policies and devices, from files, trees and this machine.

#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "android/vus/policy.h"
#include "tools/vusctl/command.h"
#include "tools/workbench/device.h"

namespace android::vus::ctl {

// The content of a file ("-": the standard input). False if it cannot be read, which was said.
bool read_file(Context& context, const std::string& path, std::string* content);

// The policy of a file ("-": the standard input). If it cannot be read, or is none, nothing: it was
// said why, and `status` is the exit status.
std::optional<Policy> load_policy(Context& context, const std::string& path, int* status);

// The options that name devices: --list, --tree and --live.
std::vector<Option> device_source_options();

// Whether the call names any devices, by the options above or by a description.
bool names_devices(const Call& call);

// Calls `take` with each device that the call names. kDone, or an exit status: it was said why.
int read_devices(Context& context, const Call& call,
                 const std::function<void(workbench::Device)>& take);

}  // namespace android::vus::ctl
