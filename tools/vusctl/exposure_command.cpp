// SPDX-License-Identifier: Apache-2.0

#include <errno.h>
#include <string.h>

#include <fstream>
#include <iostream>
#include <limits>
#include <string>

#include "tools/common/text.h"
#include "tools/vusctl/exposures.h"
#include "tools/vusctl/inspect_commands.h"
#include "tools/workbench/device.h"
#include "tools/workbench/json.h"

namespace android::vus::ctl {

namespace {

void add_lines(std::istream& lines, Exposures* exposures) {
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) exposures->add(line);
    }
}

// False, with errno telling why. A directory opens, and cannot be read.
bool add_file(const std::string& path, Exposures* exposures) {
    errno = 0;
    std::ifstream file(path);
    if (!file.is_open() || (file.peek() == EOF && errno != 0)) return false;
    file.clear();
    add_lines(file, exposures);
    return true;
}

}  // namespace

int show_exposure(Context& context, const Call& call) {
    double most = std::numeric_limits<double>::infinity();
    if (const auto limit = call.value("--fail-above")) {
        most = workbench::parseNumber(*limit).value_or(-1);
        if (most < 0) return context.usage_error("--fail-above takes a number of milliseconds");
    }
    const std::string path = call.plain.empty() ? kEventsFile : call.plain[0];
    Exposures exposures;
    if (path == "-") {
        add_lines(std::cin, &exposures);
    } else {
        // What is older first. There need not be any.
        add_file(path + ".1", &exposures);
        if (!add_file(path, &exposures)) {
            return context.failed("cannot read " + printable(path) + ": " + strerror(errno));
        }
    }
    context.out << (call.has("--json") ? workbench::toJsonLine(exposures.to_json()) + "\n"
                                       : exposures.to_text());
    return exposures.worst_ms() > most ? kRefused : kDone;
}

}  // namespace android::vus::ctl
