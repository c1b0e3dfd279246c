// SPDX-License-Identifier: Apache-2.0
//
// Scenarios that need a process of their own: those that end it, and those that leave a thread
// behind.

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace android::vus {

struct ChildResult {
    int exit_status = -1;          // -1 if a signal ended it
    int signal = 0;                // 0 if it exited
    std::vector<std::string> log;  // "I message", "E message", "F message" and so on
};

// Runs `body` in a child, whose log lines are collected, and waits for its end. A body that
// returns ends the child with 0, or with 1 if one of its expectations failed.
ChildResult RunInChild(const std::function<void()>& body);

// In a child of RunInChild: where its log lines go.
int LogDescriptor();

// Runs `body` in a child in which log lines go where they go in the parent, and expects that no
// expectation fails there.
void ExpectPassesInChild(const std::function<void()>& body);

}  // namespace android::vus
