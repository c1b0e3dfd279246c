// SPDX-License-Identifier: Apache-2.0
//
// A recorded sysfs as a text file: tests/data/README.md describes the format.

#pragma once

#include <string>
#include <vector>

namespace android::vus {

struct SnapshotEntry {
    enum class Kind { kDirectory, kFile, kLink };
    Kind kind;
    std::string path;
    std::string text;  // of a file its content, of a link its target
};

// The entries of the snapshot, in the order of its lines. Ends the program if a line is not one.
std::vector<SnapshotEntry> ParseSnapshot(const std::string& text);

// Makes them below the private root.
void MakeSnapshot(const std::vector<SnapshotEntry>& entries);

}  // namespace android::vus
