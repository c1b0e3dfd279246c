// SPDX-License-Identifier: Apache-2.0

#include "tools/vusctl/sources.h"

#include <errno.h>
#include <string.h>

#include <fstream>
#include <iostream>
#include <utility>

#include "tools/common/text.h"
#include "tools/workbench/inputs.h"
#include "tools/workbench/list.h"
#include "tools/workbench/tree.h"

namespace android::vus::ctl {

namespace {

using Take = std::function<void(workbench::Device)>;

int unreadable(Context& context, const std::string& path) {
    return context.failed("cannot read " + printable(path) + ": " + strerror(errno));
}

int read_list(Context& context, const std::string& path, const Take& take) {
    std::string error;
    if (path == "-") {
        error = workbench::readDevices(std::cin, "standard input", take);
    } else {
        errno = 0;
        std::ifstream file(path);
        if (!file.is_open() || file.peek() == EOF) {
            // A directory opens, and cannot be read.
            if (errno != 0) return unreadable(context, path);
        }
        file.clear();
        error = workbench::readDevices(file, path, take);
    }
    return error.empty() ? kDone : context.failed(error);
}

int read_tree(Context& context, const std::string& dir, const Take& take) {
    const std::string error = workbench::readTree(dir, take);
    return error.empty() ? kDone : context.failed(error);
}

}  // namespace

bool read_file(Context& context, const std::string& path, std::string* content) {
    auto read = workbench::readFile(path, context.err);
    if (read) *content = std::move(*read);
    return read.has_value();
}

std::optional<Policy> load_policy(Context& context, const std::string& path, int* status) {
    return workbench::readPolicy(path, context.err, status);
}

std::vector<Option> device_source_options() {
    return {
            {"--list", "FILE", "devices of a list: an array, or an object a line"},
            {"--tree", "DIR", "devices of a recorded sysfs"},
            {"--live", nullptr, "this machine's devices"},
    };
}

bool names_devices(const Call& call) {
    return call.has("--list") || call.has("--tree") || call.has("--live") ||
           !call.device_words().empty();
}

int read_devices(Context& context, const Call& call, const Take& take) {
    const Words words = call.device_words();
    if (!words.empty()) {
        std::string error;
        auto device = workbench::parseDevice(words, &error);
        if (!device) return context.usage_error(printable(error));
        take(std::move(*device));
    }
    for (const std::string& path : call.values("--list")) {
        if (const int status = read_list(context, path, take); status != kDone) return status;
    }
    for (const std::string& dir : call.values("--tree")) {
        if (const int status = read_tree(context, dir, take); status != kDone) return status;
    }
    return call.has("--live") ? read_tree(context, workbench::kLiveTree, take) : kDone;
}

}  // namespace android::vus::ctl
