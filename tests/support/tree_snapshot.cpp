// SPDX-License-Identifier: Apache-2.0

#include "tests/support/tree_snapshot.h"

#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <sstream>

#include "tests/support/world.h"

namespace android::vus {

namespace {

// Replaces each \xNN by its byte.
std::string Unescape(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 2, "\\x") != 0) {
            bytes += text[i];
            continue;
        }
        bytes += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
        i += 3;
    }
    return bytes;
}

SnapshotEntry::Kind ParseKind(const std::string& word, const std::string& line) {
    if (word == "dir") return SnapshotEntry::Kind::kDirectory;
    if (word == "file") return SnapshotEntry::Kind::kFile;
    if (word == "link") return SnapshotEntry::Kind::kLink;
    fprintf(stderr, "not a line of a snapshot: %s\n", line.c_str());
    exit(2);
}

}  // namespace

std::vector<SnapshotEntry> ParseSnapshot(const std::string& text) {
    std::vector<SnapshotEntry> entries;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const size_t first = line.find(' ');
        const size_t second = line.find(' ', first + 1);
        SnapshotEntry entry;
        entry.kind = ParseKind(line.substr(0, first), line);
        entry.path = Unescape(line.substr(first + 1, second - first - 1));
        if (second != std::string::npos) entry.text = Unescape(line.substr(second + 1));
        entries.push_back(std::move(entry));
    }
    return entries;
}

void MakeSnapshot(const std::vector<SnapshotEntry>& entries) {
    for (const SnapshotEntry& entry : entries) {
        MakeDir(std::filesystem::path(entry.path).parent_path());
        switch (entry.kind) {
            case SnapshotEntry::Kind::kDirectory:
                MakeDir(entry.path);
                break;
            case SnapshotEntry::Kind::kFile:
                WriteFile(entry.path, entry.text);
                break;
            case SnapshotEntry::Kind::kLink:
                std::filesystem::create_symlink(entry.text, entry.path);
                break;
        }
    }
}

}  // namespace android::vus
