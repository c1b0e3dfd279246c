// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/options.h"

namespace android::vus::hotplug {

Options parse_options(const std::vector<std::string>& arguments) {
    Options options;
    for (const std::string& argument : arguments) {
        if (argument == "--once") {
            options.once = true;
        } else if (argument == "--fail-closed") {
            options.fail_closed = true;
        } else if (argument == "--verbose") {
            options.verbose = true;
        } else if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else {
            options.error = "unknown argument: " + argument;
            return options;
        }
    }
    return options;
}

}  // namespace android::vus::hotplug
