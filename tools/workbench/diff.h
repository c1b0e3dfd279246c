// SPDX-License-Identifier: Apache-2.0
//
// vusctl policy diff: what a change of the policy means, over all devices and for known ones.

#pragma once

#include <optional>
#include <ostream>
#include <string>

namespace android::vus::workbench {

struct DiffOptions {
    std::string before;
    std::string after;
    std::optional<std::string> devices;  // a list, or "-"
    bool noNewAccess = false;
    bool json = false;
};

// Returns the exit status.
int runDiff(const DiffOptions& options, std::ostream& out, std::ostream& err);

}  // namespace android::vus::workbench
