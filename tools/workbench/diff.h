// SPDX-License-Identifier: Apache-2.0
//
// vusctl policy diff: what a change of the policy means, over all devices and for known ones.

#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "tools/workbench/report.h"

namespace android::vus::workbench {

struct DiffOptions {
    std::string before;
    std::string after;
    std::optional<std::string> devices;  // a list, or "-"
    bool noNewAccess = false;
    ReportFormat format = ReportFormat::kText;
};

// Returns the exit status.
int runDiff(const DiffOptions& options, std::ostream& out, std::ostream& err);

}  // namespace android::vus::workbench
