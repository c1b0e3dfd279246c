// SPDX-License-Identifier: Apache-2.0
//
// What the files and directories of a sysfs hold. What is not there reads as empty. Stateless.

#pragma once

#include <stdint.h>

#include <filesystem>
#include <map>
#include <string>

namespace android::vus::workbench {

// The value of an attribute, blanks around it cut off.
std::string sysfsText(const std::filesystem::path& directory, const char* attribute);
int32_t sysfsNumber(const std::filesystem::path& directory, const char* attribute, int base);

// The entries of a directory by name.
std::map<std::string, std::filesystem::path> sysfsEntries(const std::filesystem::path& directory);

}  // namespace android::vus::workbench
