// SPDX-License-Identifier: Apache-2.0

// How the daemon logs what a load and a judgement came across: the texts of both, each once. Not
// for users of the classes.

#pragma once

#include "android/vus/judge.h"
#include "android/vus/policy.h"

namespace android::vus {

void logParseStep(const ParseStep& step);
void logStep(const Step& step);

}  // namespace android::vus
