// SPDX-License-Identifier: Apache-2.0
//
// Why the daemon rejects a policy, for the one who has to mend it: the text in question with its
// blanks made visible, and what was probably meant. The verdict itself is the daemon's own. Pure;
// any thread.

#pragma once

#include <string>
#include <string_view>

#include "android/vus/policy.h"

namespace android::vus::workbench {

struct Rejection {
    std::string status;    // what the status file would say
    int line;              // kNoLine if nobody knows
    std::string offender;  // the text in question, as written; may be empty
    bool hasOffender;
    std::string hint;  // what to write instead; empty if there is nothing to say
};

Rejection explain(const PolicyFailure& failure);

// The text with a sign for each blank, tab, line feed and carriage return.
std::string withVisibleBlanks(std::string_view text);

// How many letters have to be added, taken away or replaced to make one text the other.
size_t distanceOf(std::string_view one, std::string_view other);

}  // namespace android::vus::workbench
