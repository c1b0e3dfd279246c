// SPDX-License-Identifier: Apache-2.0
//
// vusctl policy surface: which drivers of a kernel a policy leaves within reach.

#pragma once

#include <optional>
#include <ostream>
#include <string>

namespace android::vus::workbench {

struct SurfaceOptions {
    std::string policy;
    std::optional<std::string> aliases;  // modules.alias; nothing: the running kernel's
    std::optional<int> failAbove;
    bool json = false;
};

// Returns the exit status.
int runSurface(const SurfaceOptions& options, std::ostream& out, std::ostream& err);

}  // namespace android::vus::workbench
