// SPDX-License-Identifier: Apache-2.0
//
// vusctl policy check: the daemon's verdict on a file, and the linter's findings.

#pragma once

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "tools/workbench/lint.h"
#include "tools/workbench/rejection.h"

namespace android::vus::workbench {

enum class Format { kText, kJson, kSarif };

struct CheckOptions {
    std::string path;
    bool strict = false;
    Format format = Format::kText;
    std::set<std::string> allowed;  // ids of findings that are meant
};

// Returns the exit status. `names` may be nullptr: then vendors are not looked up, which is said.
int runCheck(const CheckOptions& options, const VendorNames* names, std::ostream& out,
             std::ostream& err);

// The result of a check as a SARIF 2.1.0 log. `rejection` is nullptr for a policy that is accepted.
std::string toSarif(const std::string& path, const Rejection* rejection,
                    const std::vector<Finding>& findings);

}  // namespace android::vus::workbench
