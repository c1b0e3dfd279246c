// SPDX-License-Identifier: Apache-2.0

#include "tools/workbench/sysfs_entry.h"

#include <stdlib.h>

#include <system_error>

#include <android-base/file.h>
#include <android-base/strings.h>

namespace android::vus::workbench {

std::string sysfsText(const std::filesystem::path& directory, const char* attribute) {
    std::string value;
    base::ReadFileToString((directory / attribute).string(), &value, /*follow_symlinks=*/true);
    return base::Trim(value);
}

int32_t sysfsNumber(const std::filesystem::path& directory, const char* attribute, int base) {
    return static_cast<int32_t>(strtol(sysfsText(directory, attribute).c_str(), nullptr, base));
}

std::map<std::string, std::filesystem::path> sysfsEntries(const std::filesystem::path& directory) {
    std::map<std::string, std::filesystem::path> entries;
    std::error_code error;
    for (std::filesystem::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        entries[at->path().filename().string()] = at->path();
    }
    return entries;
}

}  // namespace android::vus::workbench
