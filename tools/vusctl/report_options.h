// SPDX-License-Identifier: Apache-2.0
//
// The options of commands that report for people, for programs and for a browser.

#pragma once

#include <optional>
#include <vector>

#include "tools/vusctl/command.h"
#include "tools/workbench/report.h"

namespace android::vus::ctl {

// --json, and --format for all of them.
std::vector<Option> report_options();

// The format that was asked for; nothing if there is none of that name, which was said.
std::optional<workbench::ReportFormat> report_format(Context& context, const Call& call);

}  // namespace android::vus::ctl
