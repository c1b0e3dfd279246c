// SPDX-License-Identifier: Apache-2.0
//
// The commands that look into the machine: what is listed, why, and whether it is so. Each returns
// an exit status of vusctl.

#pragma once

#include <vector>

#include "android/vus/DeviceInfo.h"
#include "tools/vusctl/command.h"
#include "tools/workbench/verify.h"

namespace android::vus::ctl {

// A record of the daemon's list as a device.
workbench::ListedDevice listed_device(const DeviceInfo& info);

int explain_listed(Context& context, const Call& call);
int verify_list(Context& context, const Call& call);
int record_devices(Context& context, const Call& call);
int forget_device(Context& context, const Call& call);
// Without the daemon: of a file that the reporter writes.
int show_exposure(Context& context, const Call& call);

}  // namespace android::vus::ctl
