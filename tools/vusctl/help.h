// SPDX-License-Identifier: Apache-2.0
//
// Help, made from the table of commands. No line is longer than 80 characters.

#pragma once

#include <ostream>
#include <string>

#include "tools/vusctl/command.h"

namespace android::vus::ctl {

// What vusctl does, in a sentence.
inline constexpr char kDescription[] =
        "Asks the vus daemon, changes its policy, and tells without the daemon what a\n"
        "policy does.\n";

// "vusctl policy check FILE [--json]", over several lines where one is too short.
std::string synopsis(const Command& command);

// Every command with its summary.
void print_help(std::ostream& out);
// One command: its synopsis, its options and its notes.
void print_help(const Command& command, std::ostream& out);

}  // namespace android::vus::ctl
