// SPDX-License-Identifier: Apache-2.0
//
// The commands that ask the daemon. Each returns an exit status of vusctl.

#pragma once

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

int list_devices(Context& context, const Call& call);
int judge_device(Context& context, const Call& call);
int reset_ports(Context& context, const Call& call);
int undock(Context& context, const Call& call);
int watch_devices(Context& context, const Call& call);
int dump_daemon(Context& context, const Call& call);

}  // namespace android::vus::ctl
