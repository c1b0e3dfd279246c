// SPDX-License-Identifier: Apache-2.0

#include "tools/hotplug/options.h"

#ifndef VUS_VERSION
#error "the build has to define VUS_VERSION"
#endif

namespace android::vus::hotplug {

std::string version_line() {
    return "vus_hotplug " VUS_VERSION "\n";
}

Options parse_options(const std::vector<std::string>& arguments) {
    Options options;
    for (size_t at = 0; at < arguments.size(); ++at) {
        const std::string& argument = arguments[at];
        if (argument == "--once") {
            options.once = true;
        } else if (argument == "--fail-closed") {
            options.fail_closed = true;
        } else if (argument == "--gate" || argument == "--gate=keep") {
            options.gate = true;
        } else if (argument == "--gate=off") {
            options.gate = false;
        } else if (argument == "--interfaces") {
            options.interfaces = true;
        } else if (argument == "--open") {
            options.open = true;
        } else if (argument == "--verbose") {
            options.verbose = true;
        } else if (argument == "--events") {
            if (++at == arguments.size() || arguments[at].empty()) {
                options.error = "--events needs a file";
                return options;
            }
            options.events = arguments[at];
        } else if (argument == "--version") {
            options.version = true;
        } else if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else {
            options.error = "unknown argument: " + argument;
            return options;
        }
    }
    if (options.interfaces && !options.gate) options.error = "--interfaces goes with --gate";
    if (options.open && arguments.size() > 1) options.error = "--open goes with nothing else";
    return options;
}

}  // namespace android::vus::hotplug
